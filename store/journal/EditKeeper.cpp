#include "store/journal/EditKeeper.h"

#include "store/io/UserName.h"
#include "store/journal/FieldOverlay.h"
#include "store/journal/StoreField.h"

#include <VelBrx/ReadErrors.h>

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx::Journal {

namespace {

/// Takes points in any order and gives them to an entry ascending, as far as the memory reaches: so runs are
/// long.
class SortedRuns
{
public:
    explicit SortedRuns(JournalFile& journal) : _journal(journal), _encoder(journal.number()) {}

    void add(uint64_t point, uint8_t before, uint8_t after)
    {
        _points.push_back({point, before, after});
        if (_points.size() >= kMostPoints) flush();
    }

    /// Ends the entry. One without points is taken back, and `count` is 0.
    Status finish(uint64_t& count)
    {
        flush();
        append();
        count = _encoder.points();
        if (_status && count > 0) return _journal.finish(count);
        _journal.cancel();
        return _status;
    }

private:
    struct Point
    {
        uint64_t point;
        uint8_t before;
        uint8_t after;
        bool operator<(const Point& other) const { return point < other.point; }
    };
    static constexpr size_t kMostPoints = size_t{1} << 22;

    void flush()
    {
        std::sort(_points.begin(), _points.end());
        for (const Point& one : _points) {
            _encoder.add(one.point, 1, one.before, one.after);
            if (_encoder.isFull()) append();
        }
        _points.clear();
    }

    void append()
    {
        const std::vector<uint8_t>& block = _encoder.finishBlock();
        if (_status && !block.empty()) _status = _journal.append(block);
    }

    JournalFile& _journal;
    RunEncoder _encoder;
    std::vector<Point> _points;
    Status _status;
};

void setBytes(FieldOverlay& overlay, uint8_t mask, const ChangeRun& run, bool forward)
{
    const uint8_t* const values = forward ? run.after : run.before;
    const size_t step = forward ? run.afterStep : run.beforeStep;
    for (uint64_t done = 0; done < run.count;) {
        uint64_t count = 0;
        uint8_t* const bytes = overlay.bytes(run.first + done, count);
        if (!bytes) return; // the store was checked when it was opened
        count = std::min(count, run.count - done);
        for (uint64_t i = 0; i < count; ++i)
            bytes[i] = static_cast<uint8_t>((bytes[i] & ~mask) | values[(done + i) * step]);
        done += count;
    }
}

MatchedStore matched(File& file, const BrxHeader& header)
{
    const auto length = static_cast<int64_t>(header.pointCount * PointRecord::kPointSize);
    const auto three = [](const double* values) {
        return std::array<double, 3>{values[0], values[1], values[2]};
    };
    return {static_cast<const uint8_t*>(file.map(header.pointDataStart, length)), header.pointCount,
            three(header.scale), three(header.offset)};
}

} // namespace

/// The edits, done one after the other in the new store.
class EditKeeper::Replay
{
public:
    Replay(EditKeeper& keeper, const PointMatch& match, const std::string& rebuilt)
        : _keeper(keeper), _old(keeper._old), _match(match), _rebuilt(rebuilt),
          _journal(rebuiltStore(keeper._store), JournalPlace::BESIDE_STORE)
    {
    }

    Status run(const EditHistory& history, File& file, const BrxHeader& header)
    {
        FileHeader journalHeader;
        journalHeader.storeId = header.storeId;
        journalHeader.pointCount = header.pointCount;
        Status status = _journal.create(journalHeader);
        if (status) status = _reader.open(_rebuilt).of(_rebuilt);
        if (!status) return status;
        _file = &file;
        _header = &header;
        for (const uint8_t field : {PointRecord::kFlags, PointRecord::kClass})
            _present.emplace_back(_reader, header.pointDataStart, header.pointCount, field);
        if (!history.entries.empty()) _earlierTime = history.entries.front().time - 1;
        for (const uint8_t field : {PointRecord::kFlags, PointRecord::kClass})
            if (status) status = doEarlier(field);
        _base = _journal.chain().state();
        _states.assign(history.entries.size(), 0);
        for (const EditEntry& entry : history.entries)
            if (status) status = doEntry(entry);
        if (status && !file.sync()) status = Status::failure(_rebuilt + ": the disk reported an error");
        return status ? _journal.mark() : status;
    }

private:
    uint64_t& stateOf(uint64_t oldChange) { return _states[oldChange - _old.chain().firstNumber()]; }
    uint64_t newState(uint64_t oldState) { return _old.chain().has(oldState) ? stateOf(oldState) : _base; }
    FieldOverlay& present(uint8_t field) { return _present[field == PointRecord::kClass]; }

    uint8_t presentByte(uint8_t field, uint64_t point)
    {
        uint64_t count = 0;
        const uint8_t* const byte = present(field).bytes(point, count);
        return byte ? *byte : 0;
    }

    /// What the old store had before the first entry of its journal.
    Status doEarlier(uint8_t field)
    {
        EntryHead head;
        head.kind = Kind::CHANGE;
        head.time = _earlierTime;
        head.field = field;
        head.mask = field == PointRecord::kClass ? 0xFF : PointRecord::kHiddenBits;
        head.other = _journal.chain().state();
        if (Status begun = _journal.begin(head, userName(getuid()), std::string()); !begun) return begun;
        SortedRuns runs(_journal);
        Status status = _keeper.visitEarlier([&](uint64_t point, uint8_t edited, uint8_t value) {
            if (edited != field) return;
            const uint64_t partner = _match.partner(point);
            if (partner == PointMatch::kNone) return;
            const uint8_t before = presentByte(field, partner) & head.mask;
            if (before != (value & head.mask)) runs.add(partner, before, value & head.mask);
        });
        uint64_t count = 0;
        const Status finished = runs.finish(count);
        if (status) status = finished;
        if (!status || count == 0) return status;
        ++_keeper._report.edits;
        return play(_journal.chain().lastNumber(), true, true);
    }

    Status doEntry(const EditEntry& entry)
    {
        if (entry.kind == EditEntry::Kind::CHANGE) return doChange(entry);
        if (entry.kind == EditEntry::Kind::SAVE) return doSave(entry);
        if (wasLost(entry.change)) return {};
        EntryHead head;
        head.time = entry.time;
        const bool forward = entry.kind == EditEntry::Kind::REDO;
        head.kind = forward ? Kind::REDO : Kind::UNDO;
        head.other = stateOf(entry.change);
        const Status status = _journal.write(head, entry.author, entry.operation);
        return status ? play(head.other, forward, !isDeferred(head.other)) : status;
    }

    Status doChange(const EditEntry& entry)
    {
        const JournalChain::Entry& old = _old.chain().entry(entry.number);
        EntryHead head;
        head.kind = Kind::CHANGE;
        head.time = entry.time;
        head.field = old.field;
        head.mask = old.mask;
        head.deferred = old.deferred;
        head.other = newState(old.other);
        if (Status begun = _journal.begin(head, entry.author, entry.operation); !begun) return begun;
        SortedRuns runs(_journal);
        Status status = _old.readRuns(entry.number, [&](const std::vector<ChangeRun>& changed) {
            for (const ChangeRun& run : changed)
                for (uint64_t i = 0; i < run.count; ++i) {
                    const uint64_t partner = _match.partner(run.first + i);
                    if (partner == PointMatch::kNone) continue;
                    runs.add(partner, presentByte(head.field, partner) & head.mask,
                             run.after[i * run.afterStep]);
                }
            return Status();
        });
        uint64_t count = 0;
        const Status finished = runs.finish(count);
        if (status) status = finished;
        if (!status) return status;
        stateOf(entry.number) = count > 0 ? _journal.chain().lastNumber() : head.other;
        ++(count > 0 ? _keeper._report.edits : _keeper._report.lostEdits);
        return count > 0 ? play(stateOf(entry.number), true, !head.deferred) : Status();
    }

    Status doSave(const EditEntry& entry)
    {
        const JournalChain& chain = _journal.chain();
        const std::vector<JournalChain::Step> steps = chain.unsavedPath(chain.savedState(), chain.state());
        EntryHead head;
        head.kind = Kind::SAVE;
        head.time = entry.time;
        Status status = _journal.write(head, entry.author);
        for (const JournalChain::Step& step : steps)
            if (status) status = play(step.change, step.forward, true);
        return status;
    }

    bool isDeferred(uint64_t change) const { return _journal.chain().entry(change).deferred; }

    /// None of its points is in the new store.
    bool wasLost(uint64_t oldChange)
    {
        return stateOf(oldChange) == newState(_old.chain().entry(oldChange).other);
    }

    Status play(uint64_t change, bool forward, bool inStore)
    {
        EntryHead head;
        std::unique_ptr<StoreField> field;
        return _journal.readRuns(change, head, [&](const std::vector<ChangeRun>& runs) {
            if (!field)
                field = std::make_unique<StoreField>(*_file, _header->pointDataStart, _header->pointCount,
                                                     head.field, head.mask);
            for (const ChangeRun& run : runs)
                setBytes(present(head.field), head.mask, run, forward);
            uint64_t changed = 0;
            return inStore ? field->set(runs, forward, changed).of(_rebuilt) : Status();
        });
    }

    EditKeeper& _keeper;
    const JournalFile& _old;
    const PointMatch& _match;
    const std::string _rebuilt;
    JournalFile _journal;
    FileReader _reader;
    File* _file = nullptr;
    const BrxHeader* _header = nullptr;
    std::vector<FieldOverlay> _present; ///< bytes of the new store with what is not saved: flags, classes
    int64_t _earlierTime = 0;
    uint64_t _base = 0;            ///< of the new journal: the state that the old one's first entry found
    std::vector<uint64_t> _states; ///< of the old changes in the new journal
};

EditKeeper::EditKeeper(const std::string& store) : _store(store), _old(store, JournalPlace::BESIDE_STORE) {}

EditKeeper::~EditKeeper()
{
    if (_isPending) unlink(journalPath(rebuiltStore(_store)).c_str());
}

Status EditKeeper::open()
{
    struct stat status
    {
    };
    if (stat(_store.c_str(), &status) != 0 && stat(journalPath(_store).c_str(), &status) != 0) return {};
    std::unique_ptr<File> file;
    if (Status opened = openStore(_store, _info, file); !opened) return opened;
    const BrxHeader& header = _info.header;
    const std::shared_ptr<File> shared = std::move(file);
    const Status locked =
        EditJournal::open({_store, shared, header.storeId, header.pointCount, header.pointDataStart}, _lock);
    if (!locked) return locked;
    _file = shared;
    unlink(journalPath(rebuiltStore(_store)).c_str()); // of a build that was killed
    if (const Status told = AsBuilt::open(_store, _file, _built); !told)
        _note = told.message() + "; edits that are in no journal are not kept";
    return {};
}

/// Visits points with the values that the old store had of them in front of the journal, where it was built
/// with others.
Status EditKeeper::visitEarlier(const PointVisitor& visit) const
{
    if (!_built.isOpen()) return {};
    const BrxHeader& header = _info.header;
    FileReader reader;
    if (Status status = reader.open(_store).of(_store); !status) return status;
    FieldOverlay flags(reader, header.pointDataStart, header.pointCount, PointRecord::kFlags);
    FieldOverlay classes(reader, header.pointDataStart, header.pointCount, PointRecord::kClass);
    const JournalChain& chain = _old.chain();
    for (uint64_t number = chain.lastNumber(); number >= chain.firstNumber(); --number) {
        if (chain.entry(number).kind != Kind::CHANGE) continue;
        EntryHead head;
        const Status status = _old.readRuns(number, head, [&](const std::vector<ChangeRun>& runs) {
            for (const ChangeRun& run : runs)
                setBytes(head.field == PointRecord::kClass ? classes : flags, head.mask, run, false);
            return Status();
        });
        if (!status) return status;
    }
    for (uint64_t first = 0, count = 0; first < header.pointCount; first += count) {
        const uint8_t* const oldFlags = flags.bytes(first, count);
        const uint8_t* const oldClasses = classes.bytes(first, count);
        if (!oldFlags || !oldClasses) return Status::failure(_store + ": cannot be read; check the disk");
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t point = first + i;
            const uint8_t hidden = oldFlags[i] & PointRecord::kHiddenBits;
            if (_built.wasHidden(point) != (hidden != 0)) visit(point, PointRecord::kFlags, hidden);
            if (_built.classOf(point) != oldClasses[i]) visit(point, PointRecord::kClass, oldClasses[i]);
        }
    }
    return {};
}

Status EditKeeper::askForPoints(PointMatch& match) const
{
    const JournalChain& chain = _old.chain();
    for (uint64_t number = chain.firstNumber(); number <= chain.lastNumber(); ++number) {
        if (chain.entry(number).kind != Kind::CHANGE) continue;
        const Status status = _old.readRuns(number, [&](const std::vector<ChangeRun>& runs) {
            for (const ChangeRun& run : runs)
                match.ask(run.first, run.count);
            return Status();
        });
        if (!status) return status;
    }
    return visitEarlier([&](uint64_t point, uint8_t, uint8_t) { match.ask(point, 1); });
}

Status EditKeeper::write(const std::string& rebuilt, uint64_t memory, ParallelRun& run)
{
    if (!_file) return {};
    EditHistory history;
    Status status = _old.open(JournalFile::Access::READ);
    if (status) status = readEditHistory(_store, history);
    StoreInfo info;
    std::unique_ptr<File> file;
    if (status) status = openStore(rebuilt, info, file);
    if (!status) return status;
    const MatchedStore from = matched(*_file, _info.header);
    const MatchedStore to = matched(*file, info.header);
    if (!from.records || !to.records) return Status::failure(_store + ": was cut; restore it from a copy");
    PointMatch match(from, to);
    status = askForPoints(match);
    if (status) status = match.run(folderOf(_store), memory, run);
    if (status) status = checkReads(*_file).of(_store);
    if (!status || (!_old.exists() && match.asked() == 0)) return status;
    _report.points = match.asked();
    _report.lostPoints = match.asked() - match.found();
    _isPending = true;
    return Replay(*this, match, rebuilt).run(history, *file, info.header);
}

Status EditKeeper::giveName()
{
    if (!_isPending) return {};
    _isPending = false; // the store has its name: this is its journal
    return settleRebuilt(_store);
}

} // namespace VelBrx::Journal
