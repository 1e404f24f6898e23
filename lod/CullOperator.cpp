#include "lod/CullOperator.h"

#include "loading/OctreeViews.h"
#include "lod/PointCloudLOD.h"
#include "lod/PointLoadManager.h"
#include "lod/ServicesLookup.h"

#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgUtils/ScreenCaptureTool.h>

#include <osgUtil/CullVisitor>
#include <osgViewer/View>

using VelOsgDBBrx::IPointLoadManager;
using VelOsgUtils::CameraState;
using VelOsgUtils::FrameClock;

namespace {

void storeTransform(OctreeInfo& octree, const osg::Matrixd& model)
{
    const VelThreads::Lock lock(octree.mutex);
    if (octree.transform != model) octree.transform = model;
}

/// The camera that the whole traversal is for; a nested one draws on its behalf.
osg::Camera& topCamera(osgUtil::CullVisitor& visitor)
{
    osg::Camera* camera = visitor.getRenderStage() ? visitor.getRenderStage()->getCamera() : nullptr;
    return camera ? *camera : *visitor.getCurrentCamera();
}

osg::GraphicsContext* findContext(osgUtil::CullVisitor& visitor, osg::Camera& camera)
{
    osg::GraphicsContext* context = camera.getGraphicsContext();
    if (!context && visitor.getState()) context = visitor.getState()->getGraphicsContext();
    return context;
}

CameraState stateOf(const osg::Camera& camera, osgUtil::CullVisitor& visitor)
{
    CameraState state{camera.getProjectionMatrix(), camera.getViewMatrix(), 0, 0};
    const osg::Viewport* viewport = camera.getViewport() ? camera.getViewport() : visitor.getViewport();
    if (viewport) {
        state.width = static_cast<int>(viewport->width());
        state.height = static_cast<int>(viewport->height());
    }
    state.hasDepths = camera.getComputeNearFarMode() == osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR;
    return state;
}

FrameClock* clockOf(IPointLoadManager* manager)
{
    VelOsgUtils::ScreenCaptureTool* capture = manager ? manager->getScreenCaptureTool() : nullptr;
    return capture ? capture->getFrameClock() : nullptr;
}

/// The clock of the frames that the camera is drawn in; null where its views do not count. Another window of
/// the viewer that the octree is paged for counts though its context has no services.
osg::ref_ptr<FrameClock> findClock(osg::Camera& camera, IPointLoadManager* manager, IPointLoadManager* owner)
{
    auto* view = dynamic_cast<osgViewer::View*>(camera.getView());
    if (!view) return nullptr; // a head-up display, or a slave that was removed
    if (FrameClock* clock = clockOf(manager)) return clock;
    FrameClock* clock = clockOf(owner);
    return clock && clock->isOf(view->getViewerBase()) ? clock : nullptr;
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

    osg::Camera& camera = topCamera(visitor);
    osg::GraphicsContext* context = findContext(visitor, camera);
    const osg::ref_ptr<IPointLoadManager> manager = ServicesLookup::get().loads(context);
    const osg::ref_ptr<IPointLoadManager> owner = node.loadManager();
    const osg::ref_ptr<FrameClock> clock = findClock(camera, manager, owner);
    const bool moved = clock && node.getOctree()->views->note(camera, visitor.getNodePath(),
                                                              stateOf(camera, visitor), model, *clock);

    if (!node.getOctree()->registered) {
        if (manager) node.registerOctree(manager, ServicesLookup::get().categories(context));
        return;
    }
    if (moved) node.flush(); // a moved camera causes a pass by itself
    auto* const onlooker = dynamic_cast<PointLoadManager*>(manager.get());
    if (onlooker && onlooker != owner) onlooker->watch(node);
}
