#include "cull/JournalledEdit.h"

#include "edit/StoreEdit.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <algorithm>

using VelBrx::EditedPoints;
using VelBrx::Status;
using VelOsgDBBrx::CmdResult;

namespace {

/// Brings the hidden bits in the arrays of loaded cells to those of their records.
void showRecordsOf(const OctreeInfo& octree, const CellsByRecord& cells)
{
    if (cells.touched().empty()) return;
    VelOsgDBBrx::PCDataManager::getInstance()->discardReadsInProgress();
    for (const CellData* cell : cells.touched())
        editLoadedCell(*cell, [&](osg::IntArray& attribute) {
            forEachRun(octree, *cell, [&](const uint8_t* records, int64_t count, uint32_t first) {
                for (int64_t i = 0; i < count; ++i) {
                    int& value = attribute[first + static_cast<size_t>(i)];
                    const int hidden = records[i * kRecordSize + kFlagByte] & kHiddenBits;
                    value = (value & ~PointAttributes::kHiddenBits) | hidden << PointAttributes::kHiddenShift;
                }
            });
            return true;
        });
}

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
    const Status read = recorder.visitBefore(change, [&](const EditedPoints& edited) {
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

/// The journal of a store whose edits are to be undone or redone.
Status openJournal(OctreeInfo& octree, std::shared_ptr<VelBrx::EditJournal>& journal)
{
    Status opened = VelOsgDBBrx::EditJournalling::open(octree, journal);
    if (opened && !journal)
        opened = Status::failure(octree.pointPath + ": its journal was switched off; switch it on to undo");
    return opened;
}

} // namespace

CellsByRecord::CellsByRecord(const OctreeInfo& octree)
{
    for (CellData* cell : allCells(octree))
        for (const VelBrx::Segment& segment : cell->record.segments)
            if (segment.first >= 0 && segment.count > 0)
                _runs.push_back({static_cast<uint64_t>(segment.first),
                                 static_cast<uint64_t>(segment.first + segment.count), cell});
    std::sort(_runs.begin(), _runs.end(), [](const Run& a, const Run& b) { return a.first < b.first; });
}

void CellsByRecord::touch(uint64_t first, uint64_t count)
{
    const uint64_t end = first + count;
    if (_last < _runs.size() && first >= _runs[_last].first && end <= _runs[_last].end) return;
    auto run = std::upper_bound(_runs.begin(), _runs.end(), first,
                                [](uint64_t record, const Run& other) { return record < other.end; });
    for (; run != _runs.end() && run->first < end; ++run) {
        _last = static_cast<size_t>(run - _runs.begin());
        _touched.insert(run->cell);
    }
}

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
    CellsByRecord cells(_octree);
    const auto touch = [&](const EditedPoints& edited) { cells.touch(edited.first, edited.count); };
    const Status applied = _recorder->apply(touch, _result.pointsChanged);
    if (!applied) noteFailure(_result, applied, true);
    showRecordsOf(_octree, cells);
    return number;
}

Status moveJournalled(OctreeInfo& octree, uint64_t state, const VelBrx::EditDescription& by,
                      EditControl* control, uint64_t& points)
{
    std::shared_ptr<VelBrx::EditJournal> journal;
    if (const Status opened = openJournal(octree, journal); !opened) return opened;
    CellsByRecord cells(octree);
    const auto touch = [&](const EditedPoints& edited) {
        cells.touch(edited.first, edited.count);
        if (control) control->addDone(edited.count);
    };
    const Status moved = journal->moveTo(state, by, touch, points);
    showRecordsOf(octree, cells);
    return moved;
}

bool undoJournalled(OctreeInfo& octree, uint64_t change, CmdResult& result)
{
    std::shared_ptr<VelBrx::EditJournal> journal;
    if (const Status opened = openJournal(octree, journal); !opened) {
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
    const Status undone = moveJournalled(octree, previous, undo, nullptr, result.pointsChanged);
    const bool isWritten = undone.kind() == Status::Kind::NO_SPACE;
    if (!undone) noteFailure(result, undone, isWritten);
    return !isWritten;
}
