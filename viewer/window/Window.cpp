#include "viewer/window/Window.h"

#include "terminal/EndSignals.h"
#include "terminal/Text.h"
#include "viewer/edit/ClassCounts.h"
#include "viewer/edit/EditText.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/gui/Density.h"
#include "viewer/gui/Gui.h"
#include "viewer/measure/MeasureMarks.h"
#include "viewer/panel/ClassesSection.h"
#include "viewer/panel/HistorySection.h"
#include "viewer/panel/LookSection.h"
#include "viewer/panel/MeasureSection.h"
#include "viewer/panel/Panel.h"
#include "viewer/panel/SectionSection.h"
#include "viewer/panel/StatusLine.h"
#include "viewer/panel/SurfaceSection.h"
#include "viewer/panel/ToolsSection.h"
#include "viewer/panel/ViewSection.h"
#include "viewer/window/ClipBoxHandles.h"
#include "viewer/window/CloseRequests.h"
#include "viewer/window/DisplayKeys.h"
#include "viewer/window/EditKeys.h"
#include "viewer/window/FullScreenKey.h"
#include "viewer/window/HelpKey.h"
#include "viewer/window/KeptLook.h"
#include "viewer/window/MeasureKeys.h"
#include "viewer/window/Notices.h"
#include "viewer/window/Overlay.h"
#include "viewer/window/PickHandler.h"
#include "viewer/window/ScreenshotKey.h"
#include "viewer/window/SectionMarks.h"
#include "viewer/window/SectionMouse.h"
#include "viewer/window/SectionTool.h"
#include "viewer/window/ToolMemory.h"
#include "viewer/window/WindowClear.h"
#include "viewer/window/WindowFiles.h"
#include "viewer/window/WindowRest.h"

#include <VelOsgDBBrx/ContextServices.h>
#include <VelOsgDBBrx/MoveLevel.h>
#include <VelOsgDBBrx/OpenGLCheck.h>
#include <osgViewer/ViewerEventHandlers>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>

using VelBrx::Status;
using VelOsgDBBrx::ContextServices;
using VelOsgDBBrx::MoveLevel;

namespace {

constexpr int kWindowWidth = 1280; ///< of the first one; larger on large screens
constexpr int kWindowHeight = 800;
constexpr const char* kHint = "h: help   drag: turn   wheel: zoom";
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

const std::string kUiScale = "window.uiScale";

/// As --ui-scale chose it last; 0 where the screen decides.
double keptScale(const Settings& settings)
{
    const double scale = settings.get<double>(kUiScale).value_or(0);
    return scale > 0 && scale <= kLargestUiScale ? scale : 0;
}

double aspectOf(const osg::Camera& camera)
{
    const osg::Viewport* viewport = camera.getViewport();
    return viewport && viewport->height() > 0 ? viewport->width() / viewport->height() : 1.0;
}

bool isDragging(osgViewer::Viewer& viewer)
{
    return viewer.getEventQueue()->getCurrentEventState()->getButtonMask() != 0;
}

/// Frames to draw without a pause before the end, as OSG_RUN_FRAME_COUNT tells every viewer; negative: no
/// end.
long frameLimit()
{
    const char* count = std::getenv("OSG_RUN_FRAME_COUNT");
    return count && *count ? std::atol(count) : -1;
}

/// Tells what is not saved; a failure where it is lost.
Status tellUnsaved(const SceneEditing& editing)
{
    for (const std::string& line : describeUnsaved(editing.unsavedPoints()))
        std::fprintf(stderr, "brxview: %s\n", printable(line).c_str());
    const uint64_t lost = totalOf(editing.unkeptPoints());
    return lost == 0 ? Status() : Status::failure(describeLost(lost));
}

/// Of a window that shows nothing yet: anywhere.
Look firstLook(const Scene& scene, const CameraView& view, double aspect)
{
    if (scene.clouds().empty()) return {osg::Vec3d(0, 0, 1), osg::Vec3d(), osg::Vec3d(0, 1, 0)};
    return lookAt(view, scene.boundsFor(view), aspect);
}

/// The handler sees events right after another one.
void addBehind(osgViewer::Viewer& viewer, osgGA::GUIEventHandler& other, osgGA::GUIEventHandler& handler)
{
    osgViewer::View::EventHandlers& all = viewer.getEventHandlers();
    all.insert(std::next(std::find(all.begin(), all.end(), &other)), &handler);
}

void drawSection(const Views& views, const Units& units, float unit)
{
    if (!views.frame()) return;
    drawDivider(views.sectionCamera(), Views::kDivider);
    drawSectionScale(*views.frame(), views.sectionCamera(), units.level, unit);
    drawStrip(*views.frame(), *views.main().camera, unit);
}

/// The pictures have the area that is left beside the panels. True when they had another one.
bool placeViews(const Gui& gui, Views& views)
{
    const Gui::Area& area = gui.area();
    const osg::GraphicsContext::Traits& window = *views.main().camera->getGraphicsContext()->getTraits();
    const auto pixels = [](float length) { return static_cast<int>(std::lround(length)); };
    const auto before = views.main().camera->getViewport();
    views.setArea(pixels(area.x), window.height - pixels(area.y + area.height), pixels(area.width),
                  pixels(area.height));
    return views.main().camera->getViewport() != before;
}

/// What is drawn over the scene is made when the cameras stand as they are drawn.
void drawFrame(osgViewer::Viewer& viewer, Gui& gui, Views& views, WindowClear& clear, const Scene& scene,
               bool isFirst)
{
    clear.setColor(scene.drawing().background);
    for (const Sight& sight : views.all())
        if (sight.camera->getClearColor() != scene.drawing().background)
            sight.camera->setClearColor(scene.drawing().background);
    if (isFirst) {
        viewer.frame();
        return;
    }
    viewer.advance();
    viewer.eventTraversal();
    viewer.updateTraversal();
    gui.update();
    if (placeViews(gui, views)) viewer.requestRedraw();
    viewer.renderingTraversals();
}

/// Draws while something changes; a still picture costs next to nothing.
void drawUntilDone(osgViewer::Viewer& viewer, const ContextServices& services, MoveLevel& moveLevel, Gui& gui,
                   StatusLine& status, Views& views, const Scene& scene, const SceneEditing& editing,
                   EditKeys& editKeys, MeasureKeys& measureKeys, WindowFiles& files)
{
    // A camera is known to paging one frame after it was drawn.
    constexpr int kFramesAfterAChange = 3;
    // Seconds. Other threads that have news for the window do not wake it.
    constexpr double kRestWhileBusy = 0.01;
    constexpr double kLongestRest = 0.1;
    const long limit = frameLimit();
    long frames = 0;
    const EndSignals signals;
    const osg::ref_ptr<WindowClear> clear = new WindowClear;
    osgViewer::Viewer::Contexts windows;
    viewer.getContexts(windows);
    if (windows.size() == 1) clear->clearFor(*windows.front());
    WindowRest rest(viewer, {gui.clipboardConnection(), files.connection()});
    for (int quietFrames = 0; !viewer.done() && frames != limit && !signals.received();) {
        gui.serveClipboard();
        if (takeCloseRequests(viewer)) editKeys.askToClose();
        if (editKeys.hasNews() || measureKeys.hasNews() || gui.wantsFrame()) viewer.requestRedraw();
        files.update(quietFrames == kFramesAfterAChange && services.isSettled());
        if (viewer.checkNeedToDoFrame() || !services.isSettled() || limit >= 0) quietFrames = 0;
        if (quietFrames == kFramesAfterAChange) {
            const bool isBusy = editing.isBusy() || measureKeys.isSearching() || files.isBusy();
            rest.rest(std::chrono::duration<double>(gui.untilWanted(isBusy ? kRestWhileBusy : kLongestRest)));
            continue;
        }
        services.setBudget(scene.largestPoints());
        const auto start = std::chrono::steady_clock::now();
        drawFrame(viewer, gui, views, *clear, scene, frames == 0);
        ++frames;
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        // With draw threads a frame waits for the one before: from the second on, its time is that of
        // drawing.
        if (++quietFrames > 1 && !isDragging(viewer)) {
            moveLevel.wholeFrameTook(seconds, scene.drawing().framesPerSecond);
        }
        status.tell({moveLevel.points(), services.wantedPoints(), services.isSettled(), seconds,
                     totalOf(editing.unsavedPoints())});
    }
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
    const osg::ref_ptr<Overlay> overlay = new Overlay;
    if (options.uiScale) settings.set(kUiScale, *options.uiScale);
    const double chosen = keptScale(settings);
    const float scale = chosen > 0 ? static_cast<float>(chosen) : unitFor(*contexts.front());
    const osg::ref_ptr<Gui> gui = new Gui(*viewer.getCamera(), scale);
    viewer.addEventHandler(gui);
    Views views(viewer, scene, firstLook(scene, options.view, 1));
    SavedViews savedViews(
        settings, [&scene] { return scene.clouds().empty() ? std::string() : scene.clouds().front().store; });
    views.setSavedViews(savedViews);
    const osg::ref_ptr<SectionTool> sectionTool = new SectionTool(scene, views);
    viewer.addEventHandler(sectionTool);
    const osg::ref_ptr<StatusLine> status = new StatusLine(
        *gui, scene, [&views](double x, double y) { return views.under(x, y); },
        settings.get<bool>("hint.shown") ? "" : kHint);
    osg::ref_ptr<Panel> panel;
    gui->add([&] {
        if (panel->isShown()) status->draw();
    });
    panel = new Panel(*gui, options.panel);
    panel->recall(settings);
    gui->add([&views, &scene, sectionTool, unit = gui->unit()] {
        drawSection(views, scene.units(), unit);
        sectionTool->draw(unit);
    });
    gui->add([overlay, gui = gui.get()] { overlay->draw(*gui); });
    gui->update();
    placeViews(*gui, views);
    const double aspect = aspectOf(*viewer.getCamera());
    setUpCamera(*viewer.getCamera(), aspect);
    views.manipulator().start(Pose(firstLook(scene, options.view, aspect), Lens()));
    SceneEditing editing(scene, viewer, options.author);
    ClassChoice classes;
    Measuring measuring(scene);
    const osg::ref_ptr<MeasureKeys> measureKeys = new MeasureKeys(measuring);
    viewer.addEventHandler(measureKeys);
    gui->add([&, gui = gui.get()] { drawMeasureMarks(measuring, views.all(), gui->unit()); });
    const osg::ref_ptr<EditKeys> editKeys =
        new EditKeys(editing, scene, viewer, views, *overlay, classes, measuring);
    const osg::ref_ptr<HelpKey> help = addHandlers(viewer, *editKeys, scene, views, *overlay, options.legend);
    const osg::ref_ptr<ClipBoxHandles> clipBox = new ClipBoxHandles(editKeys->stage(), views);
    addBehind(viewer, *editKeys, *clipBox);
    gui->add([clipBox, unit = gui->unit()] { clipBox->draw(unit); });
    viewer.addEventHandler(panel);
    viewer.addEventHandler(status);
    Stage stage = editKeys->stage();
    stage.act = [gui, editKeys](const Request& request) { gui->later([=] { editKeys->act(request); }); };
    ClassCounts counts(scene, editing);
    const osg::ref_ptr<WindowFiles> files =
        new WindowFiles(viewer, *gui, *editKeys, stage, counts, settings, options);
    viewer.addEventHandler(files);
    help->add("Files", *files);
    panel->add(
        "Clouds", [files] { files->drawSection(); }, true);
    ToolUse& tools = editKeys->tools();
    recallTools(settings, tools, stage);
    ToolsSection toolsSection(
        stage, classes,
        {tools.settings(),
         [gui, editKeys](const ToolKind& kind) {
             gui->later([editKeys, &kind] { editKeys->takeTool(kind); });
         },
         [&tools] { return tools.kind(); }},
        [editKeys]() -> const auto& { return editKeys->counts(); });
    ClassesSection classesSection(stage, classes, counts, *gui, [files] { return files->classesFile(); });
    HistorySection historySection(stage);
    panel->add(
        "Classes", [&] { classesSection.draw(); }, true);
    panel->add(
        "History", [&] { historySection.draw(); }, false, 'U');
    panel->add(
        "Tools", [&] { toolsSection.draw(); }, true);
    ViewSection viewSection(stage);
    panel->add("View", [&] { viewSection.draw(); });
    SectionSection sectionSection(stage);
    panel->add("Section", [&] { sectionSection.draw(); });
    LookSection lookSection(stage, *gui);
    panel->add(
        "Look", [&] { lookSection.draw(); }, true);
    SurfaceSection surfaceSection(stage);
    panel->add(
        "Surface", [&] { surfaceSection.draw(); }, false);
    MeasureSection measureSection(stage);
    panel->add("Measure", [&] { measureSection.draw(); });
    viewer.setKeyEventSetsDone(0); // EditKeys asks first
    viewer.setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
    const ContextServices services(contexts.front(), scene.largestPoints());
    MoveLevel moveLevel(scene.root(),
                        VelOsgDBBrx::GlobalObject::getIncrementalCompileOperation(contexts.front()));
    if (!settings.problem().empty()) {
        std::fprintf(stderr, "brxview: %s\n", printable(settings.problem()).c_str());
        editKeys->say({settings.problem()});
    }
    for (const std::string& warning : options.warnings)
        editKeys->warn(warning);
    drawUntilDone(viewer, services, moveLevel, *gui, *status, views, scene, editing, *editKeys, *measureKeys,
                  *files);
    viewer.stopThreading();
    keepSize(viewer, settings);
    if (options.panel) panel->keep(settings);
    keepTools(tools, scene, settings);
    keepLook(scene, settings);
    if (!status->isHinting()) settings.set("hint.shown", true);
    if (const Status kept = settings.save(); !kept)
        std::fprintf(stderr, "brxview: %s\n", printable(kept.message()).c_str());
    if (editing.isBusy()) editing.wait();
    return tellUnsaved(editing);
}
