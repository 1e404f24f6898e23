#include "session/StoreEdits.h"

#include "category/StoredClasses.h"
#include "cull/PointMarking.h"
#include "cull/StoreProblems.h"
#include "edit/EditReplay.h"
#include "edit/SelectionAreas.h"
#include "edit/SelectionScan.h"
#include "edit/StoreEdit.h"
#include "edit/UnsavedClasses.h"
#include "session/OperationText.h"

#include <VelBrx/EditHistory.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCViewerManager.h>

#include <algorithm>
#include <set>

using VelBrx::EditDescription;
using VelBrx::EditHistory;
using VelBrx::EditJournal;
using VelBrx::Status;
using VelOsgDBBrx::CmdResult;
using VelOsgDBBrx::EditJournalling;
using VelOsgDBBrx::EditOutcome;
using VelOsgDBBrx::PointSelection;

namespace {

/// The journal of a store where it is open.
std::shared_ptr<EditJournal> openJournal(OctreeInfo& octree)
{
    const std::lock_guard<std::mutex> guard(octree.pointFile->mutex);
    return octree.journal;
}

CmdResult notJournalled(const Status& status)
{
    CmdResult result;
    result.storesNotJournalled = 1;
    result.reason = status.message();
    return result;
}

bool isTemporary(OctreeInfo& octree)
{
    const std::lock_guard<std::mutex> guard(octree.pointFile->mutex);
    return octree.isJournalTemporary;
}

/// Makes sure that a store can be edited now, through its journal.
void check(OctreeInfo& octree, CmdResult& result)
{
    if (!lockForEditing(octree, result)) return;
    const StoreEditLock lock(octree);
    std::shared_ptr<EditJournal> journal;
    Status opened = EditJournalling::open(octree, journal);
    if (opened && !journal)
        opened = Status::failure(octree.pointPath + ": its journal was switched off; switch it on to edit");
    if (opened) return;
    ++(opened.kind() == Status::Kind::IN_USE ? result.storesBusy : result.storesNotJournalled);
    result.reason = opened.message();
}

/// The state that a change of a store's journal, which is open, was made on.
uint64_t previousState(OctreeInfo& octree, uint64_t change)
{
    uint64_t state = 0;
    const Status found = openJournal(octree)->findPrevious(change, state);
    return found ? state : change;
}

} // namespace

Status readHistory(OctreeInfo& octree, EditHistory& history)
{
    if (!octree.pointFile) return {};
    if (const std::shared_ptr<EditJournal> journal = openJournal(octree))
        return journal->readHistory(history);
    if (isTemporary(octree)) return {};
    return VelBrx::readEditHistory(octree.pointPath, history);
}

std::vector<SessionStore> openStores(const std::vector<SessionCloud>& clouds)
{
    std::vector<SessionStore> stores;
    std::set<VelBrx::FileIdentity> files;
    for (const SessionCloud& cloud : clouds) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!cloud.octree.lock(octree) || !octree->pointFile) continue;
        if (files.insert(octree->pointFile->identity()).second) stores.push_back({octree, cloud.firstState});
    }
    return stores;
}

bool editWithoutJournal(OctreeInfo& octree, const std::string& author, bool wasRefused)
{
    if (!isEditable(octree)) return false;
    CmdResult result;
    check(octree, result);
    if (!wasRefused && result.storesBusy + result.storesNotJournalled == 0) return false;
    octree.pointFile->editAnyway();
    std::string note;
    const Status on = EditJournalling::switchOn(octree, author, note, VelBrx::JournalPlace::TEMPORARY);
    return on.ok(); // what is wrong is told by the next edit
}

namespace {

std::map<std::string, uint64_t> ofStores(const std::vector<SessionStore>& stores,
                                         const std::map<std::string, uint64_t>& unwritten)
{
    std::map<std::string, uint64_t> counts;
    for (const SessionStore& store : stores)
        if (const auto count = unwritten.find(store.octree->pointPath);
            count != unwritten.end() && count->second > 0)
            counts.insert(*count);
    return counts;
}

} // namespace

std::map<std::string, uint64_t> unsavedPoints(const std::vector<SessionStore>& stores)
{
    return ofStores(stores, countUnwrittenClasses());
}

std::map<std::string, uint64_t> unsavedPoints(const std::vector<SessionCloud>& clouds)
{
    // Viewers ask in every frame, mostly there are none, and of clouds there may be thousands.
    const std::map<std::string, uint64_t> unwritten = countUnwrittenClasses();
    if (unwritten.empty()) return {};
    return ofStores(openStores(clouds), unwritten);
}

std::map<std::string, std::array<int64_t, 256>> unsavedDifference(const std::vector<SessionStore>& stores)
{
    std::map<std::string, std::array<int64_t, 256>> differences;
    for (const SessionStore& store : stores)
        if (hasUnwrittenClasses(*store.octree))
            differences[store.octree->pointPath] = unwrittenDifference(*store.octree);
    return differences;
}

JournalSteps readSteps(const std::vector<SessionStore>& stores)
{
    JournalSteps steps;
    for (const SessionStore& store : stores) {
        EditHistory history;
        if (!readHistory(*store.octree, history)) history = EditHistory();
        steps.add(history, store.octree->pointPath);
    }
    return steps;
}

StoreEdits::StoreEdits(const std::vector<SessionCloud>& clouds, std::string author, int64_t newestOwn,
                       EditControl& control, EditOutcome& outcome)
    : _author(std::move(author)), _control(control), _outcome(outcome), _clouds(open(clouds)),
      _stores(openStores(clouds)), _steps(readSteps(_stores)), _newestOwn(newestOwn),
      _time(std::max(_steps.newestTime(), newestOwn))
{
}

/// An entry newer than all that there are.
EditDescription StoreEdits::describe(const std::string& operation)
{
    _time = timeBehind(_time);
    EditDescription description;
    description.time = _time;
    description.author = _author;
    description.operation = operation;
    return description;
}

void StoreEdits::refuse(const std::string& message)
{
    if (_outcome.ok) _outcome.message = message;
    _outcome.ok = false;
}

/// A store was left as it was.
void StoreEdits::refuse(OctreeInfo& octree, const CmdResult& result)
{
    _outcome.isBusyElsewhere |= result.storesBusy > 0;
    _outcome.isNotJournalled |= result.storesNotJournalled > 0;
    if (result.storesBusy + result.storesNotJournalled > 0) _refused.emplace_back(&octree);
    refuse(result.reason);
}

bool StoreEdits::checkStore(OctreeInfo& octree)
{
    if (!isEditable(octree)) {
        refuse(octree.pointPath + ": cannot be written; make it writable and open it again");
        return false;
    }
    CmdResult result;
    check(octree, result);
    if (!result.reason.empty()) refuse(octree, result);
    return result.reason.empty();
}

bool StoreEdits::checkStores(const std::vector<Target>& targets)
{
    return std::all_of(targets.begin(), targets.end(),
                       [this](const Target& target) { return checkStore(*target.octree); });
}

void StoreEdits::hide(const PointSelection& selection, const CloudPlaces& places)
{
    mark(selection, places, kHideMark, "cull");
}

void StoreEdits::show(const PointSelection& selection, const CloudPlaces& places)
{
    mark(selection, places, kShowMark, "uncull");
}

void StoreEdits::mark(const PointSelection& selection, const CloudPlaces& places, const PointMark& how,
                      const std::string& op)
{
    SelectionAreas areas(selection);
    const auto hidden = how.ofHidden ? SelectionTest::Hidden::HIDDEN : SelectionTest::Hidden::VISIBLE;
    if (scan(areas, places, hidden))
        mark(reach(areas, places, hidden), how, OperationText::of(op, selection));
}

/// Makes a selection ready to be tested. False where it cannot be, or it was cancelled.
bool StoreEdits::scan(SelectionAreas& areas, const CloudPlaces& places, SelectionTest::Hidden hidden)
{
    if (!areas.status) refuse(areas.status.message());
    if (areas.status && SelectionScan::isNeeded(areas)) {
        SelectionScan scan;
        const Status scanned = scan.run(areas, meant(areas.selection), places, hidden, _control);
        if (!scanned) refuse(scanned.message());
        if (const uint64_t cells = scan.cellsUnreadable())
            refuse("parts of " + std::to_string(cells) +
                   " cells could not be read, so that it is not known which points are meant; brx verify "
                   "tells more");
        _outcome.message = scanned ? scan.note() : _outcome.message;
        _shareDone = 0.5;
    }
    _outcome.isCancelled = _outcome.ok && _control.isCancelled();
    return !hasFailed();
}

std::vector<StoreEdits::OpenCloud> StoreEdits::open(const std::vector<SessionCloud>& clouds)
{
    std::vector<OpenCloud> opened;
    for (const SessionCloud& cloud : clouds) {
        osg::ref_ptr<OctreeInfo> octree;
        if (cloud.octree.lock(octree) && octree->pointFile) opened.push_back({octree, cloud.isDrawn});
    }
    return opened;
}

/// The clouds that a selection is about: those that are drawn or, with `undrawnToo`, all.
std::vector<osg::ref_ptr<OctreeInfo>> StoreEdits::meant(const PointSelection& selection) const
{
    std::vector<osg::ref_ptr<OctreeInfo>> octrees;
    for (const auto& [octree, isDrawn] : _clouds)
        if (isDrawn || selection.undrawnToo) octrees.push_back(octree);
    return octrees;
}

/// The clouds that have cells in a selection.
std::vector<StoreEdits::Target> StoreEdits::reach(const SelectionAreas& areas, const CloudPlaces& places,
                                                  SelectionTest::Hidden hidden) const
{
    std::vector<Target> targets;
    for (const osg::ref_ptr<OctreeInfo>& octree : meant(areas.selection)) {
        auto test = std::make_unique<SelectionTest>(areas, *octree, places.of(*octree), hidden);
        std::vector<CellData*> cells = test->cells();
        if (!cells.empty()) targets.push_back({octree, std::move(test), std::move(cells)});
    }
    return targets;
}

void StoreEdits::count(const PointSelection& selection, const CloudPlaces& places)
{
    ClassEditOptions options;
    options.dryRun = true;
    classify(selection, places, ClassRule(), options);
    _outcome.points = _outcome.classes->selected;
    _outcome.classes->after = _outcome.classes->before;
    _outcome.classes->changed = 0;
}

void StoreEdits::classify(const PointSelection& selection, const CloudPlaces& places,
                          const VelOsgDBBrx::Classification& change)
{
    ClassRule rule;
    const auto isClass = [](int code) { return code >= 0 && code < 256; };
    if (!change.fromClasses.empty()) rule.from.reset();
    for (const int code : change.fromClasses)
        if (isClass(code)) rule.from.set(static_cast<size_t>(code));
    std::vector<int> codes = change.fromClasses;
    codes.push_back(change.toClass);
    const auto wrong = std::find_if_not(codes.begin(), codes.end(), isClass);
    if (wrong != codes.end())
        return refuse("there is no class " + std::to_string(*wrong) + "; give one of 0 to 255");
    rule.to = static_cast<uint8_t>(change.toClass);
    ClassEditOptions options;
    options.dryRun = change.dryRun;
    options.description = describe(OperationText::classify(selection, change));
    classify(selection, places, rule, options);
    _outcome.points = _outcome.classes->changed;
}

void StoreEdits::classify(const PointSelection& selection, const CloudPlaces& places, const ClassRule& rule,
                          ClassEditOptions options)
{
    VelOsgDBBrx::CategoryCounts& counts = _outcome.classes.emplace();
    SelectionAreas areas(selection);
    options.control = &_control;
    const auto hidden = selection.undrawnToo ? SelectionTest::Hidden::ANY : SelectionTest::Hidden::VISIBLE;
    if (!scan(areas, places, hidden)) return;
    const std::vector<Target> targets = reach(areas, places, hidden);
    if (!options.dryRun && !checkStores(targets)) return;
    const bool isDone = edit(targets, [&](const Target& target) {
        const ClassEditOutcome done = editClasses(*target.octree, *target.test, rule, options);
        if (!done.status && done.status.kind() != Status::Kind::CANCELLED)
            refuse(*target.octree, notJournalled(done.status));
        counts += done.counts;
        _cellsUnreadable += done.counts.cellsUnreadable;
        return done.undo.change;
    });
    if (!isDone) counts = {};
}

void StoreEdits::save()
{
    std::set<VelBrx::FileIdentity> files;
    for (const SessionStore& store : _stores)
        files.insert(store.octree->pointFile->identity());
    const std::map<std::string, uint64_t> before = unsavedPoints(_stores);
    const Status written = writeUnwrittenClasses(&files);
    if (!written) refuse(written.message());
    std::map<std::string, uint64_t> after = unsavedPoints(_stores);
    std::string stores;
    for (const auto& [store, points] : before) {
        const uint64_t saved = points - std::min(points, after[store]);
        _outcome.points += saved;
        if (saved > 0) stores += (stores.empty() ? "" : ", ") + store;
    }
    if (written && !stores.empty()) _outcome.message = "written to " + stores;
}

void StoreEdits::dropUnsaved()
{
    std::vector<Target> targets;
    for (const SessionStore& store : _stores)
        if (hasUnwrittenClasses(*store.octree)) targets.push_back({store.octree, nullptr, {}});
    if (!checkStores(targets)) return;
    const EditDescription description = describe(OperationText::dropUnsaved());
    edit(targets, [&](const Target& target) {
        const VelThreads::Lock one(classEditMutex());
        const StoreEditLock lock(*target.octree);
        uint64_t points = 0;
        uint64_t change = 0;
        const Status dropped =
            dropUnwrittenClasses(*target.octree, target.octree->journal, description, points, change);
        if (!dropped) refuse(*target.octree, notJournalled(dropped));
        _outcome.points += points;
        return change;
    });
}

void StoreEdits::reset()
{
    std::vector<Target> targets;
    for (const SessionStore& store : _stores) {
        auto test = std::make_unique<EveryPoint>(*store.octree);
        std::vector<CellData*> cells = test->cells();
        targets.push_back({store.octree, std::move(test), std::move(cells)});
    }
    mark(targets, kShowMark, OperationText::reset());
}

void StoreEdits::mark(const std::vector<Target>& targets, const PointMark& how, const std::string& operation)
{
    if (!checkStores(targets)) return;
    const EditDescription description = describe(operation);
    edit(targets, [&](const Target& target) {
        const StoreEditLock lock(*target.octree);
        CmdResult result;
        const uint64_t change =
            markJournalled(*target.octree, target.cells, *target.test, how, description, &_control, result);
        _outcome.points += result.pointsChanged;
        _cellsUnreadable += result.cellsUnreadable;
        if (!result.reason.empty()) refuse(*target.octree, result);
        return change;
    });
}

/// Edits store by store; takes all of it back, and returns false, where one fails or it is cancelled.
bool StoreEdits::edit(const std::vector<Target>& targets, const EditStore& editStore)
{
    uint64_t cells = 0;
    for (const Target& target : targets)
        cells += target.cells.size();
    _control.begin(cells, _shareDone);
    std::vector<Move> done;
    for (const Target& target : targets) {
        if (hasFailed()) break;
        if (const uint64_t change = editStore(target))
            done.push_back({target.octree, previousState(*target.octree, change), change});
    }
    const bool isDone = !hasFailed();
    if (!isDone)
        takeBack(done, kCancelOperation);
    else if (_cellsUnreadable > 0)
        refuse("parts of " + std::to_string(_cellsUnreadable) +
               " cells could not be read and were left out; brx verify tells more");
    if (!done.empty()) VelOsgDBBrx::PCViewerManager::getInstance()->requestRedraw();
    return isDone;
}

void StoreEdits::undo()
{
    const StepKey* step = _steps.findUndo();
    if (!step) {
        _outcome.message = "there is nothing to undo";
        return;
    }
    const std::string name = OperationText::nameOf(step->operation);
    _outcome.operation += " " + name;
    if (move(_steps.statesBefore(*step))) _outcome.undone = name;
}

void StoreEdits::redo()
{
    const StepKey* step = _steps.findRedo(_newestOwn);
    if (!step) {
        _outcome.message = "there is nothing to redo";
        return;
    }
    const std::string name = OperationText::nameOf(step->operation);
    _outcome.operation += " " + name;
    if (move(_steps.statesBehind(*step))) _outcome.redone = name;
}

void StoreEdits::undoAll()
{
    std::vector<uint64_t> states;
    for (const SessionStore& store : _stores)
        states.push_back(store.firstState);
    move(states);
}

void StoreEdits::stepTo(int64_t time)
{
    move(_steps.statesAt(time));
}

/// Brings each store to its state. Where one fails or it is cancelled, all go back to where they were, and it
/// returns false.
bool StoreEdits::move(const std::vector<uint64_t>& states)
{
    std::vector<Move> moves;
    uint64_t points = 0;
    for (size_t i = 0; i < _stores.size(); ++i) {
        const StoreSteps& steps = _steps.store(i);
        if (states[i] == steps.state()) continue;
        if (!checkStore(*_stores[i].octree)) return false;
        moves.push_back({_stores[i].octree, steps.state(), states[i]});
        points += steps.pointsBetween(steps.state(), states[i]);
    }
    _control.begin(points);
    const EditDescription description = describe({});
    std::vector<Move> done;
    for (Move& one : moves) {
        if (hasFailed()) break;
        if (const Status moved = move(one, description, _outcome.points); !moved) refuse(moved.message());
        if (one.to != one.from) done.push_back(one);
    }
    const bool isDone = !hasFailed();
    if (!isDone) takeBack(done, {});
    if (!done.empty()) VelOsgDBBrx::PCViewerManager::getInstance()->requestRedraw();
    return isDone;
}

/// Leaves a store alone that something else has edited since it was looked at. Where the store ends up is the
/// end of the move, also of one that fails.
Status StoreEdits::move(Move& one, const EditDescription& description, uint64_t& points)
{
    const std::shared_ptr<EditJournal> journal = openJournal(*one.octree);
    if (!journal || journal->state() != one.from) {
        one.to = one.from;
        return Status::failure(one.octree->pointPath + ": was edited by something else meanwhile; try again");
    }
    const Status moved = moveStoreTo(*one.octree, one.to, description, &_control, points);
    one.to = journal->state();
    return moved;
}

/// Brings stores back to where they were before a part of an operation. What that cannot do is told.
void StoreEdits::takeBack(const std::vector<Move>& done, const std::string& operation)
{
    const EditDescription description = describe(operation);
    std::string left;
    for (auto one = done.rbegin(); one != done.rend(); ++one) {
        uint64_t points = 0;
        Move back = {one->octree, one->to, one->from};
        if (!move(back, description, points)) left += (left.empty() ? "" : ", ") + one->octree->pointPath;
    }
    if (left.empty()) {
        _outcome.isCancelled = _outcome.ok;
        _outcome.points = 0;
        return;
    }
    refuse("cancelled");
    _outcome.message += "; what was done in " + left + " could not be taken back: undo it";
}
