#pragma once

#include "tests/support/HeadlessViewer.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "viewer/scene/Scene.h"
#include "viewer/window/Overlay.h"

#include <VelOsgDBBrx/ContextServices.h>

#include <optional>

/// A small survey seen from above on the screen of a headless viewer, with an overlay that the viewer does
/// not draw. Add event handlers, then `show` it.
struct ShownSurvey
{
    static constexpr int kSize = 200;

    explicit ShownSurvey(
        osgViewer::ViewerBase::ThreadingModel threading = osgViewer::ViewerBase::SingleThreaded,
        int classes = 1);

    /// Draws until all points are there.
    void show();

    /// Presses a key and draws until all is there again.
    void pressKey(int key);

    /// The pixel of a world position from the window's top left.
    osg::Vec2d onScreen(const osg::Vec3d& world);

    /// Path of the store on show.
    std::string store() const { return folder.file("grid.las.brx"); }

    const TempFolder folder;
    TestSurvey survey;
    HeadlessViewer host;
    Scene scene;
    const osg::ref_ptr<Overlay> overlay = new Overlay;
    std::optional<VelOsgDBBrx::ContextServices> services; ///< ends before the viewer
};
