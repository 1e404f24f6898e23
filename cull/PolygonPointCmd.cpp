#include "cull/ChangeRecord.h"
#include "cull/RecordScreenTest.h"
#include "cull/ScreenMask.h"
#include "cull/ScreenRegion.h"
#include "cull/StoreEdit.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>

namespace VelOsgDBBrx {

namespace {

/// Sets the culled bit of accepted points that have no hidden bit; appends their places.
void hide(uint8_t* records, const uint8_t* accepted, int count, uint32_t first,
          std::vector<uint32_t>& changed)
{
    for (int i = 0; i < count; ++i) {
        uint8_t& flags = records[i * kRecordSize + kFlagByte];
        if (!accepted[i] || (flags & kHiddenBits)) continue;
        flags |= kCulledBit;
        changed.push_back(first + i);
    }
}

/// Clears the hidden bits of accepted points that have any; appends their places.
void show(uint8_t* records, const uint8_t* accepted, int count, uint32_t first,
          std::vector<uint32_t>& changed)
{
    for (int i = 0; i < count; ++i) {
        uint8_t& flags = records[i * kRecordSize + kFlagByte];
        if (!accepted[i] || !(flags & kHiddenBits)) continue;
        flags &= static_cast<uint8_t>(~kHiddenBits);
        changed.push_back(first + i);
    }
}

using Mark = decltype(&hide);

/// Tests and marks the points of a cell. False when some of its records could not be mapped.
bool markCell(const OctreeInfo& octree, const CellData& cell, const RecordScreenTest& test, Mark mark,
              std::vector<uint32_t>& changed)
{
    return forEachRun(octree, cell, [&](uint8_t* records, int64_t count, uint32_t first) {
        uint8_t accepted[RecordScreenTest::kBlock];
        for (int64_t done = 0; done < count; done += RecordScreenTest::kBlock) {
            const int block = static_cast<int>(std::min<int64_t>(RecordScreenTest::kBlock, count - done));
            uint8_t* blockRecords = records + done * kRecordSize;
            test.test(blockRecords, block, accepted);
            mark(blockRecords, accepted, block, first + static_cast<uint32_t>(done), changed);
        }
    });
}

/// Tests and marks the points of the cells on half of the processors; returns the cells with changes.
std::vector<ChangeRecord::Cell> markCells(const OctreeInfo& octree, const std::vector<CellData*>& cells,
                                          const RecordScreenTest& test, Mark mark, CmdResult& result)
{
    const int count = static_cast<int>(cells.size());
    std::vector<ChangeRecord::Cell> changes(cells.size());
    uint64_t unreadable = 0;
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count)) reduction(+ : unreadable)
    {
        std::vector<uint32_t> changed; // reused, so that each cell's list takes no more room than it needs
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            changed.clear();
            if (!markCell(octree, *cells[i], test, mark, changed)) ++unreadable;
            changes[i] = {cells[i], std::vector<uint32_t>(changed.begin(), changed.end())};
        }
    }
    changes.erase(std::remove_if(changes.begin(), changes.end(),
                                 [](const ChangeRecord::Cell& cell) { return cell.points.empty(); }),
                  changes.end());
    changes.shrink_to_fit();
    for (const ChangeRecord::Cell& cell : changes)
        result.pointsChanged += cell.points.size();
    result.cellsUnreadable += unreadable;
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

/// Clears the hidden bits of the listed points of a cell; counts those that had any. False when some could
/// not be mapped.
bool showPoints(const OctreeInfo& octree, const ChangeRecord::Cell& cell, uint64_t& shown)
{
    return forEachRun(octree, *cell.cell, [&](uint8_t* records, int64_t count, uint32_t first) {
        auto point = std::lower_bound(cell.points.begin(), cell.points.end(), first);
        for (; point != cell.points.end() && *point - first < count; ++point) {
            uint8_t& flags = records[static_cast<int64_t>(*point - first) * kRecordSize + kFlagByte];
            if (!(flags & kHiddenBits)) continue;
            flags &= static_cast<uint8_t>(~kHiddenBits);
            ++shown;
        }
    });
}

void showRecords(const OctreeInfo& octree, const std::vector<ChangeRecord::Cell>& cells, CmdResult& result)
{
    const int count = static_cast<int>(cells.size());
    uint64_t shown = 0;
    uint64_t unreadable = 0;
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))        \
    reduction(+ : shown, unreadable)
    for (int i = 0; i < count; ++i)
        if (!showPoints(octree, cells[i], shown)) ++unreadable;
    result.pointsChanged += shown;
    result.cellsUnreadable += unreadable;
}

} // namespace

PolygonPointCmd::PolygonPointCmd(int barrierCount, Edit edit)
    : BaseCmd(barrierCount, true), _changes(std::make_unique<ChangeRecord>()), _edit(edit)
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
    result.maskMissing = !mask.isValid();
    if (!mask.isValid() || _vpw.isNaN() || (outside && _polygon.size() < 3)) return result;

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

void PolygonPointCmd::editStore(OctreeInfo& octree, const ScreenMask& mask, CmdResult& result)
{
    const osg::Matrixd localToWorld = modelMatrix(octree);
    const osg::Matrixd localToWindow = localToWorld * _vpw;
    const bool outside = _type == Type::OUTSIDE;
    osg::Polytope::PlaneList planes;
    if (!outside && !rectanglePlanes(_polygon, _height, localToWindow, planes)) return;
    const RecordScreenTest test(octree.scale, localToWindow, toLocal(_clipPlanes, localToWorld), mask,
                                outside);
    const bool hides = _edit == Edit::HIDE;

    const std::vector<CellData*> reached = cellsInside(octree, planes);
    if (reached.empty()) return;
    const StoreEditLock lock(octree);
    std::vector<ChangeRecord::Cell> cells = markCells(octree, reached, test, hides ? hide : show, result);
    if (cells.empty()) return;
    editLoadedCells(cells, hides ? 0 : kHiddenAttributeBits, hides ? kCulledAttributeBit : 0);
    _changes->stores.push_back({&octree, std::move(cells)});
}

void PolygonPointCmd::undo(bool inStore)
{
    CmdResult result;
    for (const ChangeRecord::Store& store : _changes->stores) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!store.octree.lock(octree)) {
            ++result.storesGone;
            continue;
        }
        const StoreEditLock lock(*octree);
        if (inStore) showRecords(*octree, store.cells, result);
        editLoadedCells(store.cells, kHiddenAttributeBits, 0);
    }
    *_changes = {};
    report(result);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

CullCmd::CullCmd(int barrierCount) : PolygonPointCmd(barrierCount, Edit::HIDE) {}

void CullCmd::reset(CullCmdManager*)
{
    undo(true);
}

XorCullCmd::XorCullCmd(int barrierCount) : PolygonPointCmd(barrierCount, Edit::SHOW) {}

void XorCullCmd::reset(CullCmdManager*)
{
    undo(false);
}

} // namespace VelOsgDBBrx
