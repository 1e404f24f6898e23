#include "viewer/edit/EditSession.h"

#include "viewer/edit/EditText.h"
#include "viewer/edit/ScreenLine.h"

#include <VelBrx/EditHistory.h>
#include <VelOsgDBBrx/CategoryCalcTool.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>
#include <VelOsgDBBrx/ResetCmd.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <utility>

using namespace VelOsgDBBrx;

namespace {

const std::string kViewerUid = "brxview";
constexpr int kNobodyWaits = 1; ///< barrier count
constexpr int kEnhancedSize = 6;
const osg::Vec4f kEnhancedColor(1, 1, 0, 1);

void refuse(EditOutcome& outcome, const std::string& message)
{
    outcome.ok = false;
    outcome.message = message;
}

/// The cloud's uid; stores that are shown twice have one each.
std::string uidOf(const Scene::Cloud& cloud, size_t place)
{
    return std::to_string(place) + ":" + cloud.store;
}

osg::ref_ptr<Category> classRequest(int32_t kind)
{
    const osg::ref_ptr<Category> request = new Category;
    request->kind = kind;
    return request;
}

/// A store's journal goes on: after edits that it lacks it could take nothing back. What a killed program had
/// left is finished before cells are read. A journal that cannot be used refuses the edits, with its reason.
void continueJournal(OctreeInfo& octree)
{
    if (!std::filesystem::exists(VelBrx::journalPath(octree.pointPath))) return;
    std::string note;
    const VelBrx::Status status = EditJournalling::switchOn(octree, "", note);
    if (status && !note.empty()) std::fprintf(stderr, "brxview: %s\n", note.c_str());
}

} // namespace

EditSession::EditSession(Scene& scene, osgViewer::Viewer& viewer) : _scene(scene), _viewer(viewer)
{
    CullCmdManager::getInstance()->setPixelBufferTool(new PolygonMaskTool);
    PCViewerManager::getInstance()->registerViewer(&viewer, kViewerUid);
    for (const Scene::Cloud& cloud : scene.clouds()) {
        _uids.push_back(uidOf(cloud, _uids.size()));
        CategoryCalcTool::getInstance()->registerCloud(_uids.back(), cloud.node);
        PCViewerManager::getInstance()->registerViewer(&viewer, _uids.back());
        _selections.emplace_back(&viewer, cloud.node);
        continueJournal(*cloud.node->getOctree());
    }
}

EditSession::~EditSession()
{
    for (const std::string& uid : _uids) {
        CategoryCalcTool::getInstance()->unRegisterCloud(uid);
        PCViewerManager::getInstance()->unRegisterViewer(uid);
    }
    PCViewerManager::getInstance()->unRegisterViewer(kViewerUid);
}

/// Null while another operation is running.
EditSession::Running* EditSession::begin(const std::string& operation)
{
    if (_running) return nullptr;
    _running.emplace();
    _running->outcome.operation = operation;
    _running->conclude = [this](Running& running) { concludeCommands(running); };
    return &*_running;
}

/// As `begin`, for what is drawn on the screen. Null too when it has been refused, which ends the operation.
EditSession::Running* EditSession::beginOnScreen(const std::string& operation, const Outline& outline,
                                                 size_t fewest, double margin)
{
    Running* running = begin(operation);
    if (!running) return nullptr;
    const std::string problem = drawOnWindow(outline, fewest, margin);
    if (!problem.empty()) refuse(running->outcome, problem);
    return problem.empty() ? running : nullptr;
}

/// Why the outline cannot be used; empty when it can.
std::string EditSession::drawOnWindow(const Outline& outline, size_t fewest, double margin)
{
    const std::optional<WindowView> window = windowViewOf(*_viewer.getCamera());
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

std::vector<osg::observer_ptr<OctreeInfo>> EditSession::octrees() const
{
    std::vector<osg::observer_ptr<OctreeInfo>> octrees;
    for (const Scene::Cloud& cloud : _scene.clouds())
        octrees.emplace_back(cloud.node->getOctree());
    return octrees;
}

bool EditSession::hide(const Outline& polygon, Type side)
{
    if (isBusy()) return false;
    Running* running = beginOnScreen(side == Type::INSIDE ? "hide inside" : "hide outside", polygon, 3);
    if (!running) return true;
    const osg::ref_ptr<CullCmd> cmd = new CullCmd(kNobodyWaits, false);
    cmd->setType(side);
    pushCull(*running, cmd, Edit::HIDDEN);
    return true;
}

bool EditSession::show(const Outline& polygon)
{
    if (isBusy()) return false;
    Running* running = beginOnScreen("show", polygon, 3);
    if (running) pushCull(*running, new XorCullCmd(kNobodyWaits, false), Edit::SHOWN);
    return true;
}

void EditSession::pushCull(Running& running, PolygonPointCmd* cmd, Edit::Kind kind)
{
    std::vector<osg::observer_ptr<OctreeInfo>> clouds = octrees();
    std::vector<osg::Vec4d> planes = _scene.clipPlanes();
    cmd->setPolygon(_whole.vertices);
    cmd->setVPW(_whole.view.vpw);
    cmd->setWidth(_whole.view.width);
    cmd->setHeight(_whole.view.height);
    cmd->setClipPlane(planes);
    cmd->setOctreeInfos(clouds);
    cmd->setUid(kViewerUid);
    const Edit edit{kind, running.outcome.operation, kind == Edit::HIDDEN ? cmd : nullptr};
    running.conclude = [this, edit](Running& ended) { concludeCull(ended, edit); };
    running.work.push(cmd);
}

void EditSession::concludeCommands(Running& running) const
{
    const CmdResult result = running.work.commands();
    running.outcome.points = result.pointsChanged;
    running.outcome.isBusyElsewhere = result.storesBusy > 0;
    if (result.state == CmdResult::ABANDONED)
        refuse(running.outcome, "editing has been shut down");
    else if (result.maskMissing)
        refuse(running.outcome, "no mask of the polygon could be made; nothing was changed");
    else if (result.storesReadOnly > 0)
        refuse(running.outcome, readOnlyStores([](const std::string&) { return true; }) +
                                    " cannot be written and was left as it is; make it writable and open it "
                                    "again");
    else if (result.storesBusy > 0 || result.storesReplaced > 0 || result.storesNotJournalled > 0 ||
             result.cellsUnwritten > 0)
        refuse(running.outcome, result.reason);
    else if (result.cellsUnreadable > 0)
        refuse(running.outcome, "parts of " + std::to_string(result.cellsUnreadable) +
                                    " cells could not be read and were left out; brx verify tells more");
}

void EditSession::concludeCull(Running& running, const Edit& edit)
{
    concludeCommands(running);
    noteSegment(running.outcome);
    if (running.outcome.points > 0) _undoOrder.push_back(edit);
}

/// A segment is a matter of the picture, which people may forget.
void EditSession::noteSegment(EditOutcome& outcome) const
{
    if (outcome.ok && outcome.message.empty() && _selections.front().hasSegment())
        outcome.message = "also of points that the segment leaves out of the picture";
}

bool EditSession::select(const Outline& polygon, bool add)
{
    if (isBusy()) return false;
    Running* running = beginOnScreen(add ? "select" : "deselect", polygon, 3);
    if (!running) return true;
    if (!add && !_selections.front().hasSelection()) {
        refuse(running->outcome, "nothing is selected");
        return true;
    }
    std::vector<osg::Vec2d> vertices = _onWindow.view.turned(_onWindow.vertices);
    for (SelectSegmentStack& selection : _selections)
        selection.selectPushAndApply(vertices, add);
    _undoOrder.push_back({Edit::SELECTION, running->outcome.operation});
    Classification count;
    count.dryRun = true;
    pushClassEdit(running->work, count);
    running->conclude = [](Running& ended) { ended.outcome.points = ended.work.counts().selected; };
    return true;
}

bool EditSession::segment(bool selectedOnly)
{
    Running* running = begin(selectedOnly ? "show selected only" : "show all but selected");
    if (!running) return false;
    if (!_selections.front().hasSelection()) {
        refuse(running->outcome, "nothing is selected");
        return true;
    }
    running->outcome.countsPoints = false;
    for (SelectSegmentStack& selection : _selections)
        selection.selectConvertSegment(!selectedOnly);
    _undoOrder.push_back({Edit::SELECTION, running->outcome.operation});
    return true;
}

bool EditSession::line(const Outline& line, double width)
{
    if (isBusy()) return false;
    Running* running = beginOnScreen("line", line, 2, width / 2 + 1);
    if (!running) return true;
    if (!(width > 0 && width <= kWidestLine)) {
        refuse(running->outcome, "a line is above 0 and at most 1000 pixels wide");
        return true;
    }
    const osg::ref_ptr<LineSearchCmd> cmd = new LineSearchCmd(kNobodyWaits);
    cmd->setLine(_whole.view.turned(_whole.vertices), width);
    cmd->setVPW(_whole.view.vpw);
    cmd->setWidth(_whole.view.width);
    cmd->setHeight(_whole.view.height);
    cmd->setClipPlane(_scene.clipPlanes());
    cmd->setShownClasses(_scene.shownClasses());
    cmd->setOctreeInfos(octrees());
    cmd->setUid(kViewerUid);
    running->conclude = [this, cmd, width](Running& ended) { concludeLine(ended, *cmd, width); };
    running->work.push(cmd);
    return true;
}

void EditSession::concludeLine(Running& running, LineSearchCmd& search, double width)
{
    concludeCommands(running);
    if (running.work.commands().maskMissing)
        refuse(running.outcome, "this line has no length that could be searched; give it two places");
    running.outcome.points = search.points().size();
    const WindowView& view = _whole.view;
    const std::vector<osg::Vec2f> outline =
        outlineInWorld(view.turned(_whole.vertices), width, search.points(), osg::Matrixd::inverse(view.vpw));
    PointCloudHelper::setEnhancedLine(_scene.root(), outline, kEnhancedColor, kEnhancedSize);
    if (!outline.empty()) _undoOrder.push_back({Edit::LINE, running.outcome.operation});
}

bool EditSession::classify(const Outline& polygon, const Classification& change)
{
    if (isBusy()) return false;
    Running* running = beginOnScreen(change.dryRun ? "classify, dry run" : "classify", polygon, 3);
    if (!running) return true;
    for (const int code : change.fromClasses) {
        if (code >= 0 && code <= 254) continue;
        refuse(running->outcome, "class " + std::to_string(code) +
                                     " cannot be chosen to change; give classes of 0 to 254, or none for "
                                     "all");
        return true;
    }
    const bool dryRun = change.dryRun;
    running->conclude = [this, dryRun](Running& ended) { concludeClasses(ended, dryRun); };
    pushClassEdit(running->work, change);
    return true;
}

/// One request, so that all clouds share one mask: a scene may have thousands.
void EditSession::pushClassEdit(EditWork& work, const Classification& change) const
{
    const osg::ref_ptr<PolygonCmd> edit = new PolygonCmd;
    Base& base = edit->base;
    base.polygon = _whole.vertices;
    base.vpw = _whole.view.vpw;
    base.width = _whole.view.width;
    base.height = _whole.view.height;
    base.planesA = _scene.clipPlanes();
    base.shownClasses = _scene.shownClasses();
    base.toClass = change.toClass;
    if (!change.fromClasses.empty()) base.setFromClasses(change.fromClasses);
    edit->target = _scene.root();
    const osg::ref_ptr<Category> request = new Category(kViewerUid, edit);
    request->dryRun = change.dryRun;
    work.push(request);
}

void EditSession::concludeClasses(Running& running, bool dryRun)
{
    EditOutcome& outcome = running.outcome;
    const CategoryCounts counts = running.work.counts();
    outcome.classes = counts;
    outcome.points = counts.changed;
    outcome.isBusyElsewhere = counts.storesBusy > 0;
    if (const VelBrx::Status status = running.work.status(); !status)
        refuse(outcome, status.message());
    else if (counts.cellsUnreadable > 0)
        refuse(outcome, "parts of " + std::to_string(counts.cellsUnreadable) +
                            " cells could not be read and were left out; brx verify tells more");
    if (dryRun || counts.changed == 0) return;
    const std::map<std::string, uint64_t> unsaved = unsavedPoints();
    const std::string readOnly =
        readOnlyStores([&](const std::string& store) { return unsaved.count(store); });
    if (!readOnly.empty()) {
        CategoryCalcTool::getInstance()->pop();
        CategoryCalcTool::getInstance()->waitUntilHandled();
        outcome.points = 0;
        return refuse(outcome, readOnly +
                                   " cannot be written, so that the changes could not be saved; nothing was "
                                   "changed; make it writable and open it again");
    }
    _undoOrder.push_back({Edit::CLASSES, outcome.operation});
    for (unsigned code = 0; code < counts.after.size(); ++code)
        if (counts.after[code] > 0) _scene.noteClass(static_cast<uint8_t>(code));
    noteSegment(outcome);
}

bool EditSession::undo()
{
    Running* running = begin("undo");
    if (!running) return false;
    if (_undoOrder.empty()) {
        running->outcome.countsPoints = false;
        running->outcome.message = "there is nothing to undo";
        return true;
    }
    const Edit edit = _undoOrder.back();
    _undoOrder.pop_back();
    running->outcome.operation += " " + edit.operation;
    running->outcome.undone = edit.operation;
    running->outcome.countsPoints = edit.kind != Edit::SELECTION && edit.kind != Edit::LINE;
    if (edit.kind == Edit::SHOWN)
        running->outcome.message = "points that were brought back stay; hide them again";
    takeBack(*running, {edit});
    return true;
}

/// Takes edits back, the newest first; those that a full disk leaves are in the order again.
void EditSession::takeBack(Running& running, std::vector<Edit> edits)
{
    for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit)
        beginToTakeBack(running, *edit);
    running.conclude = [this, edits = std::move(edits)](Running& ended) {
        concludeCommands(ended);
        ended.outcome.points += ended.work.counts().changed;
        if (const VelBrx::Status status = ended.work.status(); !status)
            refuse(ended.outcome, status.message());
        for (const Edit& edit : edits)
            if (edit.cmd && edit.cmd->getResult().cellsUnwritten > 0) _undoOrder.push_back(edit);
    };
}

void EditSession::beginToTakeBack(Running& running, const Edit& edit)
{
    switch (edit.kind) {
    case Edit::HIDDEN:
        running.work.push(new UndoCmd(kNobodyWaits, edit.cmd));
        break;
    case Edit::SHOWN:
        break; // what was brought back stays
    case Edit::SELECTION:
        for (SelectSegmentStack& selection : _selections)
            selection.pop();
        break;
    case Edit::LINE:
        PointCloudHelper::clearEnhancedLine(_scene.root());
        break;
    case Edit::CLASSES:
        running.work.push(classRequest(Category::UNDO));
        break;
    }
}

bool EditSession::undoAll()
{
    Running* running = begin("undo all");
    if (!running) return false;
    takeBack(*running, std::exchange(_undoOrder, {}));
    return true;
}

void EditSession::dropSelection()
{
    for (SelectSegmentStack& selection : _selections)
        selection.clearAndApply();
    PointCloudHelper::clearEnhancedLine(_scene.root());
}

bool EditSession::reset()
{
    Running* running = begin("reset");
    if (!running) return false;
    dropSelection();
    std::vector<osg::observer_ptr<OctreeInfo>> clouds = octrees();
    const osg::ref_ptr<ResetCmd> cmd = new ResetCmd(kNobodyWaits);
    cmd->setOctreeInfos(clouds);
    cmd->setUid(kViewerUid);
    running->work.push(cmd);
    _undoOrder.erase(std::remove_if(_undoOrder.begin(), _undoOrder.end(),
                                    [](const Edit& edit) { return edit.kind != Edit::CLASSES; }),
                     _undoOrder.end());
    return true;
}

bool EditSession::save()
{
    Running* running = begin("save");
    if (!running) return false;
    running->conclude = [this, before = unsavedPoints()](Running& ended) {
        const std::map<std::string, uint64_t> after = unsavedPoints();
        ended.outcome.points = totalOf(before) - totalOf(after);
        std::vector<std::string> written;
        for (const auto& [store, points] : before)
            if (const auto left = after.find(store); points > (left == after.end() ? 0 : left->second))
                written.push_back(store);
        if (!written.empty()) ended.outcome.message = "written to " + namesOf(written);
        if (const VelBrx::Status status = ended.work.status(); !status)
            refuse(ended.outcome, status.message());
    };
    running->work.save();
    return true;
}

void EditSession::editAnyway()
{
    for (const Scene::Cloud& cloud : _scene.clouds()) {
        OctreeInfo& octree = *cloud.node->getOctree();
        if (octree.pointFile) octree.pointFile->editAnyway();
        EditJournalling::switchOff(octree); // the other program has it
    }
}

std::optional<EditOutcome> EditSession::poll()
{
    if (!hasOutcome()) return std::nullopt;
    if (_running->outcome.ok) _running->conclude(*_running);
    EditOutcome outcome = std::move(_running->outcome);
    _running.reset();
    _scene.followEdits();
    return outcome;
}

EditOutcome EditSession::wait()
{
    while (_running && !hasOutcome())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return poll().value_or(EditOutcome());
}

std::map<std::string, uint64_t> EditSession::unsavedPoints() const
{
    return CategoryCalcTool::getInstance()->countUnwritten();
}

/// Paths of those stores that cannot be written; empty when all can.
std::string EditSession::readOnlyStores(const std::function<bool(const std::string&)>& isMeant) const
{
    std::string paths;
    for (const Scene::Cloud& cloud : _scene.clouds()) {
        const OctreeInfo& octree = *cloud.node->getOctree();
        if (!octree.pointFile || octree.pointFile->isWritable() || !isMeant(cloud.store)) continue;
        paths += (paths.empty() ? "" : ", ") + cloud.store;
    }
    return paths;
}
