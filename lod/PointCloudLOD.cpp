#include "lod/PointCloudLOD.h"

#include "loading/CellData.h"
#include "lod/CullOperator.h"
#include "lod/PointCloudLodHandler.h"

#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/ValueObject>
#include <osgUtil/CullVisitor>
#include <osgViewer/View>
#include <osgViewer/ViewerBase>

using VelOsgDBBrx::VelIncrementalCompileOperation;

namespace {

void attachCells(CellData& cell, PointCloudLOD* node)
{
    cell.group = node;
    for (const osg::ref_ptr<CellData>& child : cell.children)
        if (child) attachCells(*child, node);
}

/// The viewer that a cull visitor works for. Inside a nested camera only the render info knows it.
osgViewer::ViewerBase* findViewer(osgUtil::CullVisitor& visitor)
{
    osg::View* view = visitor.getCurrentCamera() ? visitor.getCurrentCamera()->getView() : nullptr;
    if (!view) view = visitor.getRenderInfo().getView();
    auto* viewerView = dynamic_cast<osgViewer::View*>(view);
    return viewerView ? viewerView->getViewerBase() : nullptr;
}

bool isDiluted(const osgViewer::ViewerBase* viewer)
{
    bool dilute = false;
    return viewer && viewer->getUserValue("dilute", dilute) && dilute;
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
    std::lock_guard<std::mutex> lock(_managerMutex);
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
    return true;
}

bool PointCloudLOD::removeChild(osg::Node* child)
{
    const osg::ref_ptr<CellLeaf> leaf = dynamic_cast<CellLeaf*>(child);
    if (!leaf || !osg::Group::removeChild(child)) return false;
    _leavesByLevel[leaf->getLevel()].erase(leaf);
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
    osgViewer::ViewerBase* viewer = findViewer(*cull);
    const int mode = _mode;
    if ((mode == RELEASED || mode == SCROLLED) && !isDiluted(viewer))
        osg::Group::traverse(visitor);
    else
        traverseThinned(visitor, moveLevel(viewer));
}

void PointCloudLOD::traverseThinned(osg::NodeVisitor& visitor, int moveLevel)
{
    for (const auto& [level, leaves] : _leavesByLevel) {
        if (level > moveLevel) return;
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
    std::lock_guard<std::mutex> lock(_managerMutex);
    if (_octree->registered.exchange(true)) return;
    _loadManager = loadManager;
    _categoryManager = categoryManager;
    loadManager->registerOctree(_octree);
    categoryManager->addMember(_octree);
}

void PointCloudLOD::flush()
{
    osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> loadManager;
    {
        std::lock_guard<std::mutex> lock(_managerMutex);
        _loadManager.lock(loadManager);
    }
    if (loadManager) loadManager->flush();
}
