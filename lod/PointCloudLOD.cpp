#include "lod/PointCloudLOD.h"

#include "lod/CullOperator.h"
#include "lod/PointCloudLodHandler.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <osg/ValueObject>
#include <osgUtil/CullVisitor>
#include <osgViewer/View>
#include <osgViewer/ViewerBase>

#include <algorithm>

using VelOsgDBBrx::VelIncrementalCompileOperation;
using VelOsgUtils::DecrementalCompileOperation;

namespace {

void attachCells(CellData& cell, PointCloudLOD* node)
{
    cell.group = node;
    for (const osg::ref_ptr<CellData>& child : cell.children)
        if (child) attachCells(*child, node);
}

/// The view that a cull visitor works for. Inside a nested camera only the render info knows it.
osgViewer::View* findView(osgUtil::CullVisitor& visitor)
{
    osg::View* view = visitor.getCurrentCamera() ? visitor.getCurrentCamera()->getView() : nullptr;
    if (!view) view = visitor.getRenderInfo().getView();
    return dynamic_cast<osgViewer::View*>(view);
}

bool isDiluted(const osg::Object* object)
{
    bool dilute = false;
    return object && object->getUserValue("dilute", dilute) && dilute;
}

/// Deepest level to draw; negative for none.
int moveLevel(osgViewer::ViewerBase* viewer)
{
    auto* operation = viewer ? viewer->getIncrementalCompileOperation() : nullptr;
    auto* compileOperation = dynamic_cast<VelIncrementalCompileOperation*>(operation);
    return compileOperation ? compileOperation->getMoveLevel() : -1;
}

} // namespace

PointCloudLOD::PointCloudLOD(OctreeInfo* octree) : _octree(octree)
{
    if (_octree && _octree->root) attachCells(*_octree->root, this);
    setCullingActive(false);
    setEventCallback(new PointCloudLodHandler);
    setCullCallback(new CullOperator);
}

PointCloudLOD::~PointCloudLOD()
{
    const VelThreads::Lock lock(_managerMutex);
    osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> loadManager;
    if (_loadManager.lock(loadManager)) loadManager->unRegisterOctree(_octree);
    osg::ref_ptr<VelOsgDBBrx::IPointCategoryManager> categoryManager;
    if (_categoryManager.lock(categoryManager)) categoryManager->removeMember(_octree);
}

bool PointCloudLOD::addChild(osg::Node* child)
{
    auto* leaf = dynamic_cast<CellLeaf*>(child);
    if (!leaf) return false;
    LeafMap& leaves = _leavesByLevel[leaf->getLevel()];
    if (leaves.count(leaf) || !osg::Group::addChild(child)) return false;
    leaves.emplace(leaf, leaf);
    ++_changes;
    requestRedraw();
    return true;
}

bool PointCloudLOD::removeChild(osg::Node* child)
{
    const osg::ref_ptr<CellLeaf> leaf = dynamic_cast<CellLeaf*>(child);
    if (!leaf || !osg::Group::removeChild(child)) return false;
    _leavesByLevel[leaf->getLevel()].erase(leaf);
    ++_changes;
    requestRedraw();
    return true;
}

void PointCloudLOD::traverse(osg::NodeVisitor& visitor)
{
    osgUtil::CullVisitor* cull =
        visitor.getVisitorType() == osg::NodeVisitor::CULL_VISITOR ? visitor.asCullVisitor() : nullptr;
    if (!cull) {
        osg::Group::traverse(visitor);
        return;
    }
    if (const std::optional<int> deepest = deepestDrawn(*cull))
        traverseThinned(visitor, *deepest);
    else
        osg::Group::traverse(visitor);
}

std::optional<int> PointCloudLOD::deepestDrawn(osgUtil::CullVisitor& cull) const
{
    osgViewer::View* view = findView(cull);
    osgViewer::ViewerBase* viewer = view ? view->getViewerBase() : nullptr;
    const int mode = _mode;
    // The view and the viewer are one object, except in a composite viewer.
    if ((mode == RELEASED || mode == SCROLLED) && !isDiluted(view) && !isDiluted(viewer)) return std::nullopt;
    return moveLevel(viewer);
}

void PointCloudLOD::traverseThinned(osg::NodeVisitor& visitor, int deepest)
{
    for (const auto& [level, leaves] : _leavesByLevel) {
        if (level > deepest) return;
        for (const auto& leaf : leaves)
            leaf.second->accept(visitor);
    }
}

osg::BoundingSphere PointCloudLOD::computeBound() const
{
    osg::BoundingSphere bound;
    if (_octree) bound.expandBy(osg::BoundingBox(osg::Vec3f(_octree->min), osg::Vec3f(_octree->max)));
    return bound;
}

void PointCloudLOD::registerOctree(VelOsgDBBrx::IPointLoadManager* loadManager,
                                   VelOsgDBBrx::IPointCategoryManager* categoryManager)
{
    if (!loadManager || !categoryManager) return;
    const VelThreads::Lock lock(_managerMutex);
    if (_octree->registered.exchange(true)) return;
    loadManager->registerOctree(_octree);
    if (!_octree->registered) return; // refused: the context was unregistered meanwhile
    _loadManager = loadManager;
    _categoryManager = categoryManager;
    categoryManager->addMember(_octree);
}

osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> PointCloudLOD::loadManager()
{
    osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> manager;
    const VelThreads::Lock lock(_managerMutex);
    _loadManager.lock(manager);
    return manager;
}

void PointCloudLOD::flush()
{
    if (const auto manager = loadManager()) manager->flush();
}

void PointCloudLOD::addOrphan(osg::Node* leaf)
{
    const VelThreads::Lock lock(_orphanMutex);
    _orphans.push_back(leaf);
}

void PointCloudLOD::leaveRemovals(DecrementalCompileOperation& removals)
{
    for (const DecrementalCompileOperation::Removal& removal : removals.take()) {
        osg::ref_ptr<osg::Group> group;
        removal.group.lock(group);
        if (auto* cloud = dynamic_cast<PointCloudLOD*>(group.get()))
            cloud->addOrphan(removal.node);
        else
            removals.add(group, removal.node);
    }
}

std::vector<osg::ref_ptr<osg::Node>> PointCloudLOD::takeOrphans()
{
    std::vector<osg::ref_ptr<osg::Node>> orphans;
    const VelThreads::Lock lock(_orphanMutex);
    orphans.swap(_orphans);
    return orphans;
}

/// They are freed here and not by the node cache's thread: a context that was given up may be closed next on
/// this thread, and takes the graphics objects from nodes that must not die meanwhile.
void PointCloudLOD::removeOrphans()
{
    if (!_octree || _octree->registered) return;
    std::vector<osg::ref_ptr<osg::Node>> orphans = takeOrphans();
    if (orphans.empty()) return;
    for (const osg::ref_ptr<osg::Node>& orphan : orphans)
        removeChild(orphan.get());
    orphans.clear();
    VelOsgDBBrx::PCDataManager::getInstance()->evict();
}

void PointCloudLOD::noteViewer(osgViewer::ViewerBase* viewer)
{
    const VelThreads::Lock lock(_viewerMutex);
    if (viewer && std::find(_viewers.begin(), _viewers.end(), viewer) == _viewers.end())
        _viewers.emplace_back(viewer);
}

/// A viewer that draws on demand must see what another one's frames change in a cloud that both show.
void PointCloudLOD::requestRedraw()
{
    std::vector<osg::observer_ptr<osgViewer::ViewerBase>> viewers;
    {
        const VelThreads::Lock lock(_viewerMutex);
        viewers.swap(_viewers);
    }
    for (const osg::observer_ptr<osgViewer::ViewerBase>& viewer : viewers)
        VelOsgDBBrx::PCViewerManager::getInstance()->requestRedraw(viewer.get());
}
