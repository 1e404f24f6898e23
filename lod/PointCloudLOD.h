#pragma once

#include "loading/CellLeaf.h"

#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelThreads/Mutex.h>

#include <osg/Group>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <atomic>
#include <map>
#include <optional>
#include <vector>

namespace VelOsgUtils {
class DecrementalCompileOperation;
}

namespace osgUtil {
class CullVisitor;
}

namespace osgViewer {
class ViewerBase;
}

namespace VelOsgDBBrx {
class IPointLoadManager;
class IPointCategoryManager;
} // namespace VelOsgDBBrx

/// The node of one octree: its children are the loaded cells' leaves. While the user interacts with the
/// mouse, or while the viewer's user value "dilute" is true, only the coarse levels are drawn.
///
/// Orphans are leaves that a context left in the scene when it gave the octree up: no cell holds them. The
/// context that takes the octree over removes those that it does not want. A viewer without such a context
/// has the node remove them itself.
///
/// Threads: children change on the thread of the viewers' frames alone: in the update traversal through the
/// compile operations, or in the event traversal (`removeOrphans`). The cull traversal may run on several
/// threads at once.
class PointCloudLOD : public osg::Group
{
public:
    /// What the mouse does, as last seen by the event traversal.
    enum Mode : int
    {
        PRESSED = 0,
        RELEASED = 1,
        DRAGGING = 2,
        SCROLLED = 3
    };

    using LeafMap = std::map<CellLeaf*, osg::ref_ptr<CellLeaf>>;
    using LevelMap = std::map<int, LeafMap>;

    /// Makes itself known to every cell of the octree.
    explicit PointCloudLOD(OctreeInfo* octree);

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "PointCloudLOD"; }

    OctreeInfo* getOctree() const { return _octree; }
    const LevelMap& getLeavesByLevel() const { return _leavesByLevel; }

    void setMode(int mode) { _mode = mode; }
    int getMode() const { return _mode; }

    /// Only a `CellLeaf` that is not listed yet; else false, and nothing changes.
    bool addChild(osg::Node* child) override;

    /// Only a `CellLeaf` that is a child; else false.
    bool removeChild(osg::Node* child) override;

    void traverse(osg::NodeVisitor& visitor) override;

    /// The deepest level that this traversal draws of those loaded; without a value all of them.
    std::optional<int> deepestDrawn(osgUtil::CullVisitor& cull) const;

    /// Counts the changes of the children.
    unsigned changes() const { return _changes; }

    /// Of the whole file, loaded or not.
    osg::BoundingSphere computeBound() const override;

    /// Registers the octree with the managers of a context, unless a context has it already. The managers
    /// forget it when this node dies. Any thread.
    void registerOctree(VelOsgDBBrx::IPointLoadManager* loadManager,
                        VelOsgDBBrx::IPointCategoryManager* categoryManager);

    /// The load manager that has the octree; null where none has. Any thread.
    osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> loadManager();

    /// Asks the load manager that has the octree for a pass. Any thread.
    void flush();

    /// Adds an orphan, in the scene or not, while the octree is registered with the context that leaves it.
    /// Any thread.
    void addOrphan(osg::Node* leaf);

    /// Makes orphans of the leaves that wait in `removals` to be taken out of a point cloud. Any thread.
    static void leaveRemovals(VelOsgUtils::DecrementalCompileOperation& removals);

    /// Hands the orphans to the context that takes the octree over. Any thread.
    std::vector<osg::ref_ptr<osg::Node>> takeOrphans();

    /// Takes the orphans out of the scene unless a context has the octree.
    void removeOrphans();

    /// Notes that the viewer shows the node: it is asked for a redraw at the next change of the children.
    /// Any thread.
    void noteViewer(osgViewer::ViewerBase* viewer);

    /// Asks the viewers that were noted for a redraw, once. Any thread.
    void requestRedraw();

protected:
    ~PointCloudLOD() override;

private:
    void traverseThinned(osg::NodeVisitor& visitor, int deepest);

    std::atomic<int> _mode{RELEASED};
    osg::ref_ptr<OctreeInfo> _octree;
    LevelMap _leavesByLevel; ///< every child, once
    unsigned _changes = 0;

    VelThreads::Mutex _viewerMutex;
    std::vector<osg::observer_ptr<osgViewer::ViewerBase>>
        _viewers VEL_GUARDED_BY(_viewerMutex); ///< noted since the last redraw

    VelThreads::Mutex _orphanMutex;
    std::vector<osg::ref_ptr<osg::Node>> _orphans VEL_GUARDED_BY(_orphanMutex);

    VelThreads::Mutex _managerMutex;
    osg::observer_ptr<VelOsgDBBrx::IPointLoadManager> _loadManager VEL_GUARDED_BY(_managerMutex);
    osg::observer_ptr<VelOsgDBBrx::IPointCategoryManager> _categoryManager VEL_GUARDED_BY(_managerMutex);
};
