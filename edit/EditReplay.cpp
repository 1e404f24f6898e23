#include "edit/EditReplay.h"

#include "edit/StoreEdit.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCDataManager.h>

using VelBrx::EditedPoints;
using VelBrx::Status;

namespace {

/// Brings the hidden bits in the arrays of a loaded cell to those of its records.
void showHidden(const OctreeInfo& octree, const CellData& cell)
{
    editLoadedCell(cell, [&](osg::IntArray& attribute) {
        forEachRun(octree, cell, [&](const uint8_t* records, int64_t count, uint32_t first) {
            for (int64_t i = 0; i < count; ++i) {
                int& value = attribute[first + static_cast<size_t>(i)];
                const int hidden = records[i * kRecordSize + kFlagByte] & kHiddenBits;
                value = (value & ~PointAttributes::kHiddenBits) | hidden << PointAttributes::kHiddenShift;
            }
        });
        return true;
    });
}

} // namespace

EditReplay::EditReplay(const OctreeInfo& octree) : _octree(&octree)
{
    for (CellData* cell : allCells(octree)) {
        _runs.add(cell->record.segments, _cells.size());
        _cells.push_back({cell, nullptr, false, nullptr, nullptr});
    }
    _runs.sort();
}

EditReplay::EditReplay(const std::vector<CellPlacePtr>& places) : _octree(nullptr)
{
    for (const CellPlacePtr& place : places) {
        _runs.add(place->segments, _cells.size());
        _cells.push_back({nullptr, place, false, nullptr, nullptr});
    }
    _runs.sort();
}

void EditReplay::take(const EditedPoints& edited)
{
    const bool ofClass = edited.field == VelBrx::PointRecord::kClass;
    _runs.forEachCell(edited.first, edited.count,
                      [&](size_t index, uint32_t place, uint64_t done, uint64_t count) {
                          Cell& cell = _cells[index];
                          if (ofClass)
                              takeClasses(cell, place, edited, done, count);
                          else
                              cell.hasHidden = true;
                      });
}

void EditReplay::takeClasses(Cell& cell, size_t place, const EditedPoints& edited, uint64_t done,
                             uint64_t count)
{
    if (!cell.after) {
        if (!cell.place) cell.place = std::make_shared<CellPlace>(*cell.data);
        cell.before = currentCell(cell.place).current;
        cell.after = std::make_shared<std::vector<uint8_t>>(*cell.before);
    }
    uint8_t* const classes = cell.after->data() + place;
    for (uint64_t i = 0; i < count; ++i) {
        const uint8_t value = edited.values[(done + i) * edited.step];
        _classesChanged += classes[i] != value;
        classes[i] = value;
    }
}

VelBrx::EditVisitor EditReplay::visitor()
{
    return [this](const EditedPoints& edited) { take(edited); };
}

std::vector<EditedCell> EditReplay::editedCells() const
{
    std::vector<EditedCell> edited;
    for (const Cell& cell : _cells)
        if (cell.after && *cell.after != *cell.before)
            edited.push_back({cell.place, cell.before, cell.after});
    return edited;
}

void EditReplay::show() const
{
    publishClasses(editedCells());
    bool isFirst = true;
    for (const Cell& cell : _cells) {
        if (!cell.hasHidden || !_octree) continue;
        if (isFirst) VelOsgDBBrx::PCDataManager::getInstance()->discardReadsInProgress();
        isFirst = false;
        showHidden(*_octree, *cell.data);
    }
}

Status moveStoreTo(OctreeInfo& octree, uint64_t state, const VelBrx::EditDescription& by,
                   EditControl* control, uint64_t& points)
{
    const VelThreads::Lock one(classEditMutex());
    const StoreEditLock lock(octree);
    std::shared_ptr<VelBrx::EditJournal> journal;
    if (Status status = VelOsgDBBrx::EditJournalling::open(octree, journal); !status) return status;
    if (!journal)
        return Status::failure(octree.pointPath +
                               ": has no journal that is switched on; switch it on to undo");
    EditReplay replay(octree);
    const auto visit = [&](const EditedPoints& edited) {
        replay.take(edited);
        if (control) control->addDone(edited.count);
    };
    const Status moved = journal->moveTo(state, by, visit, points);
    replay.show();
    points += replay.classesChanged();
    return moved;
}
