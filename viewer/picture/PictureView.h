#pragma once

#include "headless/EglGraphicsWindow.h"
#include "headless/PictureReader.h"
#include "viewer/camera/SectionFrame.h"
#include "viewer/gui/Gui.h"
#include "viewer/scene/CameraView.h"
#include "viewer/scene/Options.h"
#include "viewer/scene/Scene.h"
#include "viewer/window/Overlay.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/ContextServices.h>
#include <osg/ref_ptr>
#include <osgViewer/Viewer>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

/// Tells whether a picture can be written to `path`, before any work is done for it. A file that exists is
/// only replaced with `force`.
VelBrx::Status checkPicturePath(const std::string& path, bool force);

/// What stands in the scene.
struct DrawnCounts
{
    uint64_t points = 0;
    uint64_t cells = 0;
};

/// A scene in a window without a display, for edits and pictures. Viewer and scene outlive it.
///
/// Belongs to the viewer's thread.
class PictureView
{
public:
    PictureView(osgViewer::Viewer& viewer, const Scene& scene) : _viewer(viewer), _scene(scene) {}

    /// Stops the viewer's threads.
    ~PictureView();
    PictureView(const PictureView&) = delete;
    PictureView& operator=(const PictureView&) = delete;

    /// Opens the window. To be called once, before everything else.
    VelBrx::Status open(const PictureSize& size);

    void look(const Look& look, const Lens& lens);

    /// Shows a section in the picture's place; without one, what `look` said last.
    void show(const std::optional<SectionFrame>& section);
    void setLegend(const Legend& legend);

    /// What the picture shows.
    ViewVolume volume() const;

    /// Width divided by height.
    double aspect() const;

    /// Draws frames until all points that the camera wants are there; gives up when `*cancel` becomes true. A
    /// failure tells what to do.
    VelBrx::Status settle(double timeoutSeconds, const std::atomic<bool>* cancel = nullptr);

    /// Writes the next frame to a file, in the format of its extension. Call `settle` before. A failure names
    /// the file.
    VelBrx::Status write(const std::string& path);

    DrawnCounts countDrawn() const;

private:
    osgViewer::Viewer& _viewer;
    const Scene& _scene;
    osg::ref_ptr<EglGraphicsWindow> _window;
    const osg::ref_ptr<Overlay> _overlay = new Overlay;
    osg::ref_ptr<Gui> _gui;
    osg::ref_ptr<PictureReader> _reader;
    Look _look;
    Lens _lens;
    std::optional<SectionFrame> _section;
    std::optional<VelOsgDBBrx::ContextServices> _services;
};
