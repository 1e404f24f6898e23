#pragma once

#include "edit/CellClasses.h"
#include "edit/EditControl.h"
#include "edit/RecordRuns.h"

#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <vector>

/// Shows what is done to a store through its journal: takes the points that an `EditJournal` visits, and
/// brings hidden bits and classes to the cells that have them. Memory: two bytes a point of the cells whose
/// classes change. The caller holds `classEditMutex` where classes can be among the edits, and the edit lock
/// of the store where that is open. One thread at a time.
class EditReplay
{
public:
    explicit EditReplay(const OctreeInfo& octree);

    /// For a change of classes alone, whose cells are known; their store may be closed.
    explicit EditReplay(const std::vector<CellPlacePtr>& places);

    EditReplay(const EditReplay&) = delete;
    EditReplay& operator=(const EditReplay&) = delete;

    void take(const VelBrx::EditedPoints& edited);

    /// `take`, to be handed to the journal.
    VelBrx::EditVisitor visitor();

    /// Points that got another class.
    uint64_t classesChanged() const { return _classesChanged; }

    /// The cells whose classes changed, as they were and are to be.
    std::vector<EditedCell> editedCells() const;

    /// Brings everything to the cells that are loaded, and to those that are read later.
    void show() const;

private:
    struct Cell
    {
        CellData* data; ///< null where the store may be closed
        CellPlacePtr place;
        bool hasHidden = false; ///< hidden bits of it changed
        ClassesPtr before;      ///< null where no class of it changed
        std::shared_ptr<std::vector<uint8_t>> after;
    };

    void takeClasses(Cell& cell, size_t place, const VelBrx::EditedPoints& edited, uint64_t done,
                     uint64_t count);

    std::vector<Cell> _cells;
    RecordRuns _runs;
    const OctreeInfo* const _octree;
    uint64_t _classesChanged = 0;
};

/// Takes a store to a state of its journal, hidden bits and classes, and shows it. `by`: author, time and
/// operation of the entries. `points`: of hidden bits those changed, of classes those of each change.
/// `control`, if not null, gets each point as done. Takes the store's edit lock. Where it fails, the store
/// was taken as far as could be; see `EditJournal::moveTo`.
VelBrx::Status moveStoreTo(OctreeInfo& octree, uint64_t state, const VelBrx::EditDescription& by,
                           EditControl* control, uint64_t& points);
