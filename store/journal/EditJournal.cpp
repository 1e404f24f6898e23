#include <VelBrx/EditJournal.h>

#include <VelBrx/EditHistory.h>
#include <VelBrx/StoreInfo.h>

#include "store/StoreIndex.h"
#include "store/io/UserName.h"
#include "store/journal/JournalFile.h"
#include "store/journal/StoreField.h"

#include <chrono>
#include <map>
#include <new>

#include <unistd.h>

namespace VelBrx {

using namespace Journal;

namespace {

constexpr uint64_t kSaveInterrupted = ~uint64_t{0};
constexpr uint64_t kMostUnmarked = uint64_t{64} << 20; ///< bytes of entries that a recovery reads again
constexpr uint64_t kEntryCost = 1 << 20;               ///< counted for each entry besides

/// The journals of this process.
struct OpenJournals
{
    using Key = std::pair<FileIdentity, JournalPlace>;

    VelThreads::Mutex mutex;
    std::map<Key, std::weak_ptr<EditJournal>> byFile VEL_GUARDED_BY(mutex);
};

/// Lives as long as the process: journals may end after static objects.
OpenJournals& openJournals()
{
    static auto* const all = new OpenJournals;
    return *all;
}

/// What the users of a journal share. A journal ends under the mutex, so that whoever opens the next one
/// finds the file free.
struct SharedJournal
{
    std::unique_ptr<EditJournal> journal;

    SharedJournal() = default;
    ~SharedJournal()
    {
        if (!journal) return;
        const VelThreads::Lock guard(openJournals().mutex);
        journal.reset();
    }
    SharedJournal(const SharedJournal&) = delete;
    SharedJournal& operator=(const SharedJournal&) = delete;
};

std::string authorOf(const std::string& given)
{
    return given.empty() ? userName(getuid()) : given;
}

void visitRuns(const std::vector<ChangeRun>& runs, bool forward, const JournalChain::Entry& entry,
               const EditVisitor& visit)
{
    if (!visit) return;
    for (const ChangeRun& run : runs)
        visit({run.first, run.count, forward ? run.after : run.before,
               forward ? run.afterStep : run.beforeStep, entry.field, entry.deferred});
}

/// The name of the cell that a point of the store at `path` is in.
std::string cellOf(const std::string& path, uint64_t point)
{
    StoreInfo info;
    if (!readStoreInfo(path, info)) return "unknown";
    const auto place = static_cast<int64_t>(point);
    for (const CellWithSegment& cell : info.cells)
        for (const Segment& segment : cell.segments)
            if (place >= segment.first && place - segment.first < segment.count)
                return cellName(static_cast<unsigned>(cell.level), cell.code);
    return "unknown";
}

} // namespace

int64_t editTimeNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

Status EditJournal::open(const JournalledStore& store, std::shared_ptr<EditJournal>& journal)
{
    const bool isTemporary = store.place == JournalPlace::TEMPORARY;
    if (!store.file || (!isTemporary && !store.file->isWritable()))
        return Status::failure(store.path + ": cannot be written; make it writable to edit it");
    journal.reset(); // not under the mutex, which the end of a journal takes
    const auto shared = std::make_shared<SharedJournal>(); // nothing may be thrown once there is a journal
    OpenJournals& all = openJournals();
    const VelThreads::Lock guard(all.mutex);
    std::weak_ptr<EditJournal>& known = all.byFile[{store.file->identity(), store.place}];
    journal = known.lock();
    if (journal) return {};
    std::unique_ptr<EditJournal> opened(new EditJournal(store));
    if (Status status = opened->start(); !status) return status;
    opened->_isStarted = true;
    shared->journal = std::move(opened);
    journal = std::shared_ptr<EditJournal>(shared, shared->journal.get());
    known = journal;
    return {};
}

Status EditJournal::open(const std::string& path, std::shared_ptr<EditJournal>& journal)
{
    StoreInfo info;
    std::unique_ptr<File> file;
    if (Status status = openStore(path, info, file); !status) return status;
    const BrxHeader& header = info.header;
    return open({path, std::move(file), header.storeId, header.pointCount, header.pointDataStart}, journal);
}

EditJournal::EditJournal(const JournalledStore& store)
    : _store(store), _journal(std::make_unique<JournalFile>(store.path, store.place))
{
}

EditJournal::~EditJournal()
{
    if (!_isStarted) return;
    try {
        (void)checkpoint();
    } catch (const std::bad_alloc&) { // what could not be done is finished by the next who opens the store
    }
}

Status EditJournal::start()
{
    if (Status status = _store.file->lockForEditing(); !status) return ofStore(status);
    const VelThreads::Lock guard(_mutex);
    if (Status status = _journal->open(JournalFile::Access::WRITE); !status) return status;
    if (!_journal->exists()) return {};
    if (Status status = _journal->checkStore(_store.storeId, _store.pointCount); !status) return status;
    const uint64_t end = _journal->chain().end();
    const bool hadTail = _journal->tailLength() > 0;
    if (Status status = _journal->cutTail(); !status) return status;
    _recovery.cutUnfinished = hadTail || _journal->chain().end() != end;
    Status status = recover(_recovery.pointsFinished);
    if (status) status = mark();
    const JournalChain& chain = _journal->chain();
    _recovery.hasUnsaved = !chain.unsavedPath(chain.savedState(), chain.state()).empty();
    return status;
}

/// Does everything again that may not be in the store. An older state may be there in part of the points, and
/// a newer one in others: bytes are set whatever they are.
Status EditJournal::recover(uint64_t& points)
{
    const JournalChain& chain = _journal->chain();
    const auto replay = [&](uint64_t change, bool forward) {
        _mutex.assertHeld();
        return play(change, forward, true, nullptr, points);
    };
    for (uint64_t number = chain.firstPending(); number <= chain.lastNumber(); ++number) {
        const JournalChain::Entry& entry = chain.entry(number);
        const bool isChange = entry.kind == Kind::CHANGE;
        Status status;
        if (entry.kind == Kind::SAVE) {
            const uint64_t from = chain.savedStateAfter(number - 1);
            for (const JournalChain::Step& step : chain.unsavedPath(from, entry.state))
                if (status) status = replay(step.change, step.forward);
        } else if (!chain.entry(isChange ? number : entry.other).deferred)
            status = replay(isChange ? number : entry.other, entry.kind != Kind::UNDO);
        if (!status) return status;
    }
    return {};
}

uint64_t EditJournal::state() const
{
    const VelThreads::Lock guard(_mutex);
    return _journal->chain().state();
}

uint64_t EditJournal::savedState() const
{
    const VelThreads::Lock guard(_mutex);
    return _journal->chain().savedState();
}

uint64_t EditJournal::unsavedPoints() const
{
    uint64_t points = 0;
    const Status counted = visitUnsaved([&](const EditedPoints& edited) { points += edited.count; });
    return counted ? points : 0;
}

Status EditJournal::findState(uint64_t entry, uint64_t& state) const
{
    const VelThreads::Lock guard(_mutex);
    const JournalChain& chain = _journal->chain();
    if (!chain.has(entry) && entry != chain.header().forgotten)
        return Status::failure(_journal->path() + ": has no entry " + std::to_string(entry) + ", but " +
                               std::to_string(chain.header().forgotten) + " to " +
                               std::to_string(chain.lastNumber()));
    state = chain.stateAfter(entry);
    return {};
}

Status EditJournal::findPrevious(uint64_t change, uint64_t& state) const
{
    const VelThreads::Lock guard(_mutex);
    const JournalChain& chain = _journal->chain();
    if (!chain.has(change) || !chain.isState(change))
        return Status::failure(_journal->path() + ": has no change " + std::to_string(change));
    state = chain.entry(change).other;
    return {};
}

Status EditJournal::play(uint64_t change, bool forward, bool inStore, const EditVisitor& visit,
                         uint64_t& points)
{
    const JournalChain::Entry& entry = _journal->chain().entry(change);
    EntryHead head;
    std::unique_ptr<StoreField> field;
    return _journal->readRuns(change, head, [&](const std::vector<ChangeRun>& runs) -> Status {
        if (inStore && !field)
            field = std::make_unique<StoreField>(*_store.file, _store.pointDataStart, _store.pointCount,
                                                 head.field, head.mask);
        if (inStore)
            if (Status status = field->set(runs, forward, points); !status) return ofStore(status);
        visitRuns(runs, forward, entry, visit);
        return {};
    });
}

/// Whether each point of a change has the byte that it had before it or the one that it had behind it.
Status EditJournal::check(uint64_t change) const
{
    EntryHead head;
    std::unique_ptr<StoreField> field;
    return _journal->readRuns(change, head, [&](const std::vector<ChangeRun>& runs) -> Status {
        if (!field)
            field = std::make_unique<StoreField>(*_store.file, _store.pointDataStart, _store.pointCount,
                                                 head.field, head.mask);
        if (!field->records()) return Status::failure(_store.path + ": was cut; restore it from a copy");
        uint64_t point = 0;
        if (field->agrees(runs, point)) return {};
        return Status::failure(_store.path + ": point " + std::to_string(point) + " of cell " +
                               cellOf(_store.path, point) + " was changed by something else after edit " +
                               std::to_string(change) + ", which was left as it is");
    });
}

/// Finishes what could not be done because the disk was full.
Status EditJournal::finishInterrupted()
{
    if (!_interrupted) return {};
    uint64_t points = 0;
    const Status status = recover(points);
    if (status) _interrupted = 0;
    return status;
}

/// Brings the store to the disk and notes that, where anything is not yet.
Status EditJournal::mark()
{
    if (_journal->chain().firstPending() > _journal->chain().lastNumber()) return {};
    if (!_store.file->sync())
        return Status::failure(_store.path + ": the disk reported an error; check it and try again");
    _unmarkedBytes = 0;
    return _journal->mark();
}

Status EditJournal::begin(const EditDescription& edit)
{
    if (!_journal->exists()) {
        FileHeader header;
        header.storeId = _store.storeId;
        header.pointCount = _store.pointCount;
        if (Status status = _journal->create(header); !status) return status;
    }
    if (Status status = finishInterrupted(); !status) return status;
    if (!edit.deferred && !_store.file->isWritable())
        return Status::failure(_store.path + ": cannot be written; make it writable to edit it");
    if (_unmarkedBytes > kMostUnmarked)
        if (Status status = mark(); !status) return status;
    EntryHead head;
    head.time = edit.time;
    head.kind = Kind::CHANGE;
    head.field = edit.field;
    head.mask = edit.mask;
    head.deferred = edit.deferred;
    head.other = _journal->chain().state();
    return _journal->begin(head, authorOf(edit.author), edit.operation);
}

Status EditJournal::step(uint64_t change, bool forward, const EditDescription& by, const EditVisitor& visit,
                         uint64_t& points)
{
    const bool inStore = !_journal->chain().entry(change).deferred;
    if (_interrupted != change)
        if (Status status = finishInterrupted(); !status) return status;
    if (inStore)
        if (Status status = check(change); !status) return status;
    EntryHead head;
    head.kind = forward ? Kind::REDO : Kind::UNDO;
    head.other = change;
    head.time = by.time;
    if (Status status = _journal->write(head, authorOf(by.author), by.operation); !status) return status;
    _unmarkedBytes += kEntryCost;
    _interrupted = change;
    const Status status = play(change, forward, inStore, visit, points);
    if (status) _interrupted = 0;
    return status;
}

Status EditJournal::visitChanges(const std::vector<uint64_t>& changes, const ChangeVisitor& visit) const
{
    const VelThreads::Lock guard(_mutex);
    return Journal::visitChanges(*_journal, changes, visit);
}

Status EditJournal::readHistory(EditHistory& history) const
{
    const VelThreads::Lock guard(_mutex);
    return Journal::readHistory(*_journal, history);
}

Status EditJournal::moveTo(uint64_t state, const std::string& author, const EditVisitor& visit,
                           uint64_t& points)
{
    EditDescription by;
    by.author = author;
    return moveTo(state, by, visit, points);
}

Status EditJournal::moveTo(uint64_t state, const EditDescription& by, const EditVisitor& visit,
                           uint64_t& points)
{
    const VelThreads::Lock guard(_mutex);
    const JournalChain& chain = _journal->chain();
    if (!chain.isState(state))
        return Status::failure(_journal->path() + ": has no change " + std::to_string(state));
    for (const JournalChain::Step& one : chain.path(chain.state(), state))
        if (Status status = step(one.change, one.forward, by, visit, points); !status) return status;
    return finishInterrupted();
}

Status EditJournal::save(const std::string& author, uint64_t& points)
{
    const VelThreads::Lock guard(_mutex);
    if (Status status = finishInterrupted(); !status) return status;
    const JournalChain& chain = _journal->chain();
    const std::vector<JournalChain::Step> steps = chain.unsavedPath(chain.savedState(), chain.state());
    if (steps.empty()) return {};
    if (!_store.file->isWritable())
        return Status::failure(_store.path + ": cannot be written; make it writable and save again");
    if (!_store.file->isStillNamed())
        return Status::failure(_store.path + ": was moved or replaced; put it back and save again");
    EntryHead head;
    head.kind = Kind::SAVE;
    if (Status status = _journal->write(head, authorOf(author)); !status) return status;
    _interrupted = kSaveInterrupted;
    for (const JournalChain::Step& one : steps)
        if (Status status = play(one.change, one.forward, true, nullptr, points); !status) return status;
    _interrupted = 0;
    return mark();
}

Status EditJournal::visitUnsaved(const EditVisitor& visit) const
{
    const VelThreads::Lock guard(_mutex);
    return visitDeferred(_journal->chain().savedState(), _journal->chain().state(), visit);
}

Status EditJournal::visitSaved(const EditVisitor& visit) const
{
    const VelThreads::Lock guard(_mutex);
    return visitDeferred(_journal->chain().state(), _journal->chain().savedState(), visit);
}

Status EditJournal::visitDeferred(uint64_t from, uint64_t to, const EditVisitor& visit) const
{
    const JournalChain& chain = _journal->chain();
    for (const JournalChain::Step& one : chain.unsavedPath(from, to)) {
        const Status status = _journal->readRuns(one.change, [&](const std::vector<ChangeRun>& runs) {
            visitRuns(runs, one.forward, chain.entry(one.change), visit);
            return Status();
        });
        if (!status) return status;
    }
    return {};
}

Status EditJournal::checkpoint()
{
    const VelThreads::Lock guard(_mutex);
    if (Status status = finishInterrupted(); !status) return status;
    return mark();
}

EditRecorder::EditRecorder(EditJournal& journal) : _journal(journal), _lock(journal._mutex) {}

EditRecorder::~EditRecorder()
{
    _journal._mutex.assertHeld(); // so for all members: `_lock` has it
    if (_isOpen) _journal._journal->cancel();
}

Status EditRecorder::begin(const EditDescription& edit)
{
    _journal._mutex.assertHeld();
    const Status status = _journal.begin(edit);
    _isOpen = status.ok();
    return status;
}

Status EditRecorder::visitChange(uint64_t change, bool forward, const EditVisitor& visit) const
{
    _journal._mutex.assertHeld();
    const JournalFile& file = *_journal._journal;
    if (!file.chain().has(change) || !file.chain().isState(change))
        return Status::failure(file.path() + ": has no change " + std::to_string(change));
    return file.readRuns(change, [&](const std::vector<ChangeRun>& runs) {
        visitRuns(runs, forward, file.chain().entry(change), visit);
        return Status();
    });
}

uint64_t EditRecorder::number() const
{
    _journal._mutex.assertHeld();
    return _journal._journal->number();
}

Status EditRecorder::append(RunEncoder& runs)
{
    const uint64_t before = runs.points();
    const std::vector<uint8_t>& block = runs.finishBlock();
    _journal._mutex.assertHeld(); // for the recorder's threads
    const VelThreads::Lock guard(_appendMutex);
    if (!_status || block.empty()) return _status;
    _status = _journal._journal->append(block);
    _points += runs.points() - before;
    return _status;
}

Status EditRecorder::commit(uint64_t& number)
{
    number = 0;
    _journal._mutex.assertHeld();
    const VelThreads::Lock guard(_appendMutex);
    if (!_isOpen || !_status || _points == 0) return _status;
    JournalFile& file = *_journal._journal;
    _isOpen = false; // a failure of `finish` cancels
    if (Status status = file.finish(_points); !status) return status;
    number = _number = file.chain().lastNumber();
    if (!file.chain().entry(_number).deferred) _journal._interrupted = _number; // until `apply` is through
    _journal._unmarkedBytes += kEntryCost + file.chain().end() - file.chain().entry(number).position;
    return {};
}

Status EditRecorder::apply(const EditVisitor& visit, uint64_t& points)
{
    if (_number == 0) return {};
    _journal._mutex.assertHeld();
    const bool inStore = !_journal._journal->chain().entry(_number).deferred;
    const Status status = _journal.play(_number, true, inStore, visit, points);
    if (status) _journal._interrupted = 0;
    return status;
}

EditRuns::EditRuns(EditRecorder& recorder)
    : _recorder(recorder), _runs(std::make_unique<RunEncoder>(recorder.number()))
{
}

EditRuns::~EditRuns() = default;

void EditRuns::add(uint64_t first, uint64_t count, uint8_t before, uint8_t after)
{
    _runs->add(first, count, before, after);
    if (_runs->isFull()) (void)_recorder.append(*_runs); // `finish` tells
}

Status EditRuns::finish()
{
    return _recorder.append(*_runs);
}

} // namespace VelBrx
