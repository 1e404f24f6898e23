#include <VelBrx/EditHistory.h>

#include <VelBrx/File.h>

#include "store/ProblemList.h"
#include "store/StoreHead.h"
#include "store/io/OutputFile.h"
#include "store/journal/FieldOverlay.h"
#include "store/journal/JournalFile.h"

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <new>

namespace VelBrx {

using namespace Journal;

namespace {

EditEntry::Kind publicKind(Kind kind)
{
    switch (kind) {
    case Kind::UNDO:
        return EditEntry::Kind::UNDO;
    case Kind::REDO:
        return EditEntry::Kind::REDO;
    case Kind::SAVE:
        return EditEntry::Kind::SAVE;
    default:
        return EditEntry::Kind::CHANGE;
    }
}

/// Notes which changes the present state has, and which are not in the store.
void noteStates(const JournalChain& chain, std::vector<EditEntry>& entries)
{
    const auto entryOf = [&](uint64_t number) -> EditEntry& { return entries[number - chain.firstNumber()]; };
    for (const JournalChain::Step& step : chain.path(chain.header().base, chain.state()))
        entryOf(step.change).isDone = true;
    for (const JournalChain::Step& step : chain.unsavedPath(chain.savedState(), chain.state()))
        entryOf(step.change).isUnsaved = true;
    for (uint64_t number = chain.firstPending(); number <= chain.lastNumber(); ++number)
        entryOf(number).isUnfinished = true;
}

/// The check of a journal and of a store's bytes against it: all that was done is thought undone, newest
/// first. For many points it is repeated for one part of them after the other.
class EditCheck
{
public:
    EditCheck(const FileReader& store, const BrxHeader& header, const JournalFile& journal)
        : _chain(journal.chain()), _journal(journal), _pointCount(header.pointCount),
          _flags(store, header.pointDataStart, header.pointCount, PointRecord::kFlags),
          _classes(store, header.pointDataStart, header.pointCount, PointRecord::kClass)
    {
    }

    std::vector<std::string> run()
    {
        constexpr uint64_t kPart = uint64_t{1} << 28;
        for (_first = 0; _first < _pointCount && _status; _first += kPart) {
            _end = std::min(_pointCount, _first + kPart);
            checkPart();
            _flags.clear();
            _classes.clear();
        }
        if (!_status) _problems.add("journal", _status.message());
        return _problems.lines();
    }

private:
    void checkPart()
    {
        finishPending();
        for (const JournalChain::Step& step : _chain.unsavedPath(_chain.savedState(), _chain.state()))
            take(step.change, step.forward, true);
        for (uint64_t number = _chain.lastNumber(); number >= _chain.firstNumber(); --number) {
            const JournalChain::Entry& entry = _chain.entry(number);
            if (entry.kind == Kind::CHANGE) take(number, false, true);
            if (entry.kind == Kind::UNDO) take(entry.other, true, true);
            if (entry.kind == Kind::REDO) take(entry.other, false, true);
        }
    }

    /// Does what the next program would do that opens the store.
    void finishPending()
    {
        for (uint64_t number = _chain.firstPending(); number <= _chain.lastNumber(); ++number) {
            const JournalChain::Entry& entry = _chain.entry(number);
            const uint64_t change = entry.kind == Kind::CHANGE ? number : entry.other;
            if (entry.kind == Kind::SAVE)
                for (const JournalChain::Step& step :
                     _chain.unsavedPath(_chain.savedStateAfter(number - 1), entry.state))
                    take(step.change, step.forward, false);
            else if (!_chain.entry(change).deferred)
                take(change, entry.kind != Kind::UNDO, false);
        }
    }

    /// Gives the points of a change the bytes behind it or those before; where they are checked they must
    /// have the others.
    void take(uint64_t change, bool forward, bool isChecked)
    {
        if (!_status) return;
        EntryHead head;
        uint64_t wrong = 0;
        uint64_t firstWrong = 0;
        _status = _journal.readRuns(change, head, [&](const std::vector<ChangeRun>& runs) -> Status {
            FieldOverlay& overlay = head.field == PointRecord::kFlags ? _flags : _classes;
            for (const ChangeRun& run : runs)
                if (Status status = take(overlay, head.mask, run, forward, wrong, firstWrong); !status)
                    return status;
            return {};
        });
        if (wrong > 0 && isChecked)
            _problems.add("edited points",
                          "edit " + std::to_string(change) + ": " + std::to_string(wrong) +
                              " of its points are not as the journal says, the first is point " +
                              std::to_string(firstWrong));
    }

    Status take(FieldOverlay& overlay, uint8_t mask, const ChangeRun& run, bool forward, uint64_t& wrong,
                uint64_t& firstWrong) const
    {
        const uint8_t* const from = forward ? run.before : run.after;
        const uint8_t* const to = forward ? run.after : run.before;
        const size_t fromStep = forward ? run.beforeStep : run.afterStep;
        const size_t toStep = forward ? run.afterStep : run.beforeStep;
        const uint64_t end = std::min(run.first + run.count, _end);
        for (uint64_t point = std::max(run.first, _first); point < end;) {
            uint64_t count = 0;
            uint8_t* const bytes = overlay.bytes(point, count);
            if (!bytes) return Status::failure("the points of the store cannot all be read");
            count = std::min(count, end - point);
            for (uint64_t i = 0; i < count; ++i) {
                const uint64_t place = point + i - run.first;
                if ((bytes[i] & mask) != from[place * fromStep] && wrong++ == 0) firstWrong = point + i;
                bytes[i] = static_cast<uint8_t>((bytes[i] & ~mask) | to[place * toStep]);
            }
            point += count;
        }
        return {};
    }

    const JournalChain& _chain;
    const JournalFile& _journal;
    const uint64_t _pointCount;
    uint64_t _first = 0; ///< the part that is checked
    uint64_t _end = 0;
    FieldOverlay _flags;
    FieldOverlay _classes;
    ProblemList _problems;
    Status _status;
};

/// The last entry of those before `time` that nothing behind it needs.
uint64_t lastToForget(const JournalChain& chain, const std::vector<int64_t>& times, int64_t time)
{
    const uint64_t first = chain.firstNumber();
    uint64_t last = first - 1;
    while (last < chain.lastNumber() && times[last + 1 - first] < time)
        ++last;
    last = std::min(last, chain.firstPending() - 1);
    uint64_t needed = chain.lastNumber() + 1; // the first change that an entry behind `last` takes back
    uint64_t looked = chain.lastNumber() + 1; // entries from here on were looked at
    for (; last >= first; --last) {
        for (; looked > last + 1; --looked) {
            const JournalChain::Entry& entry = chain.entry(looked - 1);
            if (entry.kind == Kind::UNDO || entry.kind == Kind::REDO) needed = std::min(needed, entry.other);
        }
        if (needed > last && chain.unsavedPath(chain.savedStateAfter(last), chain.stateAfter(last)).empty())
            break;
    }
    return last;
}

/// Writes the journal anew from the entry behind `last` on.
Status rewrite(const JournalFile& journal, const FileReader& bytes, uint64_t last)
{
    const JournalChain& chain = journal.chain();
    FileHeader header = chain.header();
    header.forgotten = last;
    header.base = chain.stateAfter(last);
    const uint64_t start = chain.has(last + 1) ? chain.entry(last + 1).position : chain.end();
    OutputFile output;
    if (Status status = output.create(journal.path(), true, kUnit + chain.end() - start); !status)
        return status;
    const Unit head = encodeHeader(header);
    Status status = output.write(0, head.data(), head.size());
    std::vector<uint8_t> buffer(1 << 20);
    for (uint64_t done = start; status && done < chain.end();) {
        const uint64_t count = std::min<uint64_t>(buffer.size(), chain.end() - done);
        if (!bytes.read(static_cast<int64_t>(done), buffer.data(), count))
            return Status::failure(journal.path() + ": cannot be read; check the disk");
        status = output.write(kUnit + done - start, buffer.data(), count);
        done += count;
    }
    return status ? output.commit() : status;
}

} // namespace

std::string journalPath(const std::string& store)
{
    return store + ".edits";
}

Status Journal::readHistory(const JournalFile& journal, EditHistory& history)
{
    EditHistory read;
    const JournalChain& chain = journal.chain();
    read.exists = journal.exists();
    read.forgotten = chain.header().forgotten;
    read.base = chain.header().base;
    read.state = chain.state();
    if (!read.exists) {
        history = read;
        return {};
    }
    read.unfinishedBytes = journal.tailLength();
    const Status visited = journal.visitEntries([&](const EntryHead& head, const std::string& author,
                                                    const std::string& operation, uint64_t position) {
        EditEntry entry;
        entry.number = head.number;
        entry.time = head.time;
        entry.kind = publicKind(head.kind);
        entry.author = author;
        entry.operation = operation;
        entry.points = head.points;
        entry.field = head.field;
        entry.change = head.kind == Kind::CHANGE ? 0 : head.other;
        entry.position = position;
        read.entries.push_back(std::move(entry));
    });
    if (!visited) return visited;
    noteStates(chain, read.entries);
    history = std::move(read);
    return {};
}

Status readEditHistory(const std::string& store, EditHistory& history)
try {
    JournalFile journal(store, JournalPlace::BESIDE_STORE);
    const Status opened = journal.open(JournalFile::Access::READ);
    return opened ? readHistory(journal, history) : opened;
} catch (const std::bad_alloc&) {
    return Status::failure(journalPath(store) + ": needs more memory than there is; close other programs",
                           Status::Kind::NO_MEMORY);
}

Status Journal::visitChanges(const JournalFile& journal, const std::vector<uint64_t>& changes,
                             const ChangeVisitor& visit)
{
    for (const uint64_t change : changes) {
        if (!journal.chain().has(change) || !journal.chain().isState(change))
            return Status::failure(journal.path() + ": has no change " + std::to_string(change));
        const Status read = journal.readRuns(change, [&](const std::vector<ChangeRun>& runs) {
            for (const ChangeRun& run : runs)
                visit(change, run.first, run.count);
            return Status();
        });
        if (!read) return read;
    }
    return {};
}

Status visitChanges(const std::string& store, const std::vector<uint64_t>& changes,
                    const ChangeVisitor& visit)
{
    if (changes.empty()) return {};
    FileReader file;
    StoreHead head;
    StoreIndex index;
    JournalFile journal(store, JournalPlace::BESIDE_STORE);
    Status status = readStore(store, file, head, index);
    if (status) status = journal.open(JournalFile::Access::READ);
    if (status && journal.exists()) status = journal.checkStore(head.header.storeId, head.header.pointCount);
    return status ? Journal::visitChanges(journal, changes, visit) : status;
}

Status effectiveEdits(const EditHistory& history, uint64_t first, uint64_t last,
                      std::vector<uint64_t>& changes)
{
    const uint64_t kept = history.forgotten + 1;
    const uint64_t end = history.forgotten + history.entries.size();
    if (first < kept || last > end || first > last)
        return Status::failure("there are no entries " + std::to_string(first) + " to " +
                               std::to_string(last) + ", but " + std::to_string(kept) + " to " +
                               std::to_string(end));
    // A change that is taken back within the range is the last one of those that are in effect.
    changes.clear();
    for (uint64_t number = first; number <= last; ++number) {
        const EditEntry& entry = history.entries[number - kept];
        if (entry.kind == EditEntry::Kind::CHANGE) changes.push_back(number);
        if (entry.kind == EditEntry::Kind::REDO) changes.push_back(entry.change);
        if (entry.kind != EditEntry::Kind::UNDO) continue;
        if (changes.empty())
            return Status::failure("entry " + std::to_string(number) + " takes edit " +
                                   std::to_string(entry.change) + " back; begin there");
        changes.pop_back();
    }
    return {};
}

bool needsRecovery(const std::string& store)
{
    JournalFile journal(store, JournalPlace::BESIDE_STORE);
    return journal.open(JournalFile::Access::READ) && journal.exists() &&
           (journal.tailLength() > 0 || journal.chain().firstPending() <= journal.chain().lastNumber());
}

std::vector<std::string> verifyEdits(const std::string& store)
try {
    JournalFile journal(store, JournalPlace::BESIDE_STORE);
    if (const Status opened = journal.open(JournalFile::Access::READ); !opened) return {opened.message()};
    if (!journal.exists()) return {};
    FileReader file;
    StoreHead head;
    StoreIndex index;
    if (const Status read = readStore(store, file, head, index); !read) return {};
    if (const Status fits = journal.checkStore(head.header.storeId, head.header.pointCount); !fits)
        return {fits.message()};
    return EditCheck(file, head.header, journal).run();
} catch (const std::bad_alloc&) {
    return {"the journal needs more memory than there is; close other programs"};
}

Status forgetEdits(const std::string& store, int64_t before, uint64_t& forgotten)
{
    forgotten = 0;
    File file(store.c_str());
    if (Status status = file.lockForEditing(); !status) return status.of(store);
    JournalFile journal(store, JournalPlace::BESIDE_STORE);
    if (Status status = journal.open(JournalFile::Access::WRITE); !status || !journal.exists()) return status;
    std::vector<int64_t> times;
    const auto visit = [&](const EntryHead& head, const std::string&, const std::string&, uint64_t) {
        times.push_back(head.time);
    };
    if (Status status = journal.visitEntries(visit); !status) return status;
    const uint64_t last = lastToForget(journal.chain(), times, before);
    forgotten = last - journal.chain().header().forgotten;
    if (forgotten == 0) return {};
    FileReader bytes;
    Status status = bytes.open(journal.path()).of(journal.path());
    if (status) status = rewrite(journal, bytes, last);
    if (!status) forgotten = 0;
    return status;
}

} // namespace VelBrx
