#include "viewer/window/Window.h"

#include "terminal/Text.h"
#include "viewer/edit/EditText.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/window/DisplayKeys.h"
#include "viewer/window/FullScreenKey.h"
#include "viewer/window/KeptLook.h"
#include "viewer/window/Notices.h"
#include "viewer/window/PickHandler.h"
#include "viewer/window/ScreenshotKey.h"
#include "viewer/window/SectionMouse.h"
#include "viewer/window/WindowLoop.h"

#include <VelOsgDBBrx/OpenGLCheck.h>
#include <osgViewer/ViewerEventHandlers>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using VelBrx::Status;

namespace {

constexpr int kWindowWidth = 1280; ///< of the first one; larger on large screens
constexpr int kWindowHeight = 800;
/// Pixels on a side, of a window that is remembered.
constexpr int kSmallestWindow = 200;
constexpr int kLargestWindow = 16384;

bool hasWindow(osgViewer::Viewer& viewer)
{
    return viewer.getCamera()->getGraphicsContext() || viewer.getNumSlaves() > 0;
}

/// Columns and rows of the default screen.
std::pair<int, int> screenSize()
{
    osg::GraphicsContext::ScreenIdentifier screen;
    screen.readDISPLAY();
    screen.setUndefinedScreenDetailsToDefaultScreen();
    unsigned width = 0, height = 0;
    if (osg::GraphicsContext::WindowingSystemInterface* const system =
            osg::GraphicsContext::getWindowingSystemInterface())
        system->getScreenResolution(screen, width, height);
    return {static_cast<int>(width), static_cast<int>(height)};
}

/// Columns or rows of a window.
struct Span
{
    int first;
    int length;
};

/// What of a wanted length fits on a screen, off its edge where there is room; the screen's is 0 where
/// nobody knows it.
Span placed(int wanted, int screen)
{
    constexpr int kOffTheEdge = 60;
    const int largest = screen > 0 ? std::clamp(screen, kSmallestWindow, kLargestWindow) : kLargestWindow;
    const int length = std::clamp(wanted, kSmallestWindow, largest);
    return {screen > 0 ? std::clamp(screen - length, 0, kOffTheEdge) : kOffTheEdge, length};
}

/// The window asked for by options or environment, or one of the size that the last one had. Fails where its
/// OpenGL cannot draw points.
Status openWindow(osgViewer::Viewer& viewer, const Settings& settings)
{
    const bool chosen =
        std::getenv("OSG_WINDOW") || std::getenv("OSG_SCREEN") || std::getenv("OSG_CONFIG_FILE");
    const QuietNotices quiet;
    if (!hasWindow(viewer) && !chosen) {
        const auto [width, height] = screenSize();
        const Span columns =
            placed(settings.get<int>("window.width").value_or(std::max(kWindowWidth, width * 3 / 4)), width);
        const Span rows = placed(
            settings.get<int>("window.height").value_or(std::max(kWindowHeight, height * 3 / 4)), height);
        viewer.setUpViewInWindow(columns.first, rows.first, columns.length, rows.length);
    }
    const osg::ref_ptr<VelOsgDBBrx::OpenGLCheck> check = new VelOsgDBBrx::OpenGLCheck;
    viewer.setRealizeOperation(check);
    viewer.realize();
    return check->status();
}

/// A window that fills its screen has no size of its own.
void keepSize(osgViewer::Viewer& viewer, Settings& settings)
{
    osgViewer::ViewerBase::Windows windows;
    viewer.getWindows(windows);
    if (windows.size() != 1) return;
    int x = 0, y = 0, width = 0, height = 0;
    windows.front()->getWindowRectangle(x, y, width, height);
    osg::GraphicsContext::WindowingSystemInterface* const system =
        osg::GraphicsContext::getWindowingSystemInterface(
            windows.front()->getTraits()->windowingSystemPreference);
    unsigned screenWidth = 0, screenHeight = 0;
    system->getScreenResolution(*windows.front()->getTraits(), screenWidth, screenHeight);
    if (width >= static_cast<int>(screenWidth) && height >= static_cast<int>(screenHeight)) return;
    settings.set("window.width", width);
    settings.set("window.height", height);
}

/// Tells what is not saved; a failure where it is lost.
Status tellUnsaved(const SceneEditing& editing)
{
    for (const std::string& line : describeUnsaved(editing.unsavedPoints()))
        std::fprintf(stderr, "brxview: %s\n", printable(line).c_str());
    const uint64_t lost = totalOf(editing.unkeptPoints());
    return lost == 0 ? Status() : Status::failure(describeLost(lost));
}

} // namespace

osg::ref_ptr<HelpKey> addHandlers(osgViewer::Viewer& viewer, EditKeys& editKeys, Scene& scene, Views& views,
                                  Overlay& overlay, bool showLegend)
{
    const osg::ref_ptr<HelpKey> help = new HelpKey(overlay);
    const auto add = [&](const std::string& title, osgGA::GUIEventHandler* handler) {
        viewer.addEventHandler(handler);
        help->add(title, *handler);
    };
    add("Edit", &editKeys);
    add("Show", new DisplayKeys(editKeys.stage(), overlay, showLegend,
                                [&editKeys](const std::string& line) { editKeys.tell(line); }));
    add("Show", new PickHandler(scene, views, overlay, *editKeys.stage().measuring));
    add("Camera", new SectionMouse(views));
    help->add("Camera", views.manipulator());
    add("Window", help);
    add("Window", new ScreenshotKey(*viewer.getCamera()));
    add("Window", new FullScreenKey);
    help->add({"Window",
               {{"Tab", "Panel on / off"},
                {"U", "The history of edits, in the panel"},
                {"Escape", "Cancel what is drawn, typed or asked"},
                {"Ctrl+Q", "Close the viewer, after asking"}}});
    const osg::ref_ptr<osgViewer::StatsHandler> statistics = new osgViewer::StatsHandler;
    statistics->setKeyEventTogglesOnScreenStats(osgGA::GUIEventAdapter::KEY_F12);
    statistics->setKeyEventPrintsOutStats(-1);
    viewer.addEventHandler(statistics); // of use to developers, so not in the help
    return help;
}

void setUpCamera(osg::Camera& camera, double aspect)
{
    camera.setClearColor(Scene::Drawing().background);
    camera.setProjectionMatrix(projectionOf(Lens(), aspect));
    // A cell that is small on the screen still has its points.
    camera.setCullingMode(camera.getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
    camera.setNearFarRatio(1e-4);
}

Status runInWindow(osgViewer::Viewer& viewer, Scene& scene, const Options& options, Settings& settings)
{
    viewer.setSceneData(scene.root());
    if (Status opened = openWindow(viewer, settings); !opened) return opened;
    osgViewer::Viewer::Contexts contexts;
    viewer.getContexts(contexts);
    if (!viewer.isRealized() || contexts.empty()) {
        return Status::failure("no window can be opened on display " + std::string(std::getenv("DISPLAY")) +
                               "; --render OUT.png draws a picture without one");
    }
    viewer.setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
    WindowParts parts(viewer, scene, *contexts.front(), options, settings);
    drawUntilDone(parts);
    viewer.stopThreading();
    keepSize(viewer, settings);
    parts.keep();
    keepLook(scene, settings);
    if (const Status kept = settings.save(); !kept)
        std::fprintf(stderr, "brxview: %s\n", printable(kept.message()).c_str());
    if (parts.editing->isBusy()) parts.editing->wait();
    return tellUnsaved(*parts.editing);
}
