#pragma once

#include "category/ClassRule.h"
#include "category/ListedPoints.h"
#include "category/ScreenRules.h"
#include "edit/CellClasses.h"
#include "edit/EditControl.h"
#include "edit/PointTest.h"

#include <VelBrx/EditJournal.h>
#include <VelBrx/FileIdentity.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <set>
#include <vector>

/// Changes of the classes of a store's points, loaded or not: new classes go to the store's journal, where it
/// has one, then to `UnwrittenClasses`, and to the attribute of cells that are loaded. One call works at a
/// time in the whole process; any thread may call. Each keeps level-of-detail passes away from its store
/// while it works.

/// The points of a cell that an edit changed, and the classes that they had: a bit for each point of the cell
/// and a byte for each point changed.
struct CellChange
{
    CellPlacePtr place;
    std::vector<uint64_t> points; ///< bit i % 64 of element i / 64: the point at place i
    std::vector<uint8_t> classes; ///< of these points, in ascending places
};

/// What the change was.
CellChange difference(const EditedCell& cell);

/// What takes a change of one store back.
struct ClassUndo
{
    std::vector<CellChange> cells;    ///< empty where the change is in a journal, which has its points:
    uint64_t change = 0;              ///< its number there
    bool forward = false;             ///< it was taken back, and is to be done again
    std::vector<CellPlacePtr> places; ///< of its cells

    bool isEmpty() const { return cells.empty() && change == 0; }
};

struct ClassEditOptions
{
    /// What the store's journal says of the edit: author (empty: the journal's), time, and operation.
    VelBrx::EditDescription description;

    bool dryRun = false;            ///< only counts
    const CellData* only = nullptr; ///< points of this cell alone
    EditControl* control = nullptr; ///< that the caller has begun; a cell at a time is done
};

struct ClassEditOutcome
{
    VelBrx::Status status;         ///< a failure, also a cancel: nothing has changed
    std::vector<EditedCell> cells; ///< those with changes; none after a dry run
    ClassUndo undo;                ///< for `revert`
    VelOsgDBBrx::CategoryReport::Counts counts;
};

/// Makes sure that no other process edits the store, and that its journal, where it keeps one, can be opened,
/// before its classes are edited. A store that cannot be written is nobody's: its edits stay in memory.
VelBrx::Status lockForClassEdit(OctreeInfo& octree);

/// As before, where the selection can reach points of the store at all.
VelBrx::Status lockForClassEdit(OctreeInfo& octree, const ScreenSelection& selection);

/// Gives the points that a test reaches another class.
ClassEditOutcome editClasses(OctreeInfo& octree, const PointTest& test, const ClassRule& rule,
                             const ClassEditOptions& options);

/// Gives the selected points `base.toClass`.
ClassEditOutcome editClasses(OctreeInfo& octree, const ScreenSelection& selection,
                             const ClassEditOptions& options);

/// Gives each listed point its class. Hidden points are left out unless `hiddenToo`. Looks at no `control`.
ClassEditOutcome editClasses(OctreeInfo& octree, std::vector<PointClass> points, bool hiddenToo,
                             const ClassEditOptions& options);

/// Takes a change back, also one of a store that has been closed since. The outcome's `undo` undoes the undo.
/// In a journal it is an undo where the change is the newest, else a new change.
ClassEditOutcome revert(const ClassUndo& undo, VelBrx::EditDescription description);

/// Sets the second component of every element of the loaded cells' index arrays to -1: the mark of a save.
void markSaved(const std::vector<CellPlacePtr>& places);

/// `writeClassesToStores`, kept apart from edits.
VelBrx::Status writeUnwrittenClasses(const std::set<VelBrx::FileIdentity>* only = nullptr);
