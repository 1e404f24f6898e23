#include "lod/CullOperator.h"

#include "lod/PointCloudLOD.h"

#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <OpenThreads/ScopedLock>
#include <osgUtil/CullVisitor>

using VelOsgDBBrx::GlobalObject;

namespace {

void storeTransform(OctreeInfo& octree, const osg::Matrixd& model)
{
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(octree.mutex);
    if (octree.transform != model) octree.transform = model;
}

/// The context that a cull visitor draws for. A nested camera has none of its own.
osg::GraphicsContext* findContext(osgUtil::CullVisitor& visitor)
{
    osg::GraphicsContext* context = visitor.getCurrentCamera()->getGraphicsContext();
    if (!context && visitor.getState()) context = visitor.getState()->getGraphicsContext();
    return context;
}

} // namespace

void CullOperator::operator()(osg::Node* node, osg::NodeVisitor* visitor)
{
    auto* cloud = dynamic_cast<PointCloudLOD*>(node);
    osgUtil::CullVisitor* cull = visitor->asCullVisitor();
    if (cloud && cloud->getOctree() && cull && cull->getCurrentCamera()) update(*cloud, *cull);
    traverse(node, visitor);
}

void CullOperator::update(PointCloudLOD& node, osgUtil::CullVisitor& visitor)
{
    const osg::Matrixd& view = visitor.getCurrentCamera()->getViewMatrix();
    const osg::Matrixd model = *visitor.getModelViewMatrix() * osg::Matrixd::inverse(view);
    storeTransform(*node.getOctree(), model);

    if (node.getOctree()->registered) {
        followModel(node, model, view);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _lastModel = model;
        _lastView = view;
    }
    osg::GraphicsContext* context = findContext(visitor);
    const osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> loadManager = GlobalObject::acquirePLM(context);
    if (loadManager) node.registerOctree(loadManager, GlobalObject::acquirePCM(context));
}

/// A moved camera causes a pass by itself; only a node moved under a still camera needs one asked for.
void CullOperator::followModel(PointCloudLOD& node, const osg::Matrixd& model, const osg::Matrixd& view)
{
    bool moved = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        moved = model != _lastModel && view == _lastView;
        if (moved) _lastModel = model;
        _lastView = view;
    }
    if (moved) node.flush();
}
