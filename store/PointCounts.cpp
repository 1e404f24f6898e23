#include <VelBrx/PointCounts.h>

#include "store/PointScan.h"
#include "store/PointTally.h"
#include "store/StoreHead.h"
#include "store/io/ParallelFor.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <new>
#include <vector>

namespace VelBrx {

namespace {

Status unreadable(const std::string& path)
{
    return Status::failure(path +
                           ": the points cannot be read; check the disk and that nothing cut the file");
}

Status outOfMemory(const std::string& path)
{
    return Status::failure(path + ": needs more memory than there is; close other programs",
                           Status::Kind::NO_MEMORY);
}

} // namespace

Status countPoints(const std::string& path, PointCounts& counts)
try {
    FileReader file;
    StoreHead head;
    StoreIndex index;
    if (Status read = readStore(path, file, head, index); !read) return read.of(path);

    std::vector<PointTally> tallies(scanWorkers());
    const std::vector<PointRun> all{{0, static_cast<int64_t>(head.header.pointCount), 0}};
    const auto count = [&](unsigned worker, const PointRun& part, const uint8_t* records) {
        tallies[worker].add(records, static_cast<size_t>(part.count));
    };
    if (!scanPoints(file, head.header.pointDataStart, all, count)) return unreadable(path);
    for (size_t worker = 1; worker < tallies.size(); ++worker)
        tallies[0].add(tallies[worker]);
    const PointTally& sum = tallies[0];
    counts = {sum.byClass, sum.byReturn(), sum.byNumberOfReturns(), sum.hidden};
    return {};
} catch (const std::bad_alloc&) {
    return outOfMemory(path);
}

Status countClassesAndHidden(const std::string& path, const std::atomic<bool>& cancel, PointCounts& counts,
                             std::atomic<uint64_t>* done)
try {
    constexpr uint64_t kBlockPoints = 4096; // 144 KiB of records, which stay in the processor's cache
    using LasLayout::kPointSize;
    FileReader file;
    StoreHead head;
    Status read = file.open(path);
    if (read) read = readStoreHead(file, head);
    if (!read) return read.of(path);

    const uint64_t all = head.header.pointCount;
    std::vector<uint8_t> records(kBlockPoints * kPointSize);
    PointCounts found;
    for (uint64_t first = 0; first < all; first += kBlockPoints) {
        if (cancel) return cancelled().of(path);
        const size_t count = std::min(kBlockPoints, all - first);
        const auto start = static_cast<int64_t>(head.header.pointDataStart + first * kPointSize);
        if (!file.read(start, records.data(), count * kPointSize)) return unreadable(path);
        for (const uint8_t* record = records.data(); record != records.data() + count * kPointSize;
             record += kPointSize) {
            ++found.byClass[record[LasLayout::kClass]];
            found.hidden += (record[LasLayout::kFlags] & LasLayout::kHiddenBits) != 0;
        }
        if (done) *done += count;
    }
    counts = found;
    return {};
} catch (const std::bad_alloc&) {
    return outOfMemory(path);
}

} // namespace VelBrx
