#include "category/ClassEdit.h"

#include "category/StoredClasses.h"
#include "edit/StoreEdit.h"
#include "loading/CellLeaf.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgUtils/ThreadCount.h>
#include <VelThreads/Mutex.h>

#include <algorithm>
#include <map>
#include <optional>

using Counts = VelOsgDBBrx::CategoryReport::Counts;

namespace {

/// Held by every change of classes. Taken before the lock of a store.
VelThreads::Mutex& editMutex()
{
    static VelThreads::Mutex mutex;
    return mutex;
}

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

/// Gives the changed points in the loaded leaves of a cell their classes.
void show(const EditedCell& edited)
{
    const std::vector<uint8_t>& before = *edited.before;
    const std::vector<uint8_t>& after = *edited.after;
    const auto edit = [&](osg::IntArray& attribute) {
        const size_t count = std::min<size_t>(attribute.size(), after.size());
        for (size_t i = 0; i < count; ++i)
            if (before[i] != after[i]) attribute[i] = PointAttributes::withClass(attribute[i], after[i]);
        return true;
    };
    const CellPlace& place = *edited.place;
    osg::ref_ptr<CellData> cell;
    if (place.cell.lock(cell))
        editLoadedCell(*cell, edit);
    else
        editCachedCell(place.identifier, place.pointCount, edit);
}

/// Makes new classes known: first to those who read cells, then in the cells that are loaded already.
void publish(const std::vector<EditedCell>& cells)
{
    if (cells.empty()) return;
    UnwrittenClasses& unwritten = UnwrittenClasses::instance();
    for (const EditedCell& cell : cells) {
        const ClassesPtr written = unwritten.find(cell.place->identifier).written;
        unwritten.set({cell.place, written ? written : cell.before, cell.after});
    }
    VelOsgDBBrx::PCDataManager::getInstance()->discardReadsInProgress();
    for (const EditedCell& cell : cells)
        show(cell);
}

/// Publishes an edit, and keeps what undo needs.
void finish(ClassEditOutcome& outcome)
{
    outcome.cells.erase(std::remove_if(outcome.cells.begin(), outcome.cells.end(),
                                       [](const EditedCell& cell) { return !cell.place; }),
                        outcome.cells.end());
    publish(outcome.cells);
    const int count = static_cast<int>(outcome.cells.size());
    outcome.changes.resize(outcome.cells.size());
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    for (int i = 0; i < count; ++i)
        outcome.changes[i] = difference(outcome.cells[i]);
}

/// False when some of the records cannot be mapped.
bool edit(const OctreeInfo& octree, const CellData& cell, const ScreenRules& rules, CellWork& work,
          ScreenRules::ClassCounts& selected)
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

/// Locks the store that a cell belongs to, while that is open.
class OpenStoreLock
{
public:
    explicit OpenStoreLock(const osg::ref_ptr<OctreeInfo>& octree) : _octree(octree)
    {
        if (octree) _lock.emplace(*octree);
    }

private:
    osg::ref_ptr<OctreeInfo> _octree; ///< outlives the lock
    std::optional<StoreEditLock> _lock;
};

ClassesPtr reverted(const CellChange& change, const ClassesPtr& current)
{
    std::vector<uint8_t> classes = *current;
    forEachPoint(change, [&, recorded = change.classes.begin()](size_t place) mutable {
        classes[place] = *recorded++;
    });
    return std::make_shared<const std::vector<uint8_t>>(std::move(classes));
}

} // namespace

VelBrx::Status lockForClassEdit(const OctreeInfo& octree)
{
    if (!isEditable(octree)) return {};
    const VelBrx::Status status = octree.pointFile->lockForEditing();
    return status ? status : VelBrx::Status::failure(octree.pointPath + ": " + status.message());
}

VelBrx::Status lockForClassEdit(OctreeInfo& octree, const ScreenSelection& selection)
{
    return ScreenRules(octree, selection).cells().empty() ? VelBrx::Status() : lockForClassEdit(octree);
}

ClassEditOutcome editClasses(OctreeInfo& octree, const ScreenSelection& selection, bool dryRun,
                             const CellData* only)
{
    ClassEditOutcome outcome;
    if (!octree.pointFile) return outcome;
    const ScreenRules rules(octree, selection);
    std::vector<CellData*> cells = rules.cells();
    const auto isMeant = [only](const CellData* cell) { return !only || cell == only; };
    cells.erase(std::stable_partition(cells.begin(), cells.end(), isMeant), cells.end());
    if (cells.empty()) return outcome;
    const VelThreads::Lock one(editMutex());
    const StoreEditLock lock(octree);
    const int count = static_cast<int>(cells.size());
    if (!dryRun) outcome.cells.resize(cells.size());
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    {
        CellWork work;
        Counts counts;
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            ScreenRules::ClassCounts selected{};
            if (!edit(octree, *cells[i], rules, work, selected)) ++counts.cellsUnreadable;
            rules.addCounts(selected, counts);
            if (!dryRun) outcome.cells[i] = keep(work, *cells[i]);
        }
#pragma omp critical
        outcome.counts += counts;
    }
    finish(outcome);
    return outcome;
}

ClassEditOutcome editClasses(OctreeInfo& octree, std::vector<PointClass> points, bool hiddenToo, bool dryRun)
{
    ClassEditOutcome outcome;
    if (!octree.pointFile) return outcome;
    const VelThreads::Lock one(editMutex());
    const StoreEditLock lock(octree);
    CellWork work;
    for (const CellPoints& listed : sortByCell(octree, std::move(points))) {
        if (!edit(octree, listed, hiddenToo ? 0 : kHiddenBits, work, outcome.counts))
            ++outcome.counts.cellsUnreadable;
        if (!dryRun) outcome.cells.push_back(keep(work, *listed.cell));
    }
    finish(outcome);
    return outcome;
}

ClassEditOutcome revertChanges(std::vector<CellChange> changes)
{
    const VelThreads::Lock one(editMutex());
    std::map<osg::ref_ptr<OctreeInfo>, std::vector<const CellChange*>> stores;
    for (const CellChange& change : changes)
        stores[openOctree(*change.place)].push_back(&change);

    ClassEditOutcome outcome;
    for (const auto& [octree, ofStore] : stores) {
        const OpenStoreLock lock(octree);
        std::vector<EditedCell> edited;
        for (const CellChange* change : ofStore) {
            const ClassesPtr current = currentCell(change->place).current;
            if (current)
                edited.push_back({change->place, current, reverted(*change, current)});
            else
                ++outcome.counts.cellsUnreadable;
        }
        publish(edited);
        outcome.cells.insert(outcome.cells.end(), edited.begin(), edited.end());
    }
    for (const EditedCell& cell : outcome.cells) {
        outcome.counts.changed += countDifferent(*cell.before, *cell.after);
        outcome.changes.push_back(difference(cell));
    }
    return outcome;
}

void markSaved(const std::vector<CellPlacePtr>& places)
{
    const VelThreads::Lock one(editMutex());
    for (const CellPlacePtr& place : places) {
        const OpenStoreLock lock(openOctree(*place));
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

VelBrx::Status writeUnwrittenClasses()
{
    const VelThreads::Lock one(editMutex());
    return writeClassesToStores();
}
