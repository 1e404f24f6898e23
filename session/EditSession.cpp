#include <VelOsgDBBrx/EditSession.h>

#include "osgutils/QueueWorker.h"
#include "session/StoreEdits.h"

#include <VelBrx/EditHistory.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelThreads/Mutex.h>

#include <algorithm>
#include <utility>

using VelBrx::EditHistory;
using VelBrx::Status;

namespace VelOsgDBBrx {

/// What the operations and the thread share. Its lock is held for moments; of others only the queue's and
/// those of observers are taken under it.
class EditSession::State
{
public:
    using Work = std::function<void(StoreEdits& edits, EditOutcome& outcome)>;

    explicit State(std::string author) : _author(std::move(author)) { _worker.start(); }
    ~State();

    const std::string& author() const { return _author; }
    EditControl& control() { return _control; }

    void add(OctreeInfo& octree, const EditHistory& history) VEL_EXCLUDES(_mutex);
    void remove(const OctreeInfo& octree) VEL_EXCLUDES(_mutex);
    void setDrawn(const OctreeInfo& octree, bool drawn) VEL_EXCLUDES(_mutex);

    /// Begins an operation, to which `start` gives its work. False while another runs.
    bool begin() VEL_EXCLUDES(_mutex);
    void start(const std::string& operation, Work work) { _worker.push({operation, std::move(work)}); }

    std::vector<SessionCloud> clouds() const VEL_EXCLUDES(_mutex);

    /// Where the clouds stand now.
    CloudPlaces notePlaces() const VEL_EXCLUDES(_mutex);

    /// Undoes the newest step that is in effect, or does again what was undone last, where that is an own
    /// step: its name, or nothing where it is one of the stores.
    std::optional<std::string> undoOwn() VEL_EXCLUDES(_mutex);
    std::optional<std::string> redoOwn() VEL_EXCLUDES(_mutex);

    /// Brings the own steps to how they were right behind a time.
    void moveOwnTo(int64_t time) VEL_EXCLUDES(_mutex);

    bool addOwn(EditStep step, std::function<void()> undo, std::function<void()> redo) VEL_EXCLUDES(_mutex);

    void editWithoutJournal() VEL_EXCLUDES(_mutex);
    void setCallback(Callback callback) VEL_EXCLUDES(_mutex);
    bool isBusy() const VEL_EXCLUDES(_mutex);
    bool isRunning() const VEL_EXCLUDES(_mutex);
    bool hasOutcome() const VEL_EXCLUDES(_mutex);
    std::optional<EditOutcome> poll() VEL_EXCLUDES(_mutex);
    EditOutcome wait() VEL_EXCLUDES(_mutex);
    std::vector<EditStep> steps() const VEL_EXCLUDES(_mutex);

private:
    enum class Phase
    {
        IDLE,
        RUNNING,
        FINISHED, ///< and nobody has taken its outcome
        CLOSED    ///< the session ends
    };

    struct Task
    {
        std::string operation;
        Work work;
    };

    struct OwnStep
    {
        EditStep step;
        std::function<void()> undo;
        std::function<void()> redo;
    };

    void run() VEL_EXCLUDES(_mutex);
    void finish(const EditOutcome& outcome, const StoreEdits& edits) VEL_EXCLUDES(_mutex);
    void waitUntilEnded() VEL_REQUIRES(_mutex);
    int64_t newestOwn() const VEL_REQUIRES(_mutex) { return _own.empty() ? 0 : _own.back().step.time; }
    std::vector<OwnStep>::iterator firstUndone() VEL_REQUIRES(_mutex);

    const std::string _author;
    EditControl _control;

    mutable VelThreads::Mutex _mutex;
    VelThreads::Condition _changed; ///< signalled when one of the two below changed
    Phase _phase VEL_GUARDED_BY(_mutex) = Phase::IDLE;
    bool _isCallingBack VEL_GUARDED_BY(_mutex) = false;
    EditOutcome _outcome VEL_GUARDED_BY(_mutex); ///< of the last operation that ended
    Callback _callback VEL_GUARDED_BY(_mutex);
    std::vector<SessionCloud> _clouds VEL_GUARDED_BY(_mutex);
    std::vector<osg::observer_ptr<OctreeInfo>> _refused VEL_GUARDED_BY(_mutex); ///< by the last operation
    JournalSteps _steps VEL_GUARDED_BY(_mutex);       ///< as of the last operation that ended
    std::vector<OwnStep> _own VEL_GUARDED_BY(_mutex); ///< ascending in time; the undone ones are the last

    VelOsgUtils::QueueWorker<Task> _worker{[this] { run(); }}; ///< behind the members that its thread uses
};

EditSession::State::~State()
{
    const VelThreads::Lock lock(_mutex);
    waitUntilEnded();
    _phase = Phase::CLOSED;
}

void EditSession::State::waitUntilEnded()
{
    while (_phase == Phase::RUNNING || _isCallingBack)
        _changed.wait(_mutex);
}

void EditSession::State::run()
{
    Task task;
    while (_worker.take(task)) {
        int64_t newest = 0;
        {
            const VelThreads::Lock lock(_mutex);
            newest = newestOwn();
        }
        EditOutcome outcome;
        outcome.operation = task.operation;
        StoreEdits edits(clouds(), _author, newest, _control, outcome);
        task.work(edits, outcome);
        finish(outcome, edits);
    }
}

void EditSession::State::finish(const EditOutcome& outcome, const StoreEdits& edits)
{
    JournalSteps steps = edits.steps();
    Callback callback;
    {
        const VelThreads::Lock lock(_mutex);
        if (steps.newestEdit() > _steps.newestEdit()) _own.erase(firstUndone(), _own.end());
        _steps = std::move(steps);
        _outcome = outcome;
        _refused = edits.refused();
        callback = _callback;
        _isCallingBack = static_cast<bool>(callback);
        _phase = callback ? Phase::IDLE : Phase::FINISHED;
        _changed.notifyAll();
    }
    if (!callback) return;
    callback(outcome);
    const VelThreads::Lock lock(_mutex);
    _isCallingBack = false;
    _changed.notifyAll();
}

void EditSession::State::add(OctreeInfo& octree, const EditHistory& history)
{
    const auto isSame = [&](const SessionCloud& cloud) {
        osg::ref_ptr<OctreeInfo> other;
        return cloud.octree.lock(other) && other->pointFile && octree.pointFile &&
               other->pointFile->identity() == octree.pointFile->identity();
    };
    const auto isHere = [&](const SessionCloud& cloud) { return cloud.octree == &octree; };
    const VelThreads::Lock lock(_mutex);
    if (std::any_of(_clouds.begin(), _clouds.end(), isHere)) return;
    if (!history.entries.empty() && std::none_of(_clouds.begin(), _clouds.end(), isSame))
        _steps.add(history, octree.pointPath);
    _clouds.push_back({&octree, history.state});
}

void EditSession::State::remove(const OctreeInfo& octree)
{
    std::vector<SessionCloud> left;
    {
        const VelThreads::Lock lock(_mutex);
        _clouds.erase(std::remove_if(_clouds.begin(), _clouds.end(),
                                     [&](const SessionCloud& cloud) { return cloud.octree == &octree; }),
                      _clouds.end());
        left = _clouds;
    }
    JournalSteps steps = readSteps(openStores(left));
    const VelThreads::Lock lock(_mutex);
    _steps = std::move(steps);
}

void EditSession::State::setDrawn(const OctreeInfo& octree, bool drawn)
{
    const VelThreads::Lock lock(_mutex);
    for (SessionCloud& cloud : _clouds)
        if (cloud.octree == &octree) cloud.isDrawn = drawn;
}

bool EditSession::State::begin()
{
    const VelThreads::Lock lock(_mutex);
    if (_phase != Phase::IDLE) return false;
    _phase = Phase::RUNNING;
    _control.clearCancel();
    _control.begin(0);
    return true;
}

std::vector<SessionCloud> EditSession::State::clouds() const
{
    const VelThreads::Lock lock(_mutex);
    return _clouds;
}

CloudPlaces EditSession::State::notePlaces() const
{
    std::vector<osg::observer_ptr<OctreeInfo>> octrees;
    for (const SessionCloud& cloud : clouds())
        octrees.push_back(cloud.octree);
    CloudPlaces places;
    places.note(octrees);
    return places;
}

std::vector<EditSession::State::OwnStep>::iterator EditSession::State::firstUndone()
{
    return std::find_if(_own.begin(), _own.end(), [](const OwnStep& own) { return !own.step.isDone; });
}

std::optional<std::string> EditSession::State::undoOwn()
{
    std::function<void()> undo;
    std::string name;
    {
        const VelThreads::Lock lock(_mutex);
        const auto undone = firstUndone();
        if (undone == _own.begin()) return std::nullopt;
        OwnStep& own = *std::prev(undone);
        const StepKey* inStores = _steps.findUndo();
        if (inStores && inStores->time > own.step.time) return std::nullopt;
        own.step.isDone = false;
        undo = own.undo;
        name = own.step.name;
    }
    undo();
    return name;
}

std::optional<std::string> EditSession::State::redoOwn()
{
    std::function<void()> redo;
    std::string name;
    {
        const VelThreads::Lock lock(_mutex);
        const auto own = firstUndone();
        if (own == _own.end()) return std::nullopt;
        const StepKey* inStores = _steps.findRedo(newestOwn());
        if (inStores && inStores->time < own->step.time) return std::nullopt;
        own->step.isDone = true;
        redo = own->redo;
        name = own->step.name;
    }
    redo();
    return name;
}

void EditSession::State::moveOwnTo(int64_t time)
{
    std::vector<std::function<void()>> calls;
    {
        const VelThreads::Lock lock(_mutex);
        for (auto own = _own.rbegin(); own != _own.rend() && own->step.time > time; ++own)
            if (std::exchange(own->step.isDone, false)) calls.push_back(own->undo);
        for (auto own = _own.begin(); own != _own.end() && own->step.time <= time; ++own)
            if (!std::exchange(own->step.isDone, true)) calls.push_back(own->redo);
    }
    for (const std::function<void()>& call : calls)
        call();
}

bool EditSession::State::addOwn(EditStep step, std::function<void()> undo, std::function<void()> redo)
{
    const VelThreads::Lock lock(_mutex);
    if (_phase != Phase::IDLE) return false;
    _own.erase(firstUndone(), _own.end());
    step.time = timeBehind(std::max(_steps.newestTime(), newestOwn()));
    _own.push_back({std::move(step), std::move(undo), std::move(redo)});
    return true;
}

void EditSession::State::editWithoutJournal()
{
    std::vector<SessionCloud> changed = clouds();
    std::vector<osg::observer_ptr<OctreeInfo>> refused;
    {
        const VelThreads::Lock lock(_mutex);
        refused = _refused;
    }
    for (SessionCloud& cloud : changed) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!cloud.octree.lock(octree)) continue;
        const bool wasRefused = std::find(refused.begin(), refused.end(), cloud.octree) != refused.end();
        if (::editWithoutJournal(*octree, _author, wasRefused)) cloud.firstState = 0;
    }
    JournalSteps steps = readSteps(openStores(changed));
    const VelThreads::Lock lock(_mutex);
    _clouds = std::move(changed);
    _steps = std::move(steps);
}

void EditSession::State::setCallback(Callback callback)
{
    const VelThreads::Lock lock(_mutex);
    _callback = std::move(callback);
}

bool EditSession::State::isBusy() const
{
    const VelThreads::Lock lock(_mutex);
    return _phase != Phase::IDLE;
}

bool EditSession::State::isRunning() const
{
    const VelThreads::Lock lock(_mutex);
    return _phase == Phase::RUNNING;
}

bool EditSession::State::hasOutcome() const
{
    const VelThreads::Lock lock(_mutex);
    return _phase == Phase::FINISHED;
}

std::optional<EditOutcome> EditSession::State::poll()
{
    const VelThreads::Lock lock(_mutex);
    if (_phase != Phase::FINISHED) return std::nullopt;
    _phase = Phase::IDLE;
    return _outcome;
}

EditOutcome EditSession::State::wait()
{
    const VelThreads::Lock lock(_mutex);
    waitUntilEnded();
    _phase = Phase::IDLE;
    return _outcome;
}

std::vector<EditStep> EditSession::State::steps() const
{
    const VelThreads::Lock lock(_mutex);
    std::vector<EditStep> steps = _steps.list();
    for (const OwnStep& own : _own)
        steps.push_back(own.step);
    std::stable_sort(steps.begin(), steps.end(),
                     [](const EditStep& a, const EditStep& b) { return a.time < b.time; });
    return steps;
}

EditSession::EditSession(std::string author) : _state(std::make_unique<State>(std::move(author))) {}

EditSession::~EditSession() = default;

Status EditSession::addCloud(OctreeInfo& octree, std::string& note)
{
    Status status = EditJournalling::switchOn(octree, _state->author(), note);
    EditHistory history;
    if (const Status read = readHistory(octree, history); !read && status) status = read;
    _state->add(octree, history);
    return status;
}

void EditSession::removeCloud(const OctreeInfo& octree)
{
    _state->remove(octree);
}

void EditSession::setDrawn(const OctreeInfo& octree, bool drawn)
{
    _state->setDrawn(octree, drawn);
}

bool EditSession::hide(const PointSelection& selection)
{
    if (!_state->begin()) return false;
    _state->start("hide", [selection, places = _state->notePlaces()](StoreEdits& edits, EditOutcome&) {
        edits.hide(selection, places);
    });
    return true;
}

bool EditSession::show(const PointSelection& selection)
{
    if (!_state->begin()) return false;
    _state->start("show", [selection, places = _state->notePlaces()](StoreEdits& edits, EditOutcome&) {
        edits.show(selection, places);
    });
    return true;
}

bool EditSession::classify(const PointSelection& selection, const Classification& change)
{
    if (!_state->begin()) return false;
    _state->start(change.dryRun ? "classify, dry run" : "classify",
                  [selection, change, places = _state->notePlaces()](StoreEdits& edits, EditOutcome&) {
                      edits.classify(selection, places, change);
                  });
    return true;
}

bool EditSession::count(const PointSelection& selection)
{
    if (!_state->begin()) return false;
    _state->start("count", [selection, places = _state->notePlaces()](StoreEdits& edits, EditOutcome&) {
        edits.count(selection, places);
    });
    return true;
}

bool EditSession::save()
{
    if (!_state->begin()) return false;
    _state->start("save", [](StoreEdits& edits, EditOutcome&) { edits.save(); });
    return true;
}

bool EditSession::dropUnsaved()
{
    if (!_state->begin()) return false;
    _state->start("drop unsaved classes", [](StoreEdits& edits, EditOutcome&) { edits.dropUnsaved(); });
    return true;
}

bool EditSession::reset()
{
    if (!_state->begin()) return false;
    _state->start("reset", [](StoreEdits& edits, EditOutcome&) { edits.reset(); });
    return true;
}

bool EditSession::undo()
{
    if (!_state->begin()) return false;
    if (const std::optional<std::string> own = _state->undoOwn())
        _state->start("undo " + *own, [name = *own](StoreEdits&, EditOutcome& outcome) {
            outcome.isOwn = true;
            outcome.undone = name;
        });
    else
        _state->start("undo", [](StoreEdits& edits, EditOutcome&) { edits.undo(); });
    return true;
}

bool EditSession::redo()
{
    if (!_state->begin()) return false;
    if (const std::optional<std::string> own = _state->redoOwn())
        _state->start("redo " + *own, [name = *own](StoreEdits&, EditOutcome& outcome) {
            outcome.isOwn = true;
            outcome.redone = name;
        });
    else
        _state->start("redo", [](StoreEdits& edits, EditOutcome&) { edits.redo(); });
    return true;
}

bool EditSession::undoAll()
{
    if (!_state->begin()) return false;
    _state->moveOwnTo(0);
    _state->start("undo all", [](StoreEdits& edits, EditOutcome&) { edits.undoAll(); });
    return true;
}

bool EditSession::stepTo(int64_t time)
{
    if (!_state->begin()) return false;
    _state->moveOwnTo(time);
    _state->start("step to", [time](StoreEdits& edits, EditOutcome&) { edits.stepTo(time); });
    return true;
}

bool EditSession::editWithoutJournal()
{
    if (_state->isBusy()) return false;
    _state->editWithoutJournal();
    return true;
}

void EditSession::cancel()
{
    _state->control().cancel();
}

double EditSession::progress() const
{
    return _state->isRunning() ? _state->control().progress() : 1;
}

bool EditSession::isBusy() const
{
    return _state->isBusy();
}

bool EditSession::hasOutcome() const
{
    return _state->hasOutcome();
}

std::optional<EditOutcome> EditSession::poll()
{
    return _state->poll();
}

EditOutcome EditSession::wait()
{
    return _state->wait();
}

void EditSession::setCallback(Callback callback)
{
    _state->setCallback(std::move(callback));
}

std::vector<EditStep> EditSession::steps() const
{
    return _state->steps();
}

std::map<std::string, uint64_t> EditSession::unsavedPoints() const
{
    return ::unsavedPoints(_state->clouds());
}

std::map<std::string, std::array<int64_t, 256>> EditSession::unsavedDifference() const
{
    return ::unsavedDifference(openStores(_state->clouds()));
}

bool EditSession::addOwnStep(std::string name, std::function<void()> undo, std::function<void()> redo)
{
    EditStep step;
    step.name = name;
    step.operation = std::move(name);
    step.author = _state->author();
    step.isDone = true;
    step.isOwn = true;
    return _state->addOwn(std::move(step), std::move(undo), std::move(redo));
}

} // namespace VelOsgDBBrx
