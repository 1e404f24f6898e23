#include <VelOsgDBBrx/ResetCmd.h>

#include "cull/StoreEdit.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgUtils/ThreadCount.h>

namespace VelOsgDBBrx {

namespace {

/// Clears the hidden bits of a cell's records; returns how many points had any. A record without them is not
/// written: its page stays clean.
uint64_t showRecords(uint8_t* records, int64_t count)
{
    uint64_t shown = 0;
    for (int64_t i = 0; i < count; ++i) {
        uint8_t& flags = records[i * kRecordSize + kFlagByte];
        if (!(flags & kHiddenBits)) continue;
        flags &= static_cast<uint8_t>(~kHiddenBits);
        ++shown;
    }
    return shown;
}

bool showAttribute(osg::IntArray& attribute)
{
    bool changed = false;
    for (int& value : attribute) {
        changed |= (value & kHiddenAttributeBits) != 0;
        value &= ~kHiddenAttributeBits;
    }
    return changed;
}

void showStore(OctreeInfo& octree, uint64_t& shown, uint64_t& unreadable)
{
    const StoreEditLock lock(octree);
    const std::vector<CellData*> cells = allCells(octree);
    for (const CellData* cell : cells) {
        const bool readable = forEachRun(octree, *cell, [&](uint8_t* records, int64_t count, uint32_t) {
            shown += showRecords(records, count);
        });
        if (!readable) ++unreadable;
    }
    PCDataManager::getInstance()->discardReadsInProgress();
    for (const CellData* cell : cells)
        editLoadedCell(*cell, showAttribute);
}

} // namespace

ResetCmd::ResetCmd(int barrierCount) : BaseCmd(barrierCount, false) {}

void ResetCmd::operator()(CullCmdManager*)
{
    const int count = static_cast<int>(_octreeInfos.size());
    uint64_t shown = 0;
    uint64_t unreadable = 0;
    unsigned int readOnly = 0;
    unsigned int gone = 0;
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))        \
    reduction(+ : shown, unreadable, readOnly, gone)
    for (int i = 0; i < count; ++i) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!_octreeInfos[i].lock(octree))
            ++gone;
        else if (!isEditable(*octree))
            ++readOnly;
        else
            showStore(*octree, shown, unreadable);
    }

    CmdResult result;
    result.pointsChanged = shown;
    result.cellsUnreadable = unreadable;
    result.storesReadOnly = readOnly;
    result.storesGone = gone;
    report(result);
    block(0);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

void ResetCmd::reset(CullCmdManager*) {}

} // namespace VelOsgDBBrx
