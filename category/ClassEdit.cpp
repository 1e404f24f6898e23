#include "category/ClassEdit.h"

#include "category/StoredClasses.h"
#include "cull/PointRecords.h"
#include "cull/StoreEdit.h"
#include "loading/CellData.h"
#include "loading/CellLeaf.h"

#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>

using Counts = VelOsgDBBrx::CategoryReport::Counts;

namespace {

/// Held by every change of classes. Taken before the lock of a store.
std::mutex& editMutex()
{
    static std::mutex mutex;
    return mutex;
}

/// The classes of the cell in hand; the room is reused from cell to cell.
struct CellWork
{
    ClassesPtr current; ///< null: as in the records
    std::vector<uint8_t> before;
    std::vector<uint8_t> after;
};

/// Fills the work with the classes that the cell has now. False when some of its records cannot be mapped.
bool begin(CellWork& work, const OctreeInfo& octree, const CellData& cell)
{
    work.current = UnwrittenClasses::instance().current(cell.identifier);
    if (!readClasses(octree, cell, work.before)) return false;
    if (work.current) work.before = *work.current;
    work.after = work.before;
    return true;
}

/// What the work changed; without a place when that is nothing.
EditedCell keep(const CellWork& work, CellData& cell)
{
    if (work.before == work.after) return {};
    return {std::make_shared<CellPlace>(cell),
            work.current ? work.current : std::make_shared<const std::vector<uint8_t>>(work.before),
            std::make_shared<const std::vector<uint8_t>>(work.after)};
}

CellChange difference(const EditedCell& cell)
{
    const std::vector<uint8_t>& before = *cell.before;
    const std::vector<uint8_t>& after = *cell.after;
    CellChange change{cell.place, std::vector<uint64_t>((before.size() + 63) / 64), {}};
    change.classes.reserve(countDifferent(before, after));
    for (size_t i = 0; i < before.size(); ++i) {
        if (before[i] == after[i]) continue;
        change.points[i / 64] |= uint64_t(1) << (i % 64);
        change.classes.push_back(before[i]);
    }
    return change;
}

/// Gives the loaded leaves of a cell its classes.
void show(const CellPlace& place, const std::vector<uint8_t>& classes)
{
    constexpr uint32_t kAllButClass = 0x00FFFFFF;
    const auto edit = [&](osg::IntArray& attribute) {
        const size_t count = std::min<size_t>(attribute.size(), classes.size());
        for (size_t i = 0; i < count; ++i)
            attribute[i] =
                static_cast<int>(uint32_t(classes[i]) << 24 | (uint32_t(attribute[i]) & kAllButClass));
        return true;
    };
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
        show(*cell.place, *cell.after);
}

/// Publishes an edit, and keeps what undo needs.
void finish(EditOutcome& outcome)
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

bool edit(const OctreeInfo& octree, const CellData& cell, const ScreenRules& rules, CellWork& work,
          ScreenRules::ClassCounts& selected)
{
    return begin(work, octree, cell) &&
           forEachRun(octree, cell, [&](const uint8_t* records, int64_t count, uint32_t first) {
               rules.edit(records, count, work.before.data() + first, work.after.data() + first, selected);
           });
}

bool edit(const OctreeInfo& octree, const CellPoints& listed, uint8_t hidingBits, CellWork& work,
          Counts& counts)
{
    const auto editRun = [&](const uint8_t* records, int64_t count, uint32_t first) {
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
    };
    return begin(work, octree, *listed.cell) && forEachRun(octree, *listed.cell, editRun);
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

/// Changes cells of any stores: `newClasses(item, current)` gives the classes of an item's cell.
template <class Item, class NewClasses>
EditOutcome changeCells(const std::vector<Item>& items, NewClasses newClasses)
{
    std::map<osg::ref_ptr<OctreeInfo>, std::vector<const Item*>> stores;
    for (const Item& item : items)
        stores[openOctree(*item.place)].push_back(&item);

    EditOutcome outcome;
    for (const auto& [octree, ofStore] : stores) {
        const OpenStoreLock lock(octree);
        std::vector<EditedCell> edited;
        for (const Item* item : ofStore) {
            const ClassesPtr current = currentCell(item->place).current;
            if (current)
                edited.push_back({item->place, current, newClasses(*item, current)});
            else
                ++outcome.counts.cellsUnreadable;
        }
        publish(edited);
        outcome.cells.insert(outcome.cells.end(), edited.begin(), edited.end());
    }
    for (const EditedCell& cell : outcome.cells)
        outcome.counts.changed += countDifferent(*cell.before, *cell.after);
    return outcome;
}

ClassesPtr reverted(const CellChange& change, const ClassesPtr& current)
{
    std::vector<uint8_t> classes = *current;
    auto recorded = change.classes.begin();
    for (size_t word = 0; word < change.points.size(); ++word)
        for (uint64_t bits = change.points[word]; bits; bits &= bits - 1)
            classes[word * 64 + static_cast<size_t>(__builtin_ctzll(bits))] = *recorded++;
    return std::make_shared<const std::vector<uint8_t>>(std::move(classes));
}

} // namespace

EditOutcome editClasses(OctreeInfo& octree, const ScreenSelection& selection, bool dryRun)
{
    EditOutcome outcome;
    const std::lock_guard<std::mutex> one(editMutex());
    const StoreEditLock lock(octree);
    const ScreenRules rules(octree, selection);
    const std::vector<CellData*> cells = rules.cells();
    const int count = static_cast<int>(cells.size());
    if (!dryRun) outcome.cells.resize(cells.size());
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    {
        CellWork work;
        ScreenRules::ClassCounts selected{};
        uint64_t unreadable = 0;
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            if (!edit(octree, *cells[i], rules, work, selected))
                ++unreadable;
            else if (!dryRun)
                outcome.cells[i] = keep(work, *cells[i]);
        }
#pragma omp critical
        {
            rules.addCounts(selected, outcome.counts);
            outcome.counts.cellsUnreadable += unreadable;
        }
    }
    finish(outcome);
    return outcome;
}

EditOutcome editClasses(OctreeInfo& octree, std::vector<PointClass> points, bool hiddenToo, bool dryRun)
{
    EditOutcome outcome;
    const std::lock_guard<std::mutex> one(editMutex());
    const StoreEditLock lock(octree);
    CellWork work;
    for (const CellPoints& listed : sortByCell(octree, std::move(points))) {
        if (!edit(octree, listed, hiddenToo ? 0 : kHiddenBits, work, outcome.counts))
            ++outcome.counts.cellsUnreadable;
        else if (!dryRun)
            outcome.cells.push_back(keep(work, *listed.cell));
    }
    finish(outcome);
    return outcome;
}

EditOutcome revertChanges(std::vector<CellChange> changes)
{
    const std::lock_guard<std::mutex> one(editMutex());
    EditOutcome outcome = changeCells(changes, reverted);
    outcome.changes.reserve(outcome.cells.size());
    for (const EditedCell& cell : outcome.cells)
        outcome.changes.push_back(difference(cell));
    return outcome;
}

EditOutcome restoreClasses(const std::vector<CellClasses>& cells)
{
    const std::lock_guard<std::mutex> one(editMutex());
    return changeCells(cells, [](const CellClasses& cell, const ClassesPtr&) { return cell.classes; });
}

void markSaved(const std::vector<CellPlacePtr>& places)
{
    const std::lock_guard<std::mutex> one(editMutex());
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
    const std::lock_guard<std::mutex> one(editMutex());
    return writeClassesToStores();
}
