#include "cull/ChangeRecord.h"
#include "cull/JournalledEdit.h"
#include "cull/PointMarking.h"
#include "cull/StoreProblems.h"
#include "edit/CloudPlaces.h"
#include "edit/RecordScreenTest.h"
#include "edit/ScreenMask.h"
#include "edit/ScreenRegion.h"
#include "edit/StoreEdit.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <VelBrx/FileWriter.h>
#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>
#include <cmath>

namespace VelOsgDBBrx {

namespace {

/// The points of a store that a polygon reaches.
class UnderPolygon : public PointTest
{
public:
    UnderPolygon(std::vector<CellData*> cells, const RecordScreenTest& test)
        : _cells(std::move(cells)), _test(test)
    {
    }

    std::vector<CellData*> cells() const override { return _cells; }

    void test(const uint8_t* records, int count, const uint8_t*, uint8_t* accepted) const override
    {
        static_assert(kBlock == RecordScreenTest::kBlock);
        _test.test(records, count, accepted);
    }

    bool readsClasses() const override { return false; }

private:
    const std::vector<CellData*> _cells;
    const RecordScreenTest _test;
};

/// No mask shows a polygon with another vertex: it is empty, and everything would be outside.
bool isFinite(const std::vector<osg::Vec2d>& polygon)
{
    return std::all_of(polygon.begin(), polygon.end(), [](const osg::Vec2d& vertex) {
        return std::isfinite(vertex.x()) && std::isfinite(vertex.y());
    });
}

/// Gives the listed places of a run their mark; returns how many have it.
template <class Place>
size_t write(VelBrx::FileWriter& writer, uint8_t* records, const Place* places, size_t count,
             const PointMark& mark)
{
    return writer.set(records, kRecordSize, kFlagByte, places, count,
                      [&](size_t, uint8_t flags) { return mark.of(flags); });
}

/// What became of a cell's records.
struct CellOutcome
{
    bool readable = true;
    bool written = true;
};

/// Tests and marks the points of a cell; appends the places of those changed.
CellOutcome markCell(const OctreeInfo& octree, const CellData& cell, const PointTest& test,
                     const PointMark& mark, VelBrx::FileWriter& writer, std::vector<uint32_t>& changed)
{
    CellOutcome outcome;
    outcome.readable = forEachRun(octree, cell, [&](uint8_t* records, int64_t count, uint32_t first) {
        uint16_t places[kMarkChunk];
        for (int64_t done = 0; done < count && outcome.written; done += kMarkChunk) {
            uint8_t* chunk = records + done * kRecordSize;
            const int length = static_cast<int>(std::min<int64_t>(kMarkChunk, count - done));
            const size_t found = findMarked(chunk, length, nullptr, test, mark, places);
            const size_t written = write(writer, chunk, places, found, mark);
            outcome.written = written == found;
            for (size_t i = 0; i < written; ++i)
                changed.push_back(first + static_cast<uint32_t>(done) + places[i]);
        }
    });
    return outcome;
}

void dropUnchanged(std::vector<ChangeRecord::Cell>& cells)
{
    cells.erase(std::remove_if(cells.begin(), cells.end(),
                               [](const ChangeRecord::Cell& cell) { return cell.points.empty(); }),
                cells.end());
    cells.shrink_to_fit();
}

/// Tests and marks the points of the cells on half of the processors; returns the cells with changes.
std::vector<ChangeRecord::Cell> markCells(const OctreeInfo& octree, const std::vector<CellData*>& cells,
                                          const PointTest& test, const PointMark& mark, CmdResult& result)
{
    VelBrx::FileWriter writer(*octree.pointFile);
    const int count = static_cast<int>(cells.size());
    std::vector<ChangeRecord::Cell> changes(cells.size());
    uint64_t unreadable = 0;
    uint64_t unwritten = 0;
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))                            \
    reduction(+ : unreadable, unwritten)
    {
        std::vector<uint32_t> changed; // reused, so that each cell's list takes no more room than it needs
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            changed.clear();
            const CellOutcome outcome = markCell(octree, *cells[i], test, mark, writer, changed);
            unreadable += !outcome.readable;
            unwritten += !outcome.written;
            if (!changed.empty())
                changes[i] = {cells[i], cells[i]->identifier, {changed.begin(), changed.end()}};
        }
    }
    dropUnchanged(changes);
    for (const ChangeRecord::Cell& cell : changes)
        result.pointsChanged += cell.points.size();
    result.cellsUnreadable += unreadable;
    result.cellsUnwritten += unwritten;
    noteProblem(octree, writer, result);
    return changes;
}

/// Brings the attribute of loaded cells to the state of their records.
void editLoadedCells(const std::vector<ChangeRecord::Cell>& cells, int clearedBits, int setBits)
{
    PCDataManager::getInstance()->discardReadsInProgress();
    for (const ChangeRecord::Cell& cell : cells)
        editLoadedCell(*cell.cell, [&](osg::IntArray& attribute) {
            for (const uint32_t point : cell.points)
                attribute[point] = (attribute[point] & ~clearedBits) | setBits;
            return true;
        });
}

/// What became of points of a cell that were to be shown.
struct ShowOutcome
{
    bool readable = true;
    uint64_t shown = 0; ///< of those that were hidden
    size_t done = 0;    ///< of the listed points, from the first; fewer than listed when the disk is full
};

/// Clears the hidden bits of the listed points of a cell.
ShowOutcome showPoints(const OctreeInfo& octree, const ChangeRecord::Cell& cell, VelBrx::FileWriter& writer)
{
    ShowOutcome outcome;
    outcome.done = cell.points.size();
    std::vector<uint32_t> places;
    outcome.readable = forEachRun(octree, *cell.cell, [&](uint8_t* records, int64_t count, uint32_t first) {
        if (outcome.done < cell.points.size()) return;
        places.clear();
        auto point = std::lower_bound(cell.points.begin(), cell.points.end(), first);
        for (; point != cell.points.end() && *point - first < count; ++point) {
            const uint32_t place = *point - first;
            if (records[static_cast<int64_t>(place) * kRecordSize + kFlagByte] & kHiddenBits)
                places.push_back(place);
        }
        const size_t written = write(writer, records, places.data(), places.size(), kShowMark);
        outcome.shown += written;
        if (written == places.size()) return;
        point = std::lower_bound(cell.points.begin(), cell.points.end(), first + places[written]);
        outcome.done = static_cast<size_t>(point - cell.points.begin());
    });
    return outcome;
}

/// Shows the points of the cells; moves those that the disk had no room for to the result.
std::vector<ChangeRecord::Cell> showRecords(const OctreeInfo& octree, std::vector<ChangeRecord::Cell>& cells,
                                            CmdResult& result)
{
    VelBrx::FileWriter writer(*octree.pointFile);
    const int count = static_cast<int>(cells.size());
    std::vector<ChangeRecord::Cell> left(cells.size());
    uint64_t shown = 0;
    uint64_t unreadable = 0;
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))        \
    reduction(+ : shown, unreadable)
    for (int i = 0; i < count; ++i) {
        const ShowOutcome outcome = showPoints(octree, cells[i], writer);
        shown += outcome.shown;
        unreadable += !outcome.readable;
        std::vector<uint32_t>& points = cells[i].points;
        if (outcome.done == points.size()) continue;
        const auto undone = points.begin() + static_cast<ptrdiff_t>(outcome.done);
        left[i] = {cells[i].cell, cells[i].identifier, {undone, points.end()}};
        points.erase(undone, points.end());
    }
    dropUnchanged(left);
    result.pointsChanged += shown;
    result.cellsUnreadable += unreadable;
    result.cellsUnwritten += left.size();
    noteProblem(octree, writer, result);
    return left;
}

} // namespace

PolygonPointCmd::PolygonPointCmd(int barrierCount, Edit edit, bool save)
    : BaseCmd(barrierCount, save), _places(std::make_unique<CloudPlaces>()),
      _changes(std::make_unique<ChangeRecord>()), _edit(edit)
{
}

PolygonPointCmd::~PolygonPointCmd() = default;

void PolygonPointCmd::operator()(CullCmdManager* manager)
{
    report(editStores(manager));
    block(0);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

CmdResult PolygonPointCmd::editStores(CullCmdManager* manager)
{
    CmdResult result;
    const bool outside = _type == Type::OUTSIDE;
    const ScreenMask mask(manager->acquirePixelBufferTool(), _polygon, _width, _height);
    result.maskMissing = !mask.isValid() || !isFinite(_polygon);
    if (result.maskMissing || _vpw.isNaN() || (outside && _polygon.size() < 3)) return result;

    for (const osg::observer_ptr<OctreeInfo>& observed : _octreeInfos) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!observed.lock(octree))
            ++result.storesGone;
        else if (!isEditable(*octree))
            ++result.storesReadOnly;
        else
            editStore(*octree, mask, result);
    }
    return result;
}

void PolygonPointCmd::prepare()
{
    _places->note(_octreeInfos);
}

void PolygonPointCmd::editStore(OctreeInfo& octree, const ScreenMask& mask, CmdResult& result)
{
    const osg::Matrixd localToWorld = _places->of(octree);
    const osg::Matrixd localToWindow = localToWorld * _vpw;
    const bool outside = _type == Type::OUTSIDE;
    osg::Polytope::PlaneList planes;
    if (!outside && !rectanglePlanes(_polygon, _height, localToWindow, planes)) return;
    const UnderPolygon test(
        cellsInside(octree, planes),
        RecordScreenTest(octree.scale, localToWindow, toLocal(_clipPlanes, localToWorld), mask, outside));
    const std::vector<CellData*> reached = test.cells();
    if (reached.empty() || !lockForEditing(octree, result)) return;
    const StoreEditLock lock(octree);
    const bool hides = _edit == Edit::HIDE;
    const PointMark& mark = hides ? kHideMark : kShowMark;
    if (octree.keepsJournal) {
        VelBrx::EditDescription edit;
        edit.operation = operation();
        const uint64_t change = markJournalled(octree, reached, test, mark, edit, nullptr, result);
        if (change) _changes->stores.push_back({&octree, octree.pointFile->identity(), {}, change});
        return;
    }
    std::vector<ChangeRecord::Cell> cells = markCells(octree, reached, test, mark, result);
    if (cells.empty()) return;
    editLoadedCells(cells, hides ? 0 : PointAttributes::kHiddenBits, hides ? PointAttributes::kCulledBit : 0);
    _changes->stores.push_back({&octree, octree.pointFile->identity(), std::move(cells), 0});
}

/// What the journal says of the edit where its caller has not said it.
std::string PolygonPointCmd::operation() const
{
    if (!_operation.empty()) return _operation;
    const std::string side = _type == Type::OUTSIDE ? R"(,"side":"outside")" : "";
    return std::string(R"({"op":")") + (_edit == Edit::HIDE ? "cull" : "uncull") + "\"" + side + "}";
}

/// What could not be written is kept for another try.
void PolygonPointCmd::undo(bool inStore)
{
    CmdResult result;
    std::vector<ChangeRecord::Store> left;
    for (ChangeRecord::Store& store : _changes->stores) {
        const osg::ref_ptr<OctreeInfo> octree = store.acquireOctree();
        if (!octree) {
            ++result.storesGone;
            continue;
        }
        if (!lockForEditing(*octree, result)) continue;
        const StoreEditLock lock(*octree);
        if (store.change) {
            if (inStore && !undoJournalled(*octree, store.change, result)) left.push_back(store);
            continue;
        }
        std::vector<ChangeRecord::Cell> unwritten;
        if (inStore) unwritten = showRecords(*octree, store.cells, result);
        editLoadedCells(store.cells, PointAttributes::kHiddenBits, 0);
        if (!unwritten.empty()) left.push_back({store.octree, store.file, std::move(unwritten), 0});
    }
    _changes->stores = std::move(left);
    report(result);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

CullCmd::CullCmd(int barrierCount) : CullCmd(barrierCount, true) {}

CullCmd::CullCmd(int barrierCount, bool save) : PolygonPointCmd(barrierCount, Edit::HIDE, save) {}

void CullCmd::reset(CullCmdManager*)
{
    undo(true);
}

XorCullCmd::XorCullCmd(int barrierCount) : XorCullCmd(barrierCount, true) {}

XorCullCmd::XorCullCmd(int barrierCount, bool save) : PolygonPointCmd(barrierCount, Edit::SHOW, save) {}

void XorCullCmd::reset(CullCmdManager*)
{
    undo(false);
}

} // namespace VelOsgDBBrx
