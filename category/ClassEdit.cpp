#include "category/ClassEdit.h"

#include "category/StoredClasses.h"
#include "edit/EditReplay.h"
#include "edit/StoreEdit.h"
#include "loading/CellLeaf.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgUtils/ThreadCount.h>
#include <VelThreads/Mutex.h>

#include <algorithm>
#include <map>
#include <optional>

using VelBrx::Status;
using Counts = VelOsgDBBrx::CategoryReport::Counts;

namespace {

/// The classes of the cell in hand; the room is reused from cell to cell.
struct CellWork
{
    ClassesPtr current; ///< null: as in the records
    std::vector<uint8_t> before;
    std::vector<uint8_t> after;
};

/// For points that are left out: they have the same class before and after.
void leaveOut(CellWork& work, size_t from, size_t to)
{
    for (size_t i = from; i < to; ++i)
        work.before[i] = work.after[i] = work.current ? (*work.current)[i] : 0;
}

/// Calls `edit(records, count, first)` for the runs of a cell's records, which fills `before` and `after`.
/// False when some of the records cannot be mapped; their points are left out.
template <class Edit>
bool editRuns(const OctreeInfo& octree, const CellData& cell, CellWork& work, Edit edit)
{
    work.current = UnwrittenClasses::instance().current(cell.identifier);
    const size_t all = countPoints(cell.record.segments);
    work.before.resize(all);
    work.after.resize(all);
    size_t done = 0;
    const bool complete =
        forEachRun(octree, cell, [&](const uint8_t* records, int64_t count, uint32_t first) {
            leaveOut(work, done, first);
            edit(records, count, first);
            done = first + static_cast<size_t>(count);
        });
    leaveOut(work, done, all);
    return complete;
}

/// What the work changed; without a place when that is nothing.
EditedCell keep(const CellWork& work, CellData& cell)
{
    if (work.before == work.after) return {};
    return {std::make_shared<CellPlace>(cell),
            work.current ? work.current : std::make_shared<const std::vector<uint8_t>>(work.before),
            std::make_shared<const std::vector<uint8_t>>(work.after)};
}

/// Calls `visit(place)` for the points of a change, ascending.
template <class Visit>
void forEachPoint(const CellChange& change, Visit visit)
{
    for (size_t word = 0; word < change.points.size(); ++word)
        for (uint64_t bits = change.points[word]; bits; bits &= bits - 1)
            visit(word * 64 + static_cast<size_t>(__builtin_ctzll(bits)));
}

} // namespace

CellChange difference(const EditedCell& cell)
{
    const std::vector<uint8_t>& before = *cell.before;
    const std::vector<uint8_t>& after = *cell.after;
    CellChange change{cell.place, {}, {}};
    change.points.reserve((before.size() + 63) / 64);
    size_t changed = 0;
    for (size_t i = 0; i < before.size(); i += 64) {
        change.points.push_back(
            differingBits(&before[i], &after[i], std::min<size_t>(64, before.size() - i)));
        changed += static_cast<size_t>(__builtin_popcountll(change.points.back()));
    }
    change.classes.resize(changed);
    forEachPoint(change, [&, recorded = change.classes.begin()](size_t place) mutable {
        *recorded++ = before[place];
    });
    return change;
}

namespace {

using JournalPtr = std::shared_ptr<VelBrx::EditJournal>;

/// What undo needs of a change.
ClassUndo undoOf(const std::vector<EditedCell>& cells, uint64_t change)
{
    ClassUndo undo;
    undo.change = change;
    const int count = static_cast<int>(cells.size());
    if (change > 0) {
        for (const EditedCell& cell : cells)
            undo.places.push_back(cell.place);
        return undo;
    }
    undo.cells.resize(cells.size());
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    for (int i = 0; i < count; ++i)
        undo.cells[i] = difference(cells[i]);
    return undo;
}

/// Makes an edit known, and keeps what undo needs.
void finish(const JournalPtr& journal, const VelBrx::EditDescription& description, ClassEditOutcome& outcome)
{
    outcome.cells.erase(std::remove_if(outcome.cells.begin(), outcome.cells.end(),
                                       [](const EditedCell& cell) { return !cell.place; }),
                        outcome.cells.end());
    uint64_t change = 0;
    outcome.status = recordAndPublishClasses(outcome.cells, journal, description, change);
    if (outcome.status)
        outcome.undo = undoOf(outcome.cells, change);
    else
        outcome.cells.clear();
}

VelBrx::EditDescription describe(const OctreeInfo& octree, VelBrx::EditDescription description, int toClass)
{
    if (description.author.empty()) description.author = octree.journalAuthor;
    if (!description.operation.empty()) return description;
    const std::string to = toClass < 0 ? std::string() : ",\"to\":" + std::to_string(toClass);
    description.operation = R"({"op":"classify")" + to + "}";
    return description;
}

/// False when some of the records cannot be mapped.
bool edit(const OctreeInfo& octree, const CellData& cell, const ClassRuleEdit& rules, CellWork& work,
          ClassRuleEdit::ClassCounts& selected)
{
    return editRuns(octree, cell, work, [&](const uint8_t* records, int64_t count, uint32_t first) {
        rules.edit(records, count, work.current ? work.current->data() + first : nullptr,
                   work.before.data() + first, work.after.data() + first, selected);
    });
}

/// False when some of the records cannot be mapped.
bool edit(const OctreeInfo& octree, const CellPoints& listed, uint8_t hidingBits, CellWork& work,
          Counts& counts)
{
    return editRuns(octree, *listed.cell, work, [&](const uint8_t* records, int64_t count, uint32_t first) {
        if (work.current)
            std::copy_n(work.current->begin() + first, count, work.before.begin() + first);
        else
            gatherClasses(records, count, work.before.data() + first);
        std::copy_n(work.before.begin() + first, count, work.after.begin() + first);
        auto point =
            std::lower_bound(listed.points.begin(), listed.points.end(), std::make_pair(first, uint8_t(0)));
        for (; point != listed.points.end() && point->first - first < count; ++point) {
            const auto [place, toClass] = *point;
            if (records[int64_t(place - first) * kRecordSize + kFlagByte] & hidingBits) continue;
            work.after[place] = toClass;
            ++counts.selected;
            ++counts.before[work.before[place]];
            ++counts.after[toClass];
            counts.changed += work.before[place] != toClass;
        }
    });
}

ClassesPtr reverted(const CellChange& change, const ClassesPtr& current)
{
    std::vector<uint8_t> classes = *current;
    forEachPoint(change, [&, recorded = change.classes.begin()](size_t place) mutable {
        classes[place] = *recorded++;
    });
    return std::make_shared<const std::vector<uint8_t>>(std::move(classes));
}

} // namespace

Status lockForClassEdit(OctreeInfo& octree)
{
    if (!octree.pointFile) return {};
    if (isEditable(octree))
        if (Status status = octree.pointFile->lockForEditing(); !status) return status.of(octree.pointPath);
    const std::lock_guard<std::mutex> lock(octree.pointFile->mutex);
    JournalPtr journal;
    return VelOsgDBBrx::EditJournalling::open(octree, journal);
}

Status lockForClassEdit(OctreeInfo& octree, const ScreenSelection& selection)
{
    return ScreenRules(octree, selection).cells().empty() ? Status() : lockForClassEdit(octree);
}

ClassEditOutcome editClasses(OctreeInfo& octree, const PointTest& test, const ClassRule& rule,
                             const ClassEditOptions& options)
{
    ClassEditOutcome outcome;
    std::vector<CellData*> cells;
    if (octree.pointFile) cells = test.cells();
    const auto isMeant = [&](const CellData* cell) { return !options.only || cell == options.only; };
    cells.erase(std::stable_partition(cells.begin(), cells.end(), isMeant), cells.end());
    if (cells.empty()) return outcome;
    const VelThreads::Lock one(classEditMutex());
    const StoreEditLock lock(octree);
    JournalPtr journal;
    if (!options.dryRun) outcome.status = VelOsgDBBrx::EditJournalling::open(octree, journal);
    if (!outcome.status) return outcome;
    const ClassRuleEdit rules(test, rule);
    const auto isCancelled = [&] { return options.control && options.control->isCancelled(); };
    const int count = static_cast<int>(cells.size());
    if (!options.dryRun) outcome.cells.resize(cells.size());
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    {
        CellWork work;
        Counts counts;
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            if (isCancelled()) continue;
            ClassRuleEdit::ClassCounts selected{};
            if (!edit(octree, *cells[i], rules, work, selected)) ++counts.cellsUnreadable;
            rules.addCounts(selected, counts);
            if (!options.dryRun) outcome.cells[i] = keep(work, *cells[i]);
            if (options.control) options.control->addDone(1);
        }
#pragma omp critical
        outcome.counts += counts;
    }
    if (isCancelled())
        return {Status::failure("the edit was cancelled", Status::Kind::CANCELLED), {}, {}, {}};
    finish(journal, describe(octree, options.description, rule.to), outcome);
    return outcome;
}

ClassEditOutcome editClasses(OctreeInfo& octree, const ScreenSelection& selection,
                             const ClassEditOptions& options)
{
    return editClasses(octree, ScreenRules(octree, selection), classRule(selection.base), options);
}

ClassEditOutcome editClasses(OctreeInfo& octree, std::vector<PointClass> points, bool hiddenToo,
                             const ClassEditOptions& options)
{
    ClassEditOutcome outcome;
    if (!octree.pointFile) return outcome;
    const VelThreads::Lock one(classEditMutex());
    const StoreEditLock lock(octree);
    JournalPtr journal;
    if (!options.dryRun) outcome.status = VelOsgDBBrx::EditJournalling::open(octree, journal);
    if (!outcome.status) return outcome;
    CellWork work;
    for (const CellPoints& listed : sortByCell(octree, std::move(points))) {
        if (!edit(octree, listed, hiddenToo ? 0 : kHiddenBits, work, outcome.counts))
            ++outcome.counts.cellsUnreadable;
        if (!options.dryRun) outcome.cells.push_back(keep(work, *listed.cell));
    }
    finish(journal, describe(octree, options.description, -1), outcome);
    return outcome;
}

namespace {

/// Takes a change back that is in a journal, or does it again.
Status revertJournalled(const ClassUndo& undo, const VelBrx::EditDescription& description,
                        ClassEditOutcome& outcome)
{
    const JournalPtr& journal = undo.places.front()->journal;
    uint64_t previous = 0;
    if (Status status = journal->findPrevious(undo.change, previous); !status) return status;
    EditReplay replay(undo.places);
    if (journal->state() == (undo.forward ? previous : undo.change)) {
        uint64_t points = 0;
        const Status moved =
            journal->moveTo(undo.forward ? undo.change : previous, description, replay.visitor(), points);
        if (!moved) return moved;
        outcome.cells = replay.editedCells();
        replay.show();
        outcome.undo = {{}, undo.change, !undo.forward, undo.places};
        return {};
    }
    const Status read =
        VelBrx::EditRecorder(*journal).visitChange(undo.change, undo.forward, replay.visitor());
    if (!read) return read;
    outcome.cells = replay.editedCells();
    uint64_t change = 0;
    const Status recorded = recordAndPublishClasses(outcome.cells, journal, description, change);
    if (recorded) outcome.undo = undoOf(outcome.cells, change);
    return recorded;
}

/// Takes a change back whose points are at hand.
Status revertCells(const ClassUndo& undo, const JournalPtr& journal,
                   const VelBrx::EditDescription& description, ClassEditOutcome& outcome)
{
    for (const CellChange& change : undo.cells) {
        const ClassesPtr current = currentCell(change.place).current;
        if (current)
            outcome.cells.push_back({change.place, current, reverted(change, current)});
        else
            ++outcome.counts.cellsUnreadable;
    }
    uint64_t change = 0;
    const Status recorded = recordAndPublishClasses(outcome.cells, journal, description, change);
    if (recorded) outcome.undo = undoOf(outcome.cells, change);
    return recorded;
}

/// Locks the open stores that the cells of a change belong to, which are of one file.
class StoreLocks
{
public:
    explicit StoreLocks(const ClassUndo& undo)
    {
        for (const CellPlacePtr& place : undo.places)
            lock(*place);
        for (const CellChange& change : undo.cells)
            lock(*change.place);
    }

    /// One of them; null where none is open.
    OctreeInfo* octree() const { return _locks.empty() ? nullptr : _locks.begin()->first.get(); }

private:
    void lock(const CellPlace& place)
    {
        const osg::ref_ptr<OctreeInfo> octree = openOctree(place);
        if (octree && !_locks.count(octree)) _locks.emplace(octree, std::make_unique<StoreEditLock>(*octree));
    }

    std::map<osg::ref_ptr<OctreeInfo>, std::unique_ptr<StoreEditLock>> _locks;
};

} // namespace

ClassEditOutcome revert(const ClassUndo& undo, VelBrx::EditDescription description)
{
    const VelThreads::Lock one(classEditMutex());
    ClassEditOutcome outcome;
    if (undo.isEmpty()) return outcome;
    const StoreLocks locks(undo);
    JournalPtr journal;
    if (OctreeInfo* const octree = locks.octree()) {
        if (description.author.empty()) description.author = octree->journalAuthor;
        outcome.status = VelOsgDBBrx::EditJournalling::open(*octree, journal);
    } else if (undo.change == 0)
        journal = undo.cells.front().place->journal;
    if (outcome.status)
        outcome.status = undo.change > 0 ? revertJournalled(undo, description, outcome)
                                         : revertCells(undo, journal, description, outcome);
    if (!outcome.status) outcome.cells.clear();
    for (const EditedCell& cell : outcome.cells)
        outcome.counts.changed += countDifferent(*cell.before, *cell.after);
    return outcome;
}

void markSaved(const std::vector<CellPlacePtr>& places)
{
    const VelThreads::Lock one(classEditMutex());
    for (const CellPlacePtr& place : places) {
        const osg::ref_ptr<OctreeInfo> octree = openOctree(*place);
        std::optional<StoreEditLock> lock;
        if (octree) lock.emplace(*octree);
        const osg::ref_ptr<osg::Node> node =
            VelOsgDBBrx::PCDataManager::getInstance()->acquireNode(place->identifier);
        auto* leaf = dynamic_cast<CellLeaf*>(node.get());
        osg::Geometry* geometry =
            leaf && leaf->getNumDrawables() ? leaf->getDrawable(0)->asGeometry() : nullptr;
        auto* indices = geometry ? dynamic_cast<osg::Vec2iArray*>(geometry->getUserData()) : nullptr;
        if (!indices) continue;
        for (osg::Vec2i& index : *indices)
            index.y() = -1;
    }
}

VelBrx::Status writeUnwrittenClasses(const std::set<VelBrx::FileIdentity>* only)
{
    const VelThreads::Lock one(classEditMutex());
    return writeClassesToStores(only);
}
