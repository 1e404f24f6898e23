#pragma once

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace VelOsgDBBrx {

/// An edit of the clouds of a session. One that changed several stores is one step.
struct EditStep
{
    int64_t time = 0;      ///< microseconds since 1970, UTC; no two steps of a session have the same
    std::string name;      ///< for people, such as "hide"
    std::string operation; ///< JSON as scripts have it; of a host's own step its name
    std::string author;
    uint64_t points = 0;             ///< that it changed in all stores
    std::vector<std::string> stores; ///< paths of those that it changed; none of a host's own step
    bool isDone = false;             ///< it is in effect; or it was taken back
    bool isUnsaved = false;          ///< the stores do not show it as it is now
    bool isOwn = false;              ///< see `EditSession::addOwnStep`
};

/// A change of classes: which classes may change, and what they become.
struct Classification
{
    int toClass = 1;              ///< 0 to 255
    std::vector<int> fromClasses; ///< 0 to 255; empty: all
    bool dryRun = false;          ///< only count
};

/// What an operation of `EditSession` did.
struct EditOutcome
{
    std::string operation;    ///< for people, such as "hide" or "undo hide"
    bool ok = true;           ///< false: refused, failed, or done in part; `message` says why and what to do
    bool isCancelled = false; ///< taken back whole, as `EditSession::cancel` asked

    /// Points changed in the stores; of a dry run those that would be, of a count those found, of a save
    /// those written.
    uint64_t points = 0;

    /// Of a classification and a count: the points of the selection by class, before and after.
    std::optional<CategoryCounts> classes;

    std::string undone; ///< of an undo: the operation that was taken back; empty when there was none
    std::string redone; ///< of a redo: the operation that was done again; empty when there was none

    bool isOwn = false; ///< of an undo and a redo: the step was one of the host's own

    std::string message; ///< one line; empty where there is nothing to add

    /// Refused because another program edits a store: `editWithoutJournal` is the user's to choose.
    bool isBusyElsewhere = false;

    /// Refused because a store's journal cannot be written: the same.
    bool isNotJournalled = false;
};

/// An editing session: what its users do to the points of some clouds, in one order of undo and redo.
///
/// Every edit is in the journals of the stores before a point changes (`EditJournalling`). So undo and redo
/// have no limit, and go on where another session, or a program that was killed, left off. An edit of several
/// clouds is one step: it is done in all stores or in none. Undo takes back the newest step that is in
/// effect, redo does again what was undone last, until something new is edited.
///
/// Operations run one at a time on the session's own thread. A call that starts one returns false, and does
/// nothing, while another is running or its outcome has not been taken:
///
///     session.undo();
///     if (std::optional<EditOutcome> outcome = session.poll()) ... // each frame
///     EditOutcome outcome = session.wait();                       // or this, or a callback
///
/// Coordinates are those of the world, where the clouds stand in the scene at the call; pixels count from the
/// window's top left, y down. No viewer is needed. The views that are registered with `PCViewerManager` are
/// asked for a redraw after each change.
///
/// Threads: any thread may call `cancel`, `progress`, `isBusy`, `hasOutcome`, `poll`, `wait`, `steps`. All
/// else belongs to one thread at a time, which may read the scene: mostly that of the frames, between frames
/// or in the event and update traversals.
class VEL_OSGDB_BRX_EXPORT EditSession
{
public:
    using Callback = std::function<void(const EditOutcome&)>;

    /// `author`: who edits, for the journals; empty for the login name.
    explicit EditSession(std::string author = "");

    /// Waits for the operation that runs; `cancel` before to take it back. What was edited is in the
    /// journals. A callback may be called until then. Not from a callback.
    ~EditSession();

    EditSession(const EditSession&) = delete;
    EditSession& operator=(const EditSession&) = delete;

    /// \name Clouds
    /// The session observes them: one that is closed is left out from then on.
    /// @{

    /// Takes a cloud into the session and switches its journal on. What a program that was killed left half
    /// done is finished, and classes that were not saved are there again, as not saved; `note` is a line that
    /// says so, else empty. A failure says what is wrong with the
    /// journal. The cloud is in the session all the same, and edits of it are refused, as those of a store
    /// that is read-only or that another program edits. Not while an operation runs on the cloud.
    VelBrx::Status addCloud(OctreeInfo& octree, std::string& note);

    /// Its edits stay, and are no longer undone here.
    void removeCloud(const OctreeInfo& octree);

    /// Whether pictures show the cloud, true at first. Edits leave a cloud alone that they do not show,
    /// unless the selection says `undrawnToo`; undo, redo, save and reset reach it all the same. Unknown
    /// clouds are ignored.
    void setDrawn(const OctreeInfo& octree, bool drawn);
    /// @}

    /// \name Operations
    /// Each returns false, and does nothing, while `isBusy`.
    /// @{

    /// Hides the visible points of a selection, of all stores, whether their cells are loaded or not.
    bool hide(const PointSelection& selection);

    /// Brings the hidden points of a selection back, whoever hid them. Its undo hides them again.
    bool show(const PointSelection& selection);

    /// Gives the visible points of a selection another class, hidden ones too where it says `undrawnToo`. The
    /// stores have it once it is saved; until then the program shows it, and the journals keep it.
    bool classify(const PointSelection& selection, const Classification& change);

    /// Counts the points that `classify` would reach, by class.
    bool count(const PointSelection& selection);

    /// Writes the classes into the stores. It is no step: undo goes back past it. What could not be written
    /// stays unsaved.
    bool save();

    /// Gives every point the class that is in its store; one step.
    bool dropUnsaved();

    /// Brings every hidden point of the stores back, whoever hid it and when; one step.
    bool reset();

    /// Takes the newest step back that is in effect, whoever made it and when.
    bool undo();

    /// Does the step again that was undone last, unless something was edited since.
    bool redo();

    /// Brings the stores to how they were when they were added, and takes the host's own steps back.
    bool undoAll();

    /// Brings the stores to how they were right behind the step of this time, forwards or backwards; 0 is
    /// before all steps that the journals know.
    bool stepTo(int64_t time);
    /// @}

    /// The user's choice to edit the stores all the same that another program edits, or whose journals cannot
    /// be written, as `isBusyElsewhere` and `isNotJournalled` of the last outcome told. Of these the steps
    /// are in a temporary journal from now on, which begins empty and ends with the process; the others keep
    /// theirs. False, and nothing is done, while `isBusy`.
    bool editWithoutJournal();

    /// \name The running operation
    /// @{

    /// Ends it as soon as can be: nothing has changed then, or what was done already is taken back. A save
    /// goes on. Where all was done already, the outcome says that.
    void cancel();

    /// 0 to 1; 1 while none runs.
    double progress() const;

    /// An operation is running, or its outcome has not been taken.
    bool isBusy() const;

    /// Whether `poll` would return something.
    bool hasOutcome() const;

    /// Once for each operation, when it has ended. Nothing where a callback is set.
    std::optional<EditOutcome> poll();

    /// Waits until the running operation has ended, and its callback has returned; what came of it, or of
    /// the last one where none runs. Not from a callback.
    EditOutcome wait();

    /// Takes the outcomes from now on, one after the other on the session's thread. The session is free when
    /// it is called, so that it may start the next operation. Call it while nothing runs.
    void setCallback(Callback callback);
    /// @}

    /// Every step of the clouds' journals and every own step, the oldest first, those that were taken back
    /// too; as of the last operation that ended.
    std::vector<EditStep> steps() const;

    /// Number of points whose class is not saved, by the path of their store; without stores that have none.
    /// Any thread.
    std::map<std::string, uint64_t> unsavedPoints() const;

    /// By the path of the store and by class, the points that have it as edited less those that have it in
    /// the file: what unsaved classes add to counts over files. Without stores that have none. While an
    /// operation runs, something between before and after it. Any thread.
    std::map<std::string, std::array<int64_t, 256>> unsavedDifference() const;

    /// A step of the host's own in the order of undo and redo, such as a selection in the picture, that has
    /// just been done. `undo` and `redo` are called by `undo`, `redo`, `undoAll` and `stepTo`, on their
    /// thread before they return; they do not call the session. False while `isBusy`.
    bool addOwnStep(std::string name, std::function<void()> undo, std::function<void()> redo);

private:
    class State;
    const std::unique_ptr<State> _state;
};

} // namespace VelOsgDBBrx
