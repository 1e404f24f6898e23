#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/File.h>
#include <VelBrx/PointRecord.h>
#include <VelBrx/Status.h>
#include <VelThreads/Mutex.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace VelBrx {

struct EditHistory;

namespace Journal {
class JournalFile;
class RunEncoder;
} // namespace Journal

/// Where the journal of a store is.
enum class JournalPlace
{
    BESIDE_STORE, ///< see `journalPath`
    TEMPORARY     ///< a file without a name in $TMPDIR, which ends with the last user of the journal
};

/// A store whose edits are written down.
struct JournalledStore
{
    std::string path;
    std::shared_ptr<File> file; ///< of the store; writable, but for deferred edits in a temporary journal
    uint64_t storeId = 0;
    uint64_t pointCount = 0;
    int64_t pointDataStart = 0; ///< byte position of the first point record
    JournalPlace place = JournalPlace::BESIDE_STORE;
};

/// What is written down about an edit besides its points.
struct EditDescription
{
    uint8_t field = PointRecord::kFlags;     ///< the byte of the point record that changes: kFlags or kClass
    uint8_t mask = PointRecord::kHiddenBits; ///< the bits of it that may change
    bool deferred = false;                   ///< the store's bytes change with the next `save`, as of classes
    int64_t time = 0;                        ///< microseconds since 1970, UTC; 0: now
    std::string author;                      ///< empty: the login name
    std::string operation;                   ///< JSON as scripts have it; not looked at
};

/// The time of an edit that is made now; one for all stores of the edit.
VEL_BRX_EXPORT int64_t editTimeNow();

/// Points that have got new bytes, or are to get them in memory where the edit is deferred.
struct EditedPoints
{
    uint64_t first; ///< record number in the store
    uint64_t count;
    const uint8_t* values; ///< of the byte under the mask: `values[i * step]` is that of the i-th point
    size_t step;
    uint8_t field;
    bool deferred;
};

/// Called with points after their bytes are in the store, on the thread that asked for the edit.
using EditVisitor = std::function<void(const EditedPoints&)>;

/// The journal of a store: every edit is on the disk before the store's bytes change, and can be taken back
/// and done again at any time later, by any program. Layout and protocol: docs/journal-format.md.
///
/// It belongs to the file, not to a name of it: all who edit a file in this process share it. Memory does not
/// grow with the points of an edit. The file is made with the first edit.
///
/// A temporary journal is for a user who goes on where none can be beside the store: it takes edits back
/// without memory, but outlives no process and finishes nothing that a kill broke off. It begins empty.
///
/// Threads: any; one edit, undo or save at a time, the others wait. The caller keeps readers that must not
/// see half an edit away from the store meanwhile.
class VEL_BRX_EXPORT EditJournal
{
public:
    /// What the last program that was killed had left, and what became of it.
    struct Recovery
    {
        uint64_t pointsFinished = 0; ///< points of edits that were half done and are done
        bool cutUnfinished = false;  ///< an edit was being written down; nothing of it is in the store
        bool hasUnsaved = false;     ///< there are points for `visitUnsaved`
    };

    /// Opens the journal of a store at its `place`, takes the store's lock for editing, and finishes what a
    /// killed program left. Fails where somebody else edits the store, or the journal is damaged or that of
    /// another store: the store is as before then.
    static Status open(const JournalledStore& store, std::shared_ptr<EditJournal>& journal);

    /// The same for a store that is not open.
    static Status open(const std::string& path, std::shared_ptr<EditJournal>& journal);

    ~EditJournal();
    EditJournal(const EditJournal&) = delete;
    EditJournal& operator=(const EditJournal&) = delete;

    /// What `open` found. Later callers of this process find the same.
    const Recovery& recovery() const { return _recovery; }

    /// The state of the store: the number of the change that led to it, 0 where there was none.
    uint64_t state() const;

    /// The state that the classes in the store belong to; changes from there to `state` are not saved.
    uint64_t savedState() const;

    /// Points of deferred changes between `savedState` and `state`, a point counted once for each change.
    uint64_t unsavedPoints() const;

    /// The state behind an entry of the history, such as an undo; fails where there is no such entry.
    Status findState(uint64_t entry, uint64_t& state) const;

    /// The state that a change was made on, to which its undo leads.
    Status findPrevious(uint64_t change, uint64_t& state) const;

    /// The entries until now.
    Status readHistory(EditHistory& history) const;

    /// The same as the function of `EditHistory.h`, for this journal, wherever it is.
    Status
    visitChanges(const std::vector<uint64_t>& changes,
                 const std::function<void(uint64_t change, uint64_t first, uint64_t count)>& visit) const;

    /// Brings the store to a state, forwards or backwards, change by change: each is checked, written down
    /// and done before the next. Ends at the first that does not fit the store's bytes, and says which cell
    /// differs. Deferred changes are only visited.
    Status moveTo(uint64_t state, const std::string& author, const EditVisitor& visit, uint64_t& points);

    /// The same with author, time and operation of `by` in each entry.
    Status moveTo(uint64_t state, const EditDescription& by, const EditVisitor& visit, uint64_t& points);

    /// Writes the deferred changes into the store, and brings it to the disk.
    Status save(const std::string& author, uint64_t& points);

    /// Visits the points of what is not saved, oldest change first.
    Status visitUnsaved(const EditVisitor& visit) const;

    /// Visits the same points with the bytes that the store has of them, newest change first.
    Status visitSaved(const EditVisitor& visit) const;

    /// Brings the store's bytes to the disk and notes that, so that nothing is left to be finished. The end
    /// of a journal does the same.
    Status checkpoint();

private:
    friend class EditRecorder;
    friend class EditRuns;
    struct Work;

    explicit EditJournal(const JournalledStore& store);
    Status start();
    Status recover(uint64_t& points) VEL_REQUIRES(_mutex);
    Status begin(const EditDescription& edit) VEL_REQUIRES(_mutex);
    Status play(uint64_t change, bool forward, bool inStore, const EditVisitor& visit, uint64_t& points)
        VEL_REQUIRES(_mutex);
    Status visitDeferred(uint64_t from, uint64_t to, const EditVisitor& visit) const VEL_REQUIRES(_mutex);
    Status check(uint64_t change) const VEL_REQUIRES(_mutex);
    Status finishInterrupted() VEL_REQUIRES(_mutex);
    Status mark() VEL_REQUIRES(_mutex);
    Status step(uint64_t change, bool forward, const EditDescription& by, const EditVisitor& visit,
                uint64_t& points) VEL_REQUIRES(_mutex);
    Status ofStore(const Status& status) const { return status.of(_store.path); }

    const JournalledStore _store;
    bool _isStarted = false; ///< before that a journal may be damaged, and nothing is written
    Recovery _recovery;
    mutable VelThreads::Mutex _mutex; ///< held for the time of an edit
    const std::unique_ptr<Journal::JournalFile> _journal VEL_PT_GUARDED_BY(_mutex);

    /// The change whose bytes could not all be set; ~0: those of a save.
    uint64_t _interrupted VEL_GUARDED_BY(_mutex) = 0;

    uint64_t _unmarkedBytes VEL_GUARDED_BY(_mutex) = 0; ///< about what was written since the last mark
};

/// A change that is being made. It has the journal to itself while it lives, and leaves everything as it was
/// where `commit` is not called or fails. One thread at a time, but for its `EditRuns`.
class VEL_BRX_EXPORT EditRecorder
{
public:
    /// Waits until other edits of the journal have ended. The journal outlives the recorder.
    explicit EditRecorder(EditJournal& journal);
    ~EditRecorder();
    EditRecorder(const EditRecorder&) = delete;
    EditRecorder& operator=(const EditRecorder&) = delete;

    /// Call first, also before the points are read: it may finish an older edit. Nothing may be recorded
    /// where it fails.
    Status begin(const EditDescription& edit);

    /// Visits the points of an older change with the bytes that they had before it, or, with `forward`,
    /// behind it.
    Status visitChange(uint64_t change, bool forward, const EditVisitor& visit) const;

    /// Brings the change to the disk: from here on it is done, whatever happens. Nothing is written down
    /// where no point changes; `number` is 0 then. After a failure nothing has changed.
    Status commit(uint64_t& number);

    /// Sets the store's bytes after `commit`. Where that fails, as on a full disk, some points have their
    /// bytes and others not; the next edit, undo or opening finishes it.
    Status apply(const EditVisitor& visit, uint64_t& points);

private:
    friend class EditRuns;
    uint64_t number() const;
    Status append(Journal::RunEncoder& runs);

    EditJournal& _journal;
    const VelThreads::Lock<VelThreads::Mutex> _lock;
    VelThreads::Mutex _appendMutex; ///< held also where runs are written into the journal's file
    Status _status VEL_GUARDED_BY(_appendMutex);
    uint64_t _points VEL_GUARDED_BY(_appendMutex) = 0;
    bool _isOpen = false;
    uint64_t _number = 0;
};

/// Hands points of a change to its recorder. Each thread that finds points has its own.
class VEL_BRX_EXPORT EditRuns
{
public:
    explicit EditRuns(EditRecorder& recorder);
    ~EditRuns();
    EditRuns(const EditRuns&) = delete;
    EditRuns& operator=(const EditRuns&) = delete;

    /// Consecutive points, at least one, `first` a record number, are to have `after` instead of `before`,
    /// both under the edit's mask. No point twice in a change, whichever thread adds it. Ascending points
    /// take the least room.
    void add(uint64_t first, uint64_t count, uint8_t before, uint8_t after);

    /// Writes what is left. Fails where anything of the change could not be written. Call before `commit`.
    Status finish();

private:
    EditRecorder& _recorder;
    const std::unique_ptr<Journal::RunEncoder> _runs;
};

} // namespace VelBrx
