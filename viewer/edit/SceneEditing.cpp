#include "viewer/edit/SceneEditing.h"

#include "viewer/edit/ScreenLine.h"

#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <thread>
#include <utility>

using namespace VelOsgDBBrx;

namespace {

const std::string kViewerUid = "brxview";
const std::string kNothingSelected = "nothing is selected";
const std::string kSelectedElsewhere =
    "the selection was made in another picture or strip: deselect there, or "
    "undo it";
const std::string kSelectionAnew = "the selection of the other picture has ended; undo brings it back";
constexpr int kNobodyWaits = 1; ///< barrier count
constexpr double kPixel = 1;    ///< around an outline, whose points are as large

void fail(EditOutcome& outcome, const std::string& message)
{
    outcome.ok = false;
    outcome.message = message;
}

bool showsAll(const DrawnPoints& drawn)
{
    return drawn.clipPlanes.empty() && drawn.sectionPlanes.empty() && drawn.segments.empty() &&
           drawn.shownClasses.all();
}

/// Adds what an operation did. Those that walk over several steps tell the sum of what they hid and showed,
/// and one that failed may have been done in part.
void note(const EditOutcome& outcome, SceneEditing::HiddenChanges& changes)
{
    static const std::map<std::string, int> kSigns = {
        {"hide", 1},       {"undo hide", -1}, {"redo hide", 1},  {"show", -1},       {"undo show", 1},
        {"redo show", -1}, {"reset", -1},     {"undo reset", 1}, {"redo reset", -1}, {"undo edit", 0},
        {"redo edit", 0},  {"undo all", 0},   {"step to", 0}};
    const auto known = kSigns.find(outcome.operation);
    if (known == kSigns.end() || outcome.isOwn || outcome.isCancelled) return;
    if (outcome.ok && outcome.points == 0) return;
    ++changes.operations;
    if (outcome.ok && known->second != 0)
        changes.points += known->second * static_cast<int64_t>(outcome.points);
    else
        ++changes.untold;
}

} // namespace

SceneEditing::SceneEditing(Scene& scene, osgViewer::Viewer& viewer, const std::string& author)
    : _scene(scene), _sight{viewer.getCamera()}, _marks(scene), _session(author)
{
    CullCmdManager::getInstance()->setPixelBufferTool(new PolygonMaskTool);
    PCViewerManager::getInstance()->registerViewer(&viewer, kViewerUid);
    for (const Scene::Cloud& cloud : scene.clouds())
        takeIn(cloud);
}

SceneEditing::~SceneEditing()
{
    PCViewerManager::getInstance()->unRegisterViewer(kViewerUid);
}

void SceneEditing::takeIn(const Scene::Cloud& cloud)
{
    std::string note;
    const VelBrx::Status added = _session.addCloud(cloud.octree(), note);
    if (!added) note = added.message();
    if (!note.empty()) _notes.push_back(note);
    _marks.markCloud(cloud);
}

bool SceneEditing::addClouds(std::vector<OpenedStore> stores)
{
    if (isBusy()) return false;
    _notes.clear();
    for (const uint64_t id : _scene.add(std::move(stores), _notes))
        takeIn(*_scene.findCloud(id));
    return true;
}

bool SceneEditing::removeCloud(uint64_t id)
{
    const Scene::Cloud* const cloud = _scene.findCloud(id);
    if (isBusy() || !cloud) return false;
    _session.removeCloud(cloud->octree());
    EditJournalling::switchOff(cloud->octree());
    _scene.remove(id);
    return true;
}

void SceneEditing::setShown(uint64_t id, bool shown)
{
    const Scene::Cloud* const cloud = _scene.findCloud(id);
    if (!cloud) return;
    _session.setDrawn(cloud->octree(), shown);
    _scene.setShown(id, shown);
}

/// Awaits what the session was asked to do, where it does it.
bool SceneEditing::await(bool isStarted)
{
    if (isBusy() || !isStarted) return false;
    begin()->inSession = true;
    return true;
}

/// Where none runs.
SceneEditing::Running* SceneEditing::begin(const std::string& operation)
{
    ++_revision;
    _isSaving = false;
    _running.emplace();
    _running->outcome.operation = operation;
    return &*_running;
}

/// Ends an operation before it has begun.
bool SceneEditing::refuse(const std::string& operation, const std::string& message)
{
    fail(begin(operation)->outcome, message);
    return true;
}

/// Why there is nothing to edit though there are points in the picture; else empty.
std::string SceneEditing::whyNothing() const
{
    if (!_scene.clouds().empty() || _scene.previews().empty()) return "";
    return "this is a preview of " + _scene.previews().front().store +
           ", which cannot be edited: wait until its store is built";
}

/// Why the outline cannot be used; empty when it can.
std::string SceneEditing::drawOnWindow(const Outline& outline, size_t fewest, double margin)
{
    if (std::string nothing = whyNothing(); !nothing.empty()) return nothing;
    const std::optional<WindowView> window = windowViewOf(*_sight.camera);
    if (!window) return "the viewer has no single window to draw on";
    _onWindow = {*window, outline.pixels};
    for (const osg::Vec3d& vertex : outline.world) {
        const std::optional<osg::Vec2d> pixel = window->pixelOf(vertex);
        if (!pixel)
            return "vertex " + std::to_string(_onWindow.vertices.size() + 1) + " is behind the camera";
        _onWindow.vertices.push_back(*pixel);
    }
    if (_onWindow.vertices.size() < fewest) {
        return "needs at least " + std::to_string(fewest) + " vertices, " +
               std::to_string(_onWindow.vertices.size()) + " are given";
    }
    _whole = _onWindow;
    if (outline.world.empty()) return "";
    const std::optional<WindowView> wide = window->widenedTo(_whole.vertices, margin);
    if (!wide) {
        return "reaches too far beyond the window; look from further away, so that more of it is in the "
               "window";
    }
    _whole.view = *wide;
    return "";
}

std::vector<osg::observer_ptr<OctreeInfo>> SceneEditing::octrees() const
{
    std::vector<osg::observer_ptr<OctreeInfo>> octrees;
    for (const Scene::Cloud& cloud : _scene.clouds())
        if (cloud.shown) octrees.emplace_back(&cloud.octree());
    return octrees;
}

/// Of the picture that is meant.
std::vector<osg::Vec4d> SceneEditing::clipPlanes() const
{
    std::vector<osg::Vec4d> planes = _scene.clipPlanes();
    planes.insert(planes.end(), _sight.planes.begin(), _sight.planes.end());
    return planes;
}

/// What the picture shows, as the scene stands.
PointSelection SceneEditing::everythingDrawn() const
{
    PointSelection selection;
    selection.undrawnToo = _scene.editsUndrawn();
    if (selection.undrawnToo) return selection;
    selection.drawn.clipPlanes = clipPlanes();
    selection.drawn.shownClasses = _scene.shownClasses();
    selection.drawn.segments = _marks.state().segments;
    return selection;
}

/// The points of a place. A selection that does not say what is drawn is about what the picture shows. Why it
/// cannot be used; empty when it can.
std::string SceneEditing::find(const EditPlace& place, bool outside, PointSelection& selection)
{
    if (std::string nothing = whyNothing(); !nothing.empty()) return nothing;
    if (const auto* said = std::get_if<PointSelection>(&place)) {
        const std::string problem = whyNotAll(_scene.waiting());
        if (!problem.empty()) return problem;
        selection = *said;
        const PointSelection picture = everythingDrawn();
        selection.undrawnToo = said->undrawnToo || picture.undrawnToo;
        if (showsAll(said->drawn)) selection.drawn = picture.drawn;
        return "";
    }
    selection = everythingDrawn();
    selection.outside = outside;
    selection.attributes = _scene.editLimits().attributes;
    if (const auto* outline = std::get_if<Outline>(&place)) {
        std::string problem = drawOnWindow(*outline, 3);
        if (problem.empty()) problem = outside ? whyNotAll(_scene.waiting()) : tellWaiting(_whole, kPixel);
        VelOsgDBBrx::ScreenPlace onScreen = _whole.place();
        if (problem.empty()) setFront(onScreen);
        selection.place = onScreen;
        return problem;
    }
    selection.selected = _marks.state().selection;
    return selection.selected.empty() ? kNothingSelected : "";
}

/// Why an edit under an outline, and so many pixels around it, would leave points out; empty where it would
/// not.
std::string SceneEditing::tellWaiting(const Drawing& drawing, double margin) const
{
    return whyNotIn({drawing.view.toClipOf(drawing.vertices, margin), _sight.planes}, _scene.waiting());
}

/// Limits a place to the front surface, where edits are.
void SceneEditing::setFront(ScreenPlace& place) const
{
    const std::optional<EditLimits::Front>& front = _scene.editLimits().front;
    if (!front) return;
    constexpr double kLeast = 2; // pixels
    constexpr double kMost = 64;
    const double distance = _scene.meanPointDistance();
    place.frontTolerance = front->tolerance.value_or(2 * distance);
    const double pixels = distance * pixelsPerUnit(place.vpw, _scene.bounds().center());
    place.frontRadius = front->radius.value_or(std::clamp(std::ceil(pixels), kLeast, kMost));
}

bool SceneEditing::edit(const std::string& operation, const EditPlace& place, bool outside,
                        bool (EditSession::*start)(const PointSelection&))
{
    if (isBusy()) return false;
    PointSelection selection;
    const std::string problem = find(place, outside, selection);
    return problem.empty() ? await((_session.*start)(selection)) : refuse(operation, problem);
}

bool SceneEditing::hide(const EditPlace& place, bool outside)
{
    return edit("hide", place, outside, &EditSession::hide);
}

bool SceneEditing::show(const EditPlace& place)
{
    return edit("show", place, false, &EditSession::show);
}

/// Something was marked in the picture: it becomes a step.
void SceneEditing::addMarkStep(const std::string& name, const PictureMarks::State& before)
{
    _session.addOwnStep(
        name, [this, before] { _marks.restore(before); },
        [this, after = _marks.state()] { _marks.restore(after); });
}

bool SceneEditing::select(const Outline& polygon, bool add)
{
    if (isBusy()) return false;
    const std::string operation = add ? "select" : "deselect";
    std::string problem = drawOnWindow(polygon, 3);
    if (problem.empty() && !add && !hasSelection()) problem = kNothingSelected;
    if (problem.empty() && !add && !_marks.canDeselect(_sight.planes)) problem = kSelectedElsewhere;
    if (problem.empty()) problem = tellWaiting(_onWindow, kPixel);
    if (!problem.empty()) return refuse(operation, problem);
    const PictureMarks::State before = _marks.state();
    const bool isAnew =
        _marks.select({_onWindow.view.turned(_onWindow.vertices), _onWindow.view.vpw, add}, _sight.planes);
    addMarkStep(operation, before);
    PointSelection under = everythingDrawn();
    under.place = _onWindow.place();
    Running* const running = begin(operation);
    running->inSession = _session.count(under);
    running->conclude = [isAnew](Running& ended) {
        ended.outcome.classes.reset();
        if (isAnew) ended.outcome.message = kSelectionAnew;
    };
    return true;
}

bool SceneEditing::segment(bool selectedOnly)
{
    if (isBusy()) return false;
    const std::string operation = selectedOnly ? "show selected only" : "show all but selected";
    if (!hasSelection()) return refuse(operation, kNothingSelected);
    const PictureMarks::State before = _marks.state();
    _marks.segment(selectedOnly);
    addMarkStep(operation, before);
    begin(operation)->outcome.isOwn = true;
    return true;
}

bool SceneEditing::line(const Outline& line, double width)
{
    if (isBusy()) return false;
    std::string problem = drawOnWindow(line, 2, width / 2 + 1);
    if (!(width > 0 && width <= kWidestLine)) problem = "a line is above 0 and at most 1000 pixels wide";
    if (problem.empty()) problem = tellWaiting(_whole, width / 2 + kPixel);
    if (!problem.empty()) return refuse("line", problem);
    Running* const running = begin("line");
    const osg::ref_ptr<LineSearchCmd> cmd = new LineSearchCmd(kNobodyWaits);
    cmd->setLine(_whole.view.turned(_whole.vertices), width);
    cmd->setVPW(_whole.view.vpw);
    cmd->setWidth(_whole.view.width);
    cmd->setHeight(_whole.view.height);
    cmd->setClipPlane(clipPlanes());
    cmd->setShownClasses(_scene.shownClasses());
    cmd->setOctreeInfos(octrees());
    cmd->setUid(kViewerUid);
    running->search = cmd;
    running->conclude = [this, width, strip = _sight.planes](Running& ended) {
        concludeLine(ended, width, strip);
    };
    CullCmdManager::getInstance()->push(cmd);
    return true;
}

/// `strip`: planes of the picture that the line was drawn on.
void SceneEditing::concludeLine(Running& running, double width, const std::vector<osg::Vec4d>& strip)
{
    const CmdResult result = running.search->getResult();
    if (result.state == CmdResult::ABANDONED)
        fail(running.outcome, "editing has been shut down");
    else if (result.cellsUnreadable > 0)
        fail(running.outcome, "parts of " + std::to_string(result.cellsUnreadable) +
                                  " cells could not be read and were left out; brx verify tells more");
    else if (result.maskMissing)
        fail(running.outcome, "this line has no length that could be searched; give it two places");
    running.outcome.points = running.search->points().size();
    const WindowView& view = _whole.view;
    const osg::Matrixd toWorld = osg::Matrixd::inverse(view.vpw);
    const std::vector<osg::Vec2f> outline =
        strip.empty() ? outlineInWorld(view.turned(_whole.vertices), width, running.search->points(), toWorld)
                      : outlineInStrip(strip, running.search->points(), toWorld);
    const PictureMarks::State before = _marks.state();
    _marks.setLine(outline);
    if (!outline.empty()) addMarkStep(running.outcome.operation, before);
}

bool SceneEditing::classify(const EditPlace& place, const Classification& change)
{
    if (isBusy()) return false;
    PointSelection selection;
    const std::string problem = find(place, false, selection);
    if (!problem.empty()) return refuse("classify", problem);
    if (!await(_session.classify(selection, change))) return false;
    _running->conclude = [this](Running& ended) {
        const auto& after = ended.outcome.classes->after;
        for (size_t code = 0; code < after.size(); ++code)
            if (after[code] > 0) _scene.noteClass(static_cast<uint8_t>(code));
    };
    return true;
}

bool SceneEditing::stepTo(size_t count)
{
    if (isBusy()) return false;
    const std::vector<EditStep> all = steps();
    if (count <= all.size()) return await(_session.stepTo(count == 0 ? 0 : all[count - 1].time));
    return refuse("step to " + std::to_string(count),
                  "there are " + std::to_string(all.size()) + " steps; 0 is before all of them");
}

bool SceneEditing::save()
{
    if (!await(_session.save())) return false;
    return _isSaving = true;
}

bool SceneEditing::reset()
{
    if (isBusy()) return false;
    if (const std::string problem = whyNotAll(_scene.waiting()); !problem.empty())
        return refuse("reset", problem);
    if (!_marks.isEmpty()) {
        const PictureMarks::State before = _marks.state();
        _marks.clear();
        addMarkStep("drop marks", before);
    }
    return await(_session.reset());
}

std::optional<double> SceneEditing::progress() const
{
    if (!_running || !_running->inSession) return std::nullopt;
    return _session.progress();
}

bool SceneEditing::hasOutcome() const
{
    if (!_running) return false;
    if (_running->inSession) return _session.hasOutcome();
    return !_running->search || _running->search->getResult().state != CmdResult::WAITING;
}

std::optional<EditOutcome> SceneEditing::poll()
{
    if (!hasOutcome()) return std::nullopt;
    if (_running->inSession) {
        const std::string called = _running->outcome.operation;
        _running->outcome = *_session.poll();
        if (!called.empty()) _running->outcome.operation = called;
    }
    if (_running->outcome.ok && _running->conclude) _running->conclude(*_running);
    EditOutcome outcome = std::move(_running->outcome);
    _running.reset();
    note(outcome, _hiddenChanges);
    if (_isSaving) _savedRevision = _revision + 1;
    ++_revision;
    _scene.followEdits();
    return outcome;
}

EditOutcome SceneEditing::wait()
{
    while (_running && !hasOutcome())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return poll().value_or(EditOutcome());
}

std::map<std::string, uint64_t> SceneEditing::unkeptPoints() const
{
    std::map<std::string, uint64_t> points = unsavedPoints();
    for (const Scene::Cloud& cloud : _scene.clouds())
        if (!cloud.octree().isJournalTemporary) points.erase(cloud.store);
    return points;
}
