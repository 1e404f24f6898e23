#include "store/builder/LoadInput.h"

#include "store/builder/ColumnCounts.h"
#include "store/builder/LoadPoints.h"
#include "store/builder/StoreHeader.h"
#include "store/io/OutputFile.h"

#include <algorithm>

namespace VelBrx {

namespace {

constexpr unsigned kPasses = 4; ///< points are scanned, loaded, sorted and written

/// Bytes a point that store records and flags do not hold, by source, as far as the formats tell.
std::vector<uint32_t> restLengths(const SourceSet& sources)
{
    std::vector<uint32_t> lengths;
    for (const BuildSource& source : sources.sources())
        lengths.push_back(source.format.restLength());
    return lengths;
}

/// The same with the coordinates that are not on the grid of the store.
std::vector<uint32_t> restLengths(const SourceSet& sources, const StoreGrid& grid)
{
    constexpr uint32_t kCoordinatesLength = 12;
    std::vector<uint32_t> lengths = restLengths(sources);
    for (size_t i = 0; i < lengths.size(); ++i)
        if (!grid.isExact(i)) lengths[i] += kCoordinatesLength;
    return lengths;
}

BuildForecast forecastOf(const SourceSet& sources, const std::vector<uint32_t>& restLengths)
{
    const uint64_t points = sources.pointCount();
    const uint64_t flagsAndClasses = points * 3 / 2;
    const uint64_t index = points / 50; // or less
    BuildForecast forecast{points, points * PointSpool::itemSize(points) + flagsAndClasses + index};
    for (size_t i = 0; i < restLengths.size(); ++i) {
        const LasFile& file = sources.sources()[i].points->file();
        forecast.storeBytes +=
            file.pointCount * restLengths[i] + file.pointDataStart + file.fileSize - file.pointDataEnd();
    }
    return forecast;
}

/// Whether points have the same places in both.
bool areSame(const StoreGrid& a, const StoreGrid& b)
{
    for (size_t source = 0; source < a.mappings.size(); ++source)
        for (size_t axis = 0; axis < 3; ++axis)
            if (a.mappings[source][axis].exact != b.mappings[source][axis].exact) return false;
    return a.cubeSize == b.cubeSize && std::equal(a.scale, a.scale + 3, b.scale) &&
           std::equal(a.offset, a.offset + 3, b.offset) && std::equal(a.min, a.min + 3, b.min);
}

/// Scans all points once: fixes the grid and divides columns into chunks. Columns are counted in the same
/// scan on the grid that the headers promise, and once more where the headers are wrong. Crowded columns are
/// counted again, more finely.
Status scanSources(SourceSet& sources, const BuildMemory& memory, ParallelRun& run, StoreGrid& grid,
                   std::unique_ptr<ChunkPlan>& plan)
{
    const bool needsCounts = sources.pointCount() > memory.chunkPoints;
    plan = needsCounts ? std::make_unique<ChunkPlan>() : std::make_unique<ChunkPlan>(sources.pointCount());
    std::unique_ptr<ColumnCounts> counts;
    const auto count = [&](size_t source, const PointBatch& batch) {
        if (!counts) return;
        const size_t stride = sources.sources()[source].format.recordLength();
        counts->add(source, batch.records.data(), batch.records.size() / stride, stride);
    };
    StoreGrid stated;
    if (needsCounts && makeStoreGrid(sources.statedExtents(), stated))
        counts = std::make_unique<ColumnCounts>(stated, *plan);
    run.begin("scanning");
    if (Status status = sources.scan(run, memory.keptBytes, count); !status || !sources.areReadable())
        return status;
    if (Status status = makeStoreGrid(sources.extents(), grid); !status) return status;
    if (counts && !areSame(stated, grid)) counts.reset();
    for (unsigned passes = kPasses + 1; plan->openCount() > 0; ++passes) {
        if (!counts) {
            counts = std::make_unique<ColumnCounts>(grid, *plan);
            run.setTotal(sources.pointCount(), passes);
            run.begin("counting");
            if (Status status = sources.read(run, count); !status) return status;
        }
        counts->accumulate();
        plan->divide(*counts, memory.chunkPoints, memory.columnPoints);
        counts.reset();
    }
    return {};
}

/// Fails when a chunk that cannot be divided is too large for the memory.
Status checkChunks(const ChunkPlan& plan, const BuildMemory& memory)
{
    uint64_t largest = 0;
    for (const Chunk& chunk : plan.chunks())
        largest = std::max(largest, chunk.pointCount);
    return memory.checkFits(largest);
}

/// Why a build fails for inputs that cannot be used.
Status failureOf(const std::vector<Status>& bad)
{
    if (bad.size() == 1) return bad.front();
    return Status::failure(bad.front().message() + "; of the inputs " + std::to_string(bad.size() - 1) +
                               " more cannot be used: mend them or leave them out",
                           bad.front().kind());
}

} // namespace

Status loadSources(const BuildOptions& options, LoadedInput& input)
{
    SourceSet& sources = input.sources;
    input.notes.clear();
    if (Status status = sources.dropUnreadable(); !status) return status;
    if (Status status = checkCompatible(sources.files(), options, input.notes); !status) return status;
    if (Status status = BuildMemory::plan(options, sources.pointCount(), input.memory); !status)
        return status;
    if (options.forecast) options.forecast(forecastOf(sources, restLengths(sources)));
    ParallelRun& run = input.run.emplace(input.memory.threads, options.progress, options.cancel);
    run.setTotal(sources.pointCount(), kPasses);
    const Status scanned = scanSources(sources, input.memory, run, input.grid, input.plan);
    const bool isBuilt = options.skipBad || sources.bad().empty(); // else what is bad is only found out
    if (!scanned || !sources.areReadable() || !isBuilt) return scanned;
    if (Status status = checkChunks(*input.plan, input.memory); !status) return status;

    const std::vector<uint32_t> rests = restLengths(sources, input.grid);
    input.spool = std::make_unique<PointSpool>(sources, *input.plan, rests);
    PointSpool& spool = *input.spool;
    const uint64_t gathered = sources.pointCount() * spool.itemSize() / 10; // when the store is written
    const uint64_t store = forecastOf(sources, rests).storeBytes;
    if (Status status = OutputFile::checkSpace(options.output, spool.size() + gathered + store); !status)
        return status;
    if (Status status = spool.create(options.output, input.memory.bufferBytes); !status) return status;
    run.begin("reading");
    return loadPoints(sources, input.grid, *input.plan, spool, run, input.statistics);
}

Status loadInput(const BuildOptions& options, LoadedInput& input, std::vector<std::string>& bad)
{
    const SourceSet& sources = input.sources;
    Status status = input.sources.open(options.inputs);
    do {
        if (status) status = loadSources(options, input);
    } while (status && options.skipBad && !sources.areReadable());
    for (const Status& one : sources.bad())
        bad.push_back(one.message());
    if (sources.bad().empty() || options.skipBad) return status;
    return failureOf(sources.bad());
}

} // namespace VelBrx
