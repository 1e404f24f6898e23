#include "viewer/window/WindowStage.h"

namespace {

/// Without a lens the projection stays.
void lookFrom(const CameraView& wanted, const std::optional<Lens>& given, const Scene& scene,
              const Views& views)
{
    SurveyManipulator& manipulator = views.manipulator();
    const osg::Viewport* const viewport = views.main().camera->getViewport();
    if (scene.isEmpty() && wanted.kind != CameraView::LOOK) return;
    const double aspect = viewport ? viewport->aspectRatio() : 1.0;
    const osg::BoundingBoxd& bounds = scene.boundsFor(wanted);
    const Look look = lookAt(wanted, bounds, aspect);
    Lens lens = given.value_or(Lens{manipulator.pose().orthographic()});
    if (lens.orthographic && lens.height == 0) lens = orthographicLens(look, bounds, aspect);
    manipulator.goHome(Pose(look, lens));
}

} // namespace

Stage windowStage(Scene& scene, SceneEditing& editing, Views& views, Measuring& measuring)
{
    return {scene,
            editing,
            [&scene, &views](const CameraView& wanted, const std::optional<Lens>& lens) {
                lookFrom(wanted, lens, scene, views);
            },
            &views.manipulator(),
            &views,
            views.savedViews(),
            nullptr,
            nullptr,
            &measuring};
}
