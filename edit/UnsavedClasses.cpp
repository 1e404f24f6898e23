#include "edit/UnsavedClasses.h"

#include "edit/CellClasses.h"
#include "edit/EditReplay.h"

#include <algorithm>
#include <map>
#include <vector>

using VelBrx::EditDescription;
using VelBrx::Status;
using JournalPtr = std::shared_ptr<VelBrx::EditJournal>;
using Cell = UnwrittenClasses::Cell;

namespace {

std::vector<Cell> unwrittenCells(const OctreeInfo& octree)
{
    std::vector<Cell> cells = UnwrittenClasses::instance().cells();
    const auto isOther = [&](const Cell& cell) {
        return !cell.place->file || cell.place->file->identity() != octree.pointFile->identity();
    };
    cells.erase(std::remove_if(cells.begin(), cells.end(), isOther), cells.end());
    return cells;
}

EditDescription describe(const OctreeInfo& octree, const char* operation)
{
    EditDescription description;
    description.author = octree.journalAuthor;
    description.operation = operation;
    return description;
}

uint64_t countDifferent(const std::vector<EditedCell>& cells)
{
    uint64_t points = 0;
    for (const EditedCell& cell : cells)
        points += ::countDifferent(*cell.before, *cell.after);
    return points;
}

/// Shows what the journal has and the store has not. Nothing in memory differs from the store.
Status showUnsaved(OctreeInfo& octree, const JournalPtr& journal, uint64_t& replaced)
{
    EditReplay unsaved(octree);
    EditReplay saved(octree); // where it differs from the records, something else has changed them
    Status status = journal->visitUnsaved(unsaved.visitor());
    if (status) status = journal->visitSaved(saved.visitor());
    if (!status) return status;
    unsaved.show();
    std::vector<EditedCell> kept;
    for (const EditedCell& cell : saved.editedCells()) {
        const ClassesPtr current = currentCell(cell.place).current;
        const auto classes = std::make_shared<std::vector<uint8_t>>(*current);
        for (size_t i = 0; i < classes->size(); ++i)
            if ((*cell.before)[i] != (*cell.after)[i]) (*classes)[i] = (*cell.before)[i];
        kept.push_back({cell.place, current, classes});
    }
    replaced = countDifferent(kept);
    uint64_t change = 0;
    return recordAndPublishClasses(kept, journal, describe(octree, R"({"op":"keepSaved"})"), change);
}

/// Writes classes down that were edited without this journal, on those that are shown.
Status recordUnwritten(const OctreeInfo& octree, const JournalPtr& journal, const std::vector<Cell>& cells)
{
    std::vector<EditedCell> edited;
    for (const Cell& cell : cells) {
        const ClassesPtr shown = currentCell(cell.place).current;
        const auto classes = std::make_shared<std::vector<uint8_t>>(*shown);
        for (size_t i = 0; i < classes->size(); ++i)
            if ((*cell.written)[i] != (*cell.current)[i]) (*classes)[i] = (*cell.current)[i];
        edited.push_back({cell.place, shown, classes});
    }
    uint64_t change = 0;
    return recordAndPublishClasses(edited, journal, describe(octree, R"({"op":"classify"})"), change);
}

} // namespace

bool hasUnwrittenClasses(const OctreeInfo& octree)
{
    return !unwrittenCells(octree).empty();
}

uint64_t countUnwrittenClasses(const OctreeInfo& octree)
{
    uint64_t points = 0;
    for (const Cell& cell : unwrittenCells(octree))
        points += countDifferent(*cell.written, *cell.current);
    return points;
}

std::array<int64_t, 256> unwrittenDifference(const OctreeInfo& octree)
{
    std::array<int64_t, 256> sum{};
    for (const Cell& cell : unwrittenCells(octree)) {
        for (const uint8_t code : *cell.current)
            ++sum[code];
        for (const uint8_t code : *cell.written)
            --sum[code];
    }
    return sum;
}

Status takeOverClasses(OctreeInfo& octree, const JournalPtr& journal, uint64_t& replaced)
{
    const std::vector<Cell> edited = unwrittenCells(octree);
    std::vector<Cell> others;
    for (const Cell& cell : edited) {
        UnwrittenClasses::instance().forget(cell.place->identifier);
        if (cell.place->journal != journal) others.push_back(cell);
    }
    Status status = showUnsaved(octree, journal, replaced);
    if (status) status = recordUnwritten(octree, journal, others);
    if (status) return {};
    std::vector<EditedCell> back;
    for (const Cell& cell : unwrittenCells(octree))
        back.push_back({cell.place, cell.current, cell.written});
    for (const Cell& cell : edited)
        back.push_back({cell.place, currentCell(cell.place).written, cell.current});
    publishClasses(back);
    return status;
}

Status dropUnwrittenClasses(OctreeInfo& octree, const JournalPtr& journal, VelBrx::EditDescription edit,
                            uint64_t& points, uint64_t& change)
{
    if (edit.author.empty()) edit.author = octree.journalAuthor;
    std::vector<EditedCell> cells;
    for (const Cell& cell : unwrittenCells(octree))
        cells.push_back({cell.place, cell.current, cell.written});
    const Status status = recordAndPublishClasses(cells, journal, edit, change);
    points = status ? countDifferent(cells) : 0;
    return status;
}
