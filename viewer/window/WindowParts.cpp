#include "viewer/window/WindowParts.h"

#include "terminal/Text.h"
#include "viewer/gui/Density.h"
#include "viewer/measure/MeasureMarks.h"
#include "viewer/window/SectionMarks.h"
#include "viewer/window/ToolMemory.h"
#include "viewer/window/WaitingBoxes.h"
#include "viewer/window/Window.h"

#include <VelOsgDBBrx/GlobalObject.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace {

constexpr const char* kHint = "h: help   drag: turn   wheel: zoom";
const std::string kUiScale = "window.uiScale";
const std::string kFolded = "legend.folded";

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

/// Of a window that shows nothing yet: anywhere.
Look firstLook(const Scene& scene, const CameraView& view, double aspect)
{
    if (scene.isEmpty()) return {osg::Vec3d(0, 0, 1), osg::Vec3d(), osg::Vec3d(0, 1, 0)};
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

} // namespace

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

WindowParts::WindowParts(osgViewer::Viewer& shown, Scene& shownScene, osg::GraphicsContext& context,
                         const Options& options, Settings& settings)
    : viewer(shown), scene(shownScene), _options(options), _settings(settings), _context(&context)
{
    makePictures();
    makeEditing();
    makeFiles();
    fillPanel();
    services.emplace(_context, scene.largestPoints());
    moveLevel.emplace(scene.root(), VelOsgDBBrx::GlobalObject::getIncrementalCompileOperation(_context));
    tellOfTheStart();
}

float WindowParts::scale()
{
    if (_options.uiScale) _settings.set(kUiScale, *_options.uiScale);
    const double chosen = keptScale(_settings);
    return chosen > 0 ? static_cast<float>(chosen) : unitFor(*_context);
}

void WindowParts::makePictures()
{
    gui = new Gui(*viewer.getCamera(), scale());
    viewer.addEventHandler(gui);
    views.emplace(viewer, scene, firstLook(scene, _options.view, 1));
    _savedViews.emplace(_settings, [this] { return scene.firstStore(); });
    views->setSavedViews(*_savedViews);
    _sectionTool = new SectionTool(scene, *views);
    viewer.addEventHandler(_sectionTool);
    status = new StatusLine(
        *gui, scene, [this](double x, double y) { return views->under(x, y); },
        _settings.get<bool>("hint.shown") ? "" : kHint);
    gui->add([this] {
        if (_panel->isShown()) status->draw();
    });
    _panel = new Panel(*gui, _options.panel);
    _panel->recall(_settings);
    gui->add([this] { drawWaitingBoxes(scene, views->all(), gui->unit()); });
    gui->add([this] {
        drawSection(*views, scene.units(), gui->unit());
        _sectionTool->draw(gui->unit());
    });
    _overlay->setFoldable(_settings.get<bool>(kFolded).value_or(false));
    gui->add([this] { _overlay->draw(*gui); });
    gui->update();
    placeViews(*gui, *views);
    const double aspect = aspectOf(*viewer.getCamera());
    setUpCamera(*viewer.getCamera(), aspect);
    views->manipulator().start(Pose(firstLook(scene, _options.view, aspect), Lens()));
}

void WindowParts::makeEditing()
{
    editing.emplace(scene, viewer, _options.author);
    _measuring.emplace(scene);
    measureKeys = new MeasureKeys(*_measuring);
    viewer.addEventHandler(measureKeys);
    gui->add([this] { drawMeasureMarks(*_measuring, views->all(), gui->unit()); });
    editKeys = new EditKeys(*editing, scene, viewer, *views, *_overlay, _classes, *_measuring);
    _help = addHandlers(viewer, *editKeys, scene, *views, *_overlay, _options.legend);
    _clipBox = new ClipBoxHandles(editKeys->stage(), *views);
    addBehind(viewer, *editKeys, *_clipBox);
    gui->add([this] { _clipBox->draw(gui->unit()); });
    viewer.addEventHandler(_panel);
    viewer.addEventHandler(status);
    _stage.emplace(editKeys->stage());
    _stage->act = [this](const Request& request) { gui->later([=] { editKeys->act(request); }); };
    recallTools(_settings, editKeys->tools(), *_stage);
    viewer.setKeyEventSetsDone(0); // EditKeys asks first
}

void WindowParts::makeFiles()
{
    _counts.emplace(scene, *editing);
    files = new WindowFiles(viewer, *gui, *editKeys, *_stage, *views, *_counts, _settings, _options);
    viewer.addEventHandler(files);
    _help->add("Files", *files);
}

void WindowParts::fillPanel()
{
    const auto add = [this](const char* title, auto& section, bool isOpen, int key = 0) {
        _panel->add(
            title, [&section] { section->draw(); }, isOpen, key);
    };
    _panel->add(
        "Clouds", [this] { files->drawSection(); }, true);
    _classesSection.emplace(*_stage, _classes, *_counts, *gui, [this] { return files->classesFile(); });
    add("Classes", _classesSection, true);
    _historySection.emplace(*_stage);
    add("History", _historySection, false, 'U');
    ToolUse& tools = editKeys->tools();
    const auto take = [this](const ToolKind& kind) {
        gui->later([this, &kind] { editKeys->takeTool(kind); });
    };
    _toolsSection.emplace(
        *_stage, _classes,
        ToolDesk{tools.settings(), take, [&tools] { return tools.kind(); }}, [this]() -> const auto& {
            return editKeys->counts();
        });
    add("Tools", _toolsSection, true);
    _viewSection.emplace(*_stage);
    add("View", _viewSection, false);
    _sectionSection.emplace(*_stage);
    add("Section", _sectionSection, false);
    _lookSection.emplace(*_stage, *gui);
    add("Look", _lookSection, true);
    _surfaceSection.emplace(*_stage);
    add("Surface", _surfaceSection, false);
    _measureSection.emplace(*_stage);
    add("Measure", _measureSection, false);
}

void WindowParts::tellOfTheStart()
{
    if (!_settings.problem().empty()) {
        std::fprintf(stderr, "brxview: %s\n", printable(_settings.problem()).c_str());
        editKeys->say({_settings.problem()});
    }
    for (const std::string& warning : _options.warnings)
        editKeys->warn(warning);
}

void WindowParts::announceSurface()
{
    const SurfaceLook wanted = scene.surface();
    SurfaceLook none = wanted;
    none.on = false;
    scene.setSurface(none);
    _overlay->setNotice("preparing the surface ...");
    gui->update();
    viewer.renderingTraversals();
    _overlay->setNotice("");
    scene.setSurface(wanted);
    viewer.requestRedraw();
}

void WindowParts::keep()
{
    if (_options.panel) _panel->keep(_settings);
    keepTools(editKeys->tools(), scene, _settings);
    _settings.set(kFolded, _overlay->isFolded());
    if (!status->isHinting()) _settings.set("hint.shown", true);
}
