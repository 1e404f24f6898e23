#include <VelOsgDBBrx/EditLens.h>

#include "edit/StoreEdit.h"
#include "loading/PointMarks.h"

#include <VelBrx/AsBuilt.h>
#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <algorithm>
#include <limits>

namespace VelOsgDBBrx {

using VelBrx::EditEntry;
using VelBrx::EditHistory;
using VelBrx::Status;

namespace {

constexpr size_t kMostMarks = std::numeric_limits<uint16_t>::max();

/// The changes in effect, oldest first: each was made on the one before.
std::vector<EditEntry> effective(const EditHistory& history)
{
    std::vector<EditEntry> edits;
    for (const EditEntry& entry : history.entries)
        if (entry.kind == EditEntry::Kind::CHANGE && entry.isDone) edits.push_back(entry);
    if (edits.size() > kMostMarks)
        edits.erase(edits.begin(), edits.end() - static_cast<ptrdiff_t>(kMostMarks));
    return edits;
}

/// Puts marks into a cell wherever it is loaded.
void markLoadedCell(const CellData& cell, const PointMarks& marks)
{
    const auto put = [&](uint32_t place, size_t count, const int* classes, int* marked) {
        bool changed = false;
        for (const VelBrx::Segment& segment : cell.record.segments) {
            const auto length = static_cast<uint32_t>(segment.count);
            if (count == 0) break;
            if (place >= length) {
                place -= length;
                continue;
            }
            const size_t part = std::min<size_t>(count, length - place);
            changed |= marks.put(static_cast<uint64_t>(segment.first) + place, part, classes, marked);
            classes += part;
            marked += part;
            count -= part;
            place = 0;
        }
        return changed;
    };
    visitLoadedCell(cell, [&](CellGeometry& geometry) { geometry.editMarks(put); });
}

void markLoadedCells(OctreeInfo& octree, const std::shared_ptr<const PointMarks>& marks)
{
    std::atomic_store(&octree.marks, marks);
    PCDataManager::getInstance()->discardReadsInProgress();
    for (const CellData* cell : allCells(octree))
        markLoadedCell(*cell, *marks);
}

uint64_t pointCountOf(const OctreeInfo& octree)
{
    uint64_t end = 0;
    for (const CellData* cell : allCells(octree))
        for (const VelBrx::Segment& segment : cell->record.segments)
            end = std::max(end, static_cast<uint64_t>(segment.first + segment.count));
    return end;
}

} // namespace

Status EditLens::showEdits(OctreeInfo& octree, std::vector<EditEntry>& edits)
{
    edits.clear();
    if (!octree.pointFile) return {};
    const StoreEditLock lock(octree);
    EditHistory history;
    Status status = octree.journal ? octree.journal->readHistory(history)
                                   : VelBrx::readEditHistory(octree.pointPath, history);
    if (!status) return status;
    const std::vector<EditEntry> found = effective(history);
    std::vector<uint64_t> changes;
    for (const EditEntry& edit : found)
        changes.push_back(edit.number);
    const uint64_t pointCount = pointCountOf(octree);
    const auto marks = std::make_shared<EditMarks>(pointCount);
    uint64_t last = 0;
    uint16_t mark = 0;
    const VelBrx::ChangeVisitor visit = [&](uint64_t change, uint64_t first, uint64_t count) {
        mark = static_cast<uint16_t>(mark + (change != last));
        last = change;
        if (first < pointCount) marks->mark(first, std::min(count, pointCount - first), mark);
    };
    status = octree.journal ? octree.journal->visitChanges(changes, visit)
                            : VelBrx::visitChanges(octree.pointPath, changes, visit);
    if (!status) return status;
    marks->pack();
    markLoadedCells(octree, marks);
    edits = found;
    return {};
}

Status EditLens::showBuilt(OctreeInfo& octree)
{
    if (!octree.pointFile) return {};
    VelBrx::AsBuilt built;
    if (Status status = VelBrx::AsBuilt::open(octree.pointPath, octree.pointFile, built); !status)
        return status;
    const StoreEditLock lock(octree);
    markLoadedCells(octree, std::make_shared<BuiltMarks>(built));
    return {};
}

void EditLens::end(OctreeInfo& octree)
{
    std::atomic_store(&octree.marks, std::shared_ptr<const PointMarks>());
}

} // namespace VelOsgDBBrx
