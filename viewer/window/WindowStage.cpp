#include "viewer/window/WindowStage.h"

namespace {

void lookFrom(const CameraView& wanted, const Scene& scene, osgViewer::View& view)
{
    osgGA::CameraManipulator* const manipulator = view.getCameraManipulator();
    if (!manipulator) return;
    const osg::Viewport* const viewport = view.getCamera()->getViewport();
    const Look look = lookAt(wanted, scene.boundsFor(wanted), viewport ? viewport->aspectRatio() : 1.0);
    manipulator->setHomePosition(look.eye, look.center, look.up, false);
    // home(double) does nothing in a manipulator that chooses among others.
    manipulator->home(*view.getEventQueue()->getCurrentEventState(), view);
}

} // namespace

Stage windowStage(Scene& scene, SceneEditing& editing, osgViewer::View& view)
{
    return {scene, editing,
            [&scene, &view](const CameraView& wanted, const Lens&) { lookFrom(wanted, scene, view); }};
}
