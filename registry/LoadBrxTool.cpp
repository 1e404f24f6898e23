#include <VelOsgDBBrx/LoadBrxTool.h>

#include "loading/CellTree.h"
#include "lod/PointCloudLOD.h"
#include "render/PointCloudImpl.h"

#include <VelBrx/MiraLasRead.h>

namespace VelOsgDBBrx {

namespace {

osg::Vec3d toVec(const double values[3])
{
    return osg::Vec3d(values[0], values[1], values[2]);
}

/// Null when the store has no cells.
osg::ref_ptr<OctreeInfo> openOctree(const std::string& path, const std::string& normalsPath)
{
    std::vector<VelBrx::CellWithSegment> records;
    VelBrx::BoundBoxWithOffset box{};
    const osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
    osg::Vec3d& scale = octree->scale;
    VelBrx::MiraLasRead::getOctree(records, box, path.c_str(), octree->pointDataStart, scale.x(), scale.y(),
                                   scale.z());
    if (records.empty()) return nullptr;

    octree->offset = toVec(box.offset);
    octree->min = toVec(box.min) - octree->offset;
    octree->max = toVec(box.max) - octree->offset;
    octree->pointPath = path;
    buildCellTree(records, *octree);
    octree->pointFile = std::make_unique<VelBrx::File>(path.c_str());
    octree->normalsPath = normalsPath;
    octree->normalsFile = std::make_unique<VelBrx::File>(normalsPath.c_str());
    return octree;
}

} // namespace

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, std::string normalsPath)
{
    osg::Vec3d offset;
    return loadBrxFileOffset(path, offset, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFileOffset(const std::string& path, osg::Vec3d& offset,
                                          std::string normalsPath)
{
    osg::Vec3d min;
    osg::Vec3d max;
    return loadBrxFile(path, offset, min, max, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, osg::Vec3d& offset, osg::Vec3d& min,
                                    osg::Vec3d& max, std::string normalsPath)
{
    const osg::ref_ptr<OctreeInfo> octree = openOctree(path, normalsPath);
    if (!octree) return nullptr;
    offset = octree->offset;
    min = octree->min;
    max = octree->max;
    osg::ref_ptr<PointCloudImpl> cloud = new PointCloudImpl(new PointCloudLOD(octree));
    cloud->setCullingActive(false);
    return cloud.release();
}

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, VelBrx::BrxHeader& header,
                                    std::string normalsPath)
{
    osg::Vec3d offset;
    osg::Vec3d min;
    osg::Vec3d max;
    return loadBrxFile(path, offset, min, max, header, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, osg::Vec3d& offset, osg::Vec3d& min,
                                    osg::Vec3d& max, VelBrx::BrxHeader& header, std::string normalsPath)
{
    // A header that cannot be read does not stop the load: the cell list decides.
    VelBrx::MiraLasRead::getBrxHeader(header, path.c_str());
    return loadBrxFile(path, offset, min, max, std::move(normalsPath));
}

} // namespace VelOsgDBBrx
