#include <VelOsgDBBrx/ResetCmd.h>

#include "cull/PointMarking.h"
#include "cull/StoreProblems.h"
#include "edit/StoreEdit.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <VelBrx/FileWriter.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgUtils/ThreadCount.h>

namespace VelOsgDBBrx {

namespace {

/// Clears the hidden bits of a run of records. A record without them is not written: its page stays clean.
/// False when some could not be written.
bool showRecords(VelBrx::FileWriter& writer, uint8_t* records, int64_t count, uint64_t& shown)
{
    std::vector<uint32_t> places;
    for (int64_t i = 0; i < count; ++i)
        if (records[i * kRecordSize + kFlagByte] & kHiddenBits) places.push_back(static_cast<uint32_t>(i));
    const size_t written =
        writer.set(records, kRecordSize, kFlagByte, places.data(), places.size(),
                   [](size_t, uint8_t flags) { return static_cast<uint8_t>(flags & ~kHiddenBits); });
    shown += written;
    return written == places.size();
}

bool showAttribute(osg::IntArray& attribute)
{
    bool changed = false;
    for (int& value : attribute) {
        changed |= (value & PointAttributes::kHiddenBits) != 0;
        value &= ~PointAttributes::kHiddenBits;
    }
    return changed;
}

void showStore(OctreeInfo& octree, CmdResult& result)
{
    const StoreEditLock lock(octree);
    if (octree.keepsJournal) {
        VelBrx::EditDescription edit;
        edit.operation = R"({"op":"reset"})";
        const EveryPoint test(octree);
        markJournalled(octree, test.cells(), test, kShowMark, edit, nullptr, result);
        return;
    }
    VelBrx::FileWriter writer(*octree.pointFile);
    std::vector<CellData*> shown;
    for (CellData* cell : allCells(octree)) {
        bool written = true;
        const bool readable = forEachRun(octree, *cell, [&](uint8_t* records, int64_t count, uint32_t) {
            written = showRecords(writer, records, count, result.pointsChanged) && written;
        });
        result.cellsUnreadable += !readable;
        result.cellsUnwritten += !written;
        if (written) shown.push_back(cell);
    }
    noteProblem(octree, writer, result);
    PCDataManager::getInstance()->discardReadsInProgress();
    for (const CellData* cell : shown)
        editLoadedCell(*cell, showAttribute);
}

CmdResult show(const osg::observer_ptr<OctreeInfo>& observed)
{
    CmdResult result;
    osg::ref_ptr<OctreeInfo> octree;
    if (!observed.lock(octree))
        ++result.storesGone;
    else if (!isEditable(*octree))
        ++result.storesReadOnly;
    else if (lockForEditing(*octree, result))
        showStore(*octree, result);
    return result;
}

} // namespace

ResetCmd::ResetCmd(int barrierCount) : BaseCmd(barrierCount, false) {}

void ResetCmd::operator()(CullCmdManager*)
{
    const int count = static_cast<int>(_octreeInfos.size());
    CmdResult result;
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    for (int i = 0; i < count; ++i) {
        const CmdResult ofStore = show(_octreeInfos[i]);
#pragma omp critical(VelOsgDBBrxReset)
        result.add(ofStore);
    }
    report(result);
    block(0);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

void ResetCmd::reset(CullCmdManager*) {}

} // namespace VelOsgDBBrx
