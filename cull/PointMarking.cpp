#include "cull/PointMarking.h"

#include "cull/JournalledEdit.h"
#include "edit/ReachedPoints.h"
#include "edit/StoreEdit.h"

#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>

using VelOsgDBBrx::CmdResult;

const PointMark kHideMark = {false, 0, kCulledBit};
const PointMark kShowMark = {true, kHiddenBits, 0};

namespace {

/// Records the marked points of a cell. False where some records could not be read.
bool recordCell(const OctreeInfo& octree, const CellData& cell, const PointTest& test, const PointMark& mark,
                const JournalledEdit& edit, VelBrx::EditRuns& runs)
{
    ClassReader<kMarkChunk> classes(cell, test.readsClasses());
    return forEachRun(octree, cell, [&](const uint8_t* records, int64_t count, uint32_t place) {
        uint16_t places[kMarkChunk];
        for (int64_t done = 0; done < count; done += kMarkChunk) {
            const uint8_t* chunk = records + done * kRecordSize;
            const int length = static_cast<int>(std::min<int64_t>(kMarkChunk, count - done));
            const uint8_t* current = classes.read(chunk, length, place + static_cast<size_t>(done));
            const size_t found = findMarked(chunk, length, current, test, mark, places);
            const uint64_t first = edit.recordOf(chunk);
            const auto hiddenBits = [&](size_t i) {
                return static_cast<uint8_t>(chunk[places[i] * kRecordSize + kFlagByte] & kHiddenBits);
            };
            for (size_t i = 0, next = 0; i < found; i = next) {
                const uint8_t before = hiddenBits(i);
                for (next = i + 1; next < found && places[next] == places[next - 1] + 1; ++next)
                    if (hiddenBits(next) != before) break;
                runs.add(first + places[i], next - i, before, mark.of(before));
            }
        }
    });
}

} // namespace

size_t findMarked(const uint8_t* records, int count, const uint8_t* classes, const PointTest& test,
                  const PointMark& mark, uint16_t* places)
{
    size_t found = 0;
    for (int done = 0; done < count; done += PointTest::kBlock) {
        uint8_t accepted[PointTest::kBlock];
        const int block = std::min(PointTest::kBlock, count - done);
        test.test(records + done * kRecordSize, block, classes ? classes + done : nullptr, accepted);
        for (int i = done; i < done + block; ++i) {
            const bool isHidden = records[i * kRecordSize + kFlagByte] & kHiddenBits;
            places[found] = static_cast<uint16_t>(i);
            found += accepted[i - done] && isHidden == mark.ofHidden;
        }
    }
    return found;
}

uint64_t markJournalled(OctreeInfo& octree, const std::vector<CellData*>& cells, const PointTest& test,
                        const PointMark& mark, const VelBrx::EditDescription& description,
                        EditControl* control, CmdResult& result)
{
    JournalledEdit edit(octree, description, result);
    if (!edit.isOpen()) return 0;
    const auto isCancelled = [control] { return control && control->isCancelled(); };
    const int count = static_cast<int>(cells.size());
    uint64_t unreadable = 0;
    VelBrx::Status recorded;
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count)) reduction(+ : unreadable)
    {
        VelBrx::EditRuns runs(edit.recorder());
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            if (isCancelled()) continue;
            unreadable += !recordCell(octree, *cells[i], test, mark, edit, runs);
            if (control) control->addDone(1);
        }
        const VelBrx::Status written = runs.finish();
#pragma omp critical(VelOsgDBBrxRecord)
        if (!written) recorded = written;
    }
    if (isCancelled()) return 0;
    result.cellsUnreadable += unreadable;
    return edit.finish(recorded);
}

std::vector<CellData*> EveryPoint::cells() const
{
    return allCells(_octree);
}

void EveryPoint::test(const uint8_t*, int count, const uint8_t*, uint8_t* accepted) const
{
    std::fill_n(accepted, count, uint8_t{1});
}
