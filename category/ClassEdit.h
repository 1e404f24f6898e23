#pragma once

#include "category/ListedPoints.h"
#include "category/ScreenRules.h"
#include "loading/UnwrittenClasses.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <vector>

/// Changes of the classes of a store's points, loaded or not: new classes go to `UnwrittenClasses`, and to
/// the attribute of cells that are loaded. One call works at a time in the whole process; any thread may
/// call. Each keeps level-of-detail passes away from its store while it works.

/// The points of a cell that an edit changed, and the classes that they had: a bit for each point of the cell
/// and a byte for each point changed.
struct CellChange
{
    CellPlacePtr place;
    std::vector<uint64_t> points; ///< bit i % 64 of element i / 64: the point at place i
    std::vector<uint8_t> classes; ///< of these points, in ascending places
};

/// One cell before and after a change. Points whose records could not be mapped are 0 in both where nobody
/// has edited them.
struct EditedCell
{
    CellPlacePtr place;
    ClassesPtr before;
    ClassesPtr after;
};

/// What the change was.
CellChange difference(const EditedCell& cell);

struct ClassEditOutcome
{
    std::vector<EditedCell> cells;   ///< those with changes; none after a dry run
    std::vector<CellChange> changes; ///< of the same cells; for `revertChanges`
    VelOsgDBBrx::CategoryReport::Counts counts;
};

/// Makes sure that no other process edits the store, before its classes are edited. A store that cannot be
/// written is nobody's: its edits stay in memory.
VelBrx::Status lockForClassEdit(const OctreeInfo& octree);

/// As before, where the selection can reach points of the store at all.
VelBrx::Status lockForClassEdit(OctreeInfo& octree, const ScreenSelection& selection);

/// Gives the selected points `base.toClass`; with `only`, those of that cell alone. A dry run only counts.
ClassEditOutcome editClasses(OctreeInfo& octree, const ScreenSelection& selection, bool dryRun,
                             const CellData* only = nullptr);

/// Gives each listed point its class. Hidden points are left out unless `hiddenToo`.
ClassEditOutcome editClasses(OctreeInfo& octree, std::vector<PointClass> points, bool hiddenToo, bool dryRun);

/// Takes changes back, also changes of stores that have been closed since. Applying the outcome's changes
/// undoes the undo.
ClassEditOutcome revertChanges(std::vector<CellChange> changes);

/// Sets the second component of every element of the loaded cells' index arrays to -1: the mark of a save.
void markSaved(const std::vector<CellPlacePtr>& places);

/// `writeClassesToStores`, kept apart from edits.
VelBrx::Status writeUnwrittenClasses();
