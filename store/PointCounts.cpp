#include <VelBrx/PointCounts.h>

#include "store/PointScan.h"
#include "store/PointTally.h"
#include "store/StoreHead.h"

#include <new>

namespace VelBrx {

Status countPoints(const std::string& path, PointCounts& counts)
try {
    FileReader file;
    StoreHead head;
    StoreIndex index;
    if (Status read = readStore(path, file, head, index); !read)
        return Status::failure(path + ": " + read.message());

    std::vector<PointTally> tallies(scanWorkers());
    const std::vector<PointRun> all{{0, static_cast<int64_t>(head.header.pointCount), 0}};
    const auto count = [&](unsigned worker, const PointRun& part, const uint8_t* records) {
        tallies[worker].add(records, static_cast<size_t>(part.count));
    };
    if (!scanPoints(file, head.header.pointDataStart, all, count))
        return Status::failure(path +
                               ": the points cannot be read; check the disk and that nothing cut the file");
    for (size_t worker = 1; worker < tallies.size(); ++worker)
        tallies[0].add(tallies[worker]);
    const PointTally& sum = tallies[0];
    counts = {sum.byClass, sum.byReturn(), sum.byNumberOfReturns(), sum.hidden};
    return {};
} catch (const std::bad_alloc&) {
    return Status::failure(path + ": needs more memory than there is; close other programs");
}

} // namespace VelBrx
