#include "cull/JournalledEdit.h"

#include "edit/EditReplay.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/EditJournalling.h>

using VelBrx::EditedPoints;
using VelBrx::Status;
using VelOsgDBBrx::CmdResult;

namespace {

void noteFailure(CmdResult& result, const Status& status, bool isWritten)
{
    if (isWritten)
        ++result.cellsUnwritten;
    else if (status.kind() == Status::Kind::IN_USE)
        ++result.storesBusy;
    else
        ++result.storesNotJournalled;
    if (result.reason.empty()) result.reason = status.message();
}

/// Records that the points of an older change that are hidden are shown.
Status recordShown(const OctreeInfo& octree, VelBrx::EditRecorder& recorder, uint64_t change)
{
    VelBrx::EditRuns runs(recorder);
    const Status read = recorder.visitChange(change, false, [&](const EditedPoints& edited) {
        const auto place = octree.pointDataStart + static_cast<int64_t>(edited.first) * kRecordSize;
        const auto* const records = static_cast<const uint8_t*>(
            octree.pointFile->map(place, static_cast<int64_t>(edited.count) * kRecordSize));
        for (uint64_t i = 0; records && i < edited.count; ++i)
            if (const uint8_t hidden = records[i * kRecordSize + kFlagByte] & kHiddenBits)
                runs.add(edited.first + i, 1, hidden, 0);
    });
    const Status written = runs.finish();
    return read ? written : read;
}

} // namespace

JournalledEdit::JournalledEdit(OctreeInfo& octree, VelBrx::EditDescription edit, CmdResult& result)
    : _octree(octree), _result(result)
{
    Status status = VelOsgDBBrx::EditJournalling::open(octree, _journal);
    if (!status) {
        refuse(status);
        return;
    }
    _recorder.emplace(*_journal);
    if (edit.author.empty()) edit.author = octree.journalAuthor;
    status = _recorder->begin(edit);
    if (!status) {
        refuse(status);
        return;
    }
    _isOpen = true;
}

void JournalledEdit::refuse(const Status& status)
{
    noteFailure(_result, status, false);
}

uint64_t JournalledEdit::recordOf(const uint8_t* records) const
{
    return static_cast<uint64_t>(_octree.pointFile->offsetOf(records) - _octree.pointDataStart) / kRecordSize;
}

uint64_t JournalledEdit::finish(const Status& recorded)
{
    uint64_t number = 0;
    const Status written = recorded ? _recorder->commit(number) : recorded;
    if (!written) refuse(written);
    if (number == 0) return 0;
    EditReplay replay(_octree);
    const Status applied = _recorder->apply(replay.visitor(), _result.pointsChanged);
    if (!applied) noteFailure(_result, applied, true);
    replay.show();
    return number;
}

bool undoJournalled(OctreeInfo& octree, uint64_t change, CmdResult& result)
{
    std::shared_ptr<VelBrx::EditJournal> journal;
    Status opened = VelOsgDBBrx::EditJournalling::open(octree, journal);
    if (opened && !journal)
        opened = Status::failure(octree.pointPath + ": its journal was switched off; switch it on to undo");
    if (!opened) {
        noteFailure(result, opened, false);
        return true;
    }
    VelBrx::EditDescription undo;
    undo.author = octree.journalAuthor;
    uint64_t previous = 0;
    if (journal->state() != change || !journal->findPrevious(change, previous)) {
        undo.operation = R"({"op":"undo"})";
        JournalledEdit edit(octree, undo, result);
        if (edit.isOpen()) edit.finish(recordShown(octree, edit.recorder(), change));
        return true;
    }
    EditReplay replay(octree);
    const Status undone = journal->moveTo(previous, undo, replay.visitor(), result.pointsChanged);
    replay.show();
    const bool isWritten = undone.kind() == Status::Kind::NO_SPACE;
    if (!undone) noteFailure(result, undone, isWritten);
    return !isWritten;
}
