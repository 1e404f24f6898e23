#include "edit/CellClasses.h"

#include "edit/StoreEdit.h"
#include "loading/OpenOctrees.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

using VelBrx::EditRuns;
using VelBrx::Status;

VelThreads::Mutex& classEditMutex()
{
    static VelThreads::Mutex mutex;
    return mutex;
}

void gatherClasses(const uint8_t* records, int64_t count, uint8_t* classes)
{
    for (int64_t i = 0; i < count; ++i)
        classes[i] = records[i * kRecordSize + kClassByte];
}

bool readClasses(VelBrx::File& file, const CellPlace& place, std::vector<uint8_t>& classes)
{
    classes.assign(place.pointCount, 0);
    return forEachRun(file, place.pointDataStart, place.segments,
                      [&](const uint8_t* records, int64_t count, uint32_t first) {
                          gatherClasses(records, count, classes.data() + first);
                      });
}

osg::ref_ptr<OctreeInfo> openOctree(const CellPlace& place)
{
    osg::ref_ptr<CellData> cell;
    osg::ref_ptr<OctreeInfo> octree;
    if (place.cell.lock(cell)) cell->octree.lock(octree);
    if (!octree && place.file) octree = findOpenOctree(place.file->identity());
    return octree;
}

UnwrittenClasses::Cell currentCell(const CellPlacePtr& place)
{
    UnwrittenClasses::Cell cell = UnwrittenClasses::instance().find(place->identifier);
    if (cell.current) return cell;

    cell.place = place;
    if (!place->file) return cell;
    std::vector<uint8_t> classes;
    readClasses(*place->file, *place, classes);
    cell.written = cell.current = std::make_shared<const std::vector<uint8_t>>(std::move(classes));
    return cell;
}

uint64_t differingBits(const uint8_t* a, const uint8_t* b, size_t count)
{
    constexpr uint64_t kLow = 0x7F7F7F7F7F7F7F7Fu;
    uint64_t bits = 0;
    for (size_t i = 0; i < count; i += 8) {
        uint64_t x = 0;
        uint64_t y = 0;
        std::memcpy(&x, a + i, std::min<size_t>(8, count - i));
        std::memcpy(&y, b + i, std::min<size_t>(8, count - i));
        const uint64_t d = x ^ y;
        const uint64_t highBits = (((d & kLow) + kLow) | d) & ~kLow; // of the bytes of d that are not zero
        bits |= ((highBits >> 7) * 0x0102040810204080u >> 56) << i;  // moved together
    }
    return bits;
}

size_t countDifferent(const uint8_t* a, const uint8_t* b, size_t count)
{
    size_t different = 0;
    for (size_t i = 0; i < count; i += 64)
        different += __builtin_popcountll(differingBits(a + i, b + i, std::min<size_t>(64, count - i)));
    return different;
}

size_t countDifferent(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b)
{
    return countDifferent(a.data(), b.data(), a.size());
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

/// Records the points of consecutive records that differ; `first` is the number of the first.
void record(const uint8_t* before, const uint8_t* after, size_t count, uint64_t first, EditRuns& runs)
{
    for (size_t word = 0; word < count; word += 64) {
        const size_t length = std::min<size_t>(64, count - word);
        const uint64_t bits = differingBits(before + word, after + word, length);
        if (bits == 0) continue;
        const size_t end = word + 64 - static_cast<size_t>(__builtin_clzll(bits));
        for (size_t i = word + static_cast<size_t>(__builtin_ctzll(bits)), next = i; i < end; i = next) {
            for (next = i + 1; next < end && before[next] == before[i] && after[next] == after[i];)
                ++next;
            if (before[i] != after[i]) runs.add(first + i, next - i, before[i], after[i]);
        }
    }
}

void record(const EditedCell& cell, EditRuns& runs)
{
    size_t place = 0;
    for (const VelBrx::Segment& segment : cell.place->segments) {
        if (segment.count <= 0) continue;
        const auto count = static_cast<size_t>(segment.count);
        record(cell.before->data() + place, cell.after->data() + place, count,
               static_cast<uint64_t>(segment.first), runs);
        place += count;
    }
}

/// Writes a change of classes down.
Status record(const std::vector<EditedCell>& cells, VelBrx::EditJournal& journal,
              const VelBrx::EditDescription& edit, uint64_t& change)
{
    VelBrx::EditRecorder recorder(journal);
    if (Status status = recorder.begin(edit); !status) return status;
    const int count = static_cast<int>(cells.size());
    Status recorded;
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))
    {
        EditRuns runs(recorder);
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i)
            record(cells[i], runs);
        const Status written = runs.finish();
#pragma omp critical(VelOsgDBBrxRecordClasses)
        if (!written) recorded = written;
    }
    return recorded ? recorder.commit(change) : recorded;
}

} // namespace

void publishClasses(const std::vector<EditedCell>& cells)
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

Status recordAndPublishClasses(std::vector<EditedCell>& cells,
                               const std::shared_ptr<VelBrx::EditJournal>& journal,
                               VelBrx::EditDescription edit, uint64_t& change)
{
    change = 0;
    if (cells.empty()) return {};
    if (journal) {
        edit.field = VelBrx::PointRecord::kClass;
        edit.mask = 0xFF;
        edit.deferred = true;
        if (Status status = record(cells, *journal, edit, change); !status) return status;
    }
    for (EditedCell& cell : cells) {
        if (cell.place->journal == journal) continue;
        const auto place = std::make_shared<CellPlace>(*cell.place);
        place->journal = journal;
        cell.place = place;
    }
    publishClasses(cells);
    return {};
}
