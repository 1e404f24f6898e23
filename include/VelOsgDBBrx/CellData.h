#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Node>
#include <osg/Referenced>
#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgUtil/IncrementalCompileOperation>

#include <cstdint>
#include <string>
#include <vector>

/// One octree cell. The tree is owned top-down: an octree owns its root, a cell its children; upward links
/// are weak. Hosts find the cells of a cloud from `IPointCloud::getOctree()->root` on, and read their points
/// with `LasReaderWriter::read` or, shared with what is on show, `PCDataManager::acquireNodeOrCreate`.
///
/// Threads: the record and the links are constant once the store is loaded, `group` once a cloud shows it.
/// The loaded state (`node`, `compileSet`, `state`) belongs to the level-of-detail pass of the context that
/// the octree is registered with; others hold `OctreeInfo::pointFile`'s mutex and `busy` to read it.
class VEL_OSGDB_BRX_EXPORT CellData : public osg::Referenced
{
public:
    explicit CellData(const VelBrx::CellWithSegment& cellRecord);

    std::string identifier;
    VelBrx::CellWithSegment record;

    osg::ref_ptr<osg::Node> node;        ///< the loaded leaf, null while not loaded
    osg::observer_ptr<osg::Group> group; ///< the PointCloudLOD that shows the cell
    uint64_t state = 0;                  ///< free for the paging code

    std::vector<osg::ref_ptr<CellData>> children; ///< in octant order, missing octants left out
    osg::observer_ptr<CellData> parent;
    osg::observer_ptr<OctreeInfo> octree;

    /// The compile set that brings `node` into the scene; null once it is merged. A leaf shared by two
    /// octrees of the same store has one for each, so the leaf's own reference is not enough.
    osg::observer_ptr<osgUtil::IncrementalCompileOperation::CompileSet> compileSet;

protected:
    ~CellData() override;
};
