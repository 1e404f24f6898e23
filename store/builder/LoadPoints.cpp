#include "store/builder/LoadPoints.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <cstring>
#include <mutex>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr size_t kCoordinatesLength = 12;
constexpr uint16_t kWiden = 257; ///< takes 0 to 255 to 0 to 65535

void widenColors(uint8_t* records, size_t count)
{
    for (size_t i = 0; i < count; ++i, records += kPointSize)
        for (size_t color : {kRed, kGreen, kBlue})
            storeLe(records + color, static_cast<uint16_t>(loadLe<uint16_t>(records + color) * kWiden));
}

/// Converts batches of source records. Any thread.
class BatchLoader
{
public:
    BatchLoader(const SourceSet& sources, const StoreGrid& grid, const ChunkPlan& plan, PointSpool& spool)
        : _sources(sources), _grid(grid), _plan(plan), _spool(spool), _places(grid)
    {
    }

    Status load(size_t source, const PointBatch& batch, StatisticsCollector& statistics) const
    {
        const RecordFormat& format = _sources.sources()[source].format;
        const uint64_t first = _sources.sources()[source].firstOrdinal + batch.first;
        const size_t sourceLength = format.recordLength();
        const size_t count = batch.records.size() / sourceLength;
        const size_t stride = _spool.restLength(source);
        const bool isExact = _grid.isExact(source);
        const auto recordMemory = uninitialised<uint8_t>(count * kPointSize);
        uint8_t* const records = recordMemory.get();
        std::vector<uint8_t> flags(count);
        std::vector<uint8_t> rest(count * stride);
        if (!isExact)
            for (size_t i = 0; i < count; ++i)
                std::memcpy(&rest[i * stride], &batch.records[i * sourceLength], kCoordinatesLength);
        format.decode(batch.records.data(), count, records, flags.data(),
                      isExact ? rest.data() : rest.data() + kCoordinatesLength, stride);
        _grid.mapRecords(source, records, count);
        if (_sources.hasNarrowColors()) widenColors(records, count);
        statistics.add(records, count, first);

        Status status = append(records, count, first);
        if (status) status = _spool.writeFlags(first, flags);
        if (status) status = _spool.writeRest(source, batch.first * stride, rest);
        return status;
    }

private:
    /// Appends records to their chunks and writes their classes.
    Status append(const uint8_t* records, size_t count, uint64_t first) const
    {
        std::vector<uint8_t> classes(count);
        std::vector<uint32_t> chunks(count);
        const auto coordinate = [&](size_t i, size_t axis) {
            return loadLe<int32_t>(records + i * kPointSize + kX + 4 * axis);
        };
        _places.forColumnCodes(count, 2, coordinate, [&](size_t i, uint64_t code) {
            classes[i] = records[i * kPointSize + kClass];
            chunks[i] = static_cast<uint32_t>(_plan.chunkOf(code));
        });
        const Status status = _spool.append(records, chunks, first);
        return status ? _spool.writeClasses(first, classes) : status;
    }

    const SourceSet& _sources;
    const StoreGrid& _grid;
    const ChunkPlan& _plan;
    PointSpool& _spool;
    const GridPlaces _places;
};

} // namespace

Status loadPoints(SourceSet& sources, const StoreGrid& grid, const ChunkPlan& plan, PointSpool& spool,
                  ParallelRun& run, StoreStatistics& statistics)
{
    const std::vector<SourceSet::Part> parts = sources.parts();
    const BatchLoader loader(sources, grid, plan, spool);
    std::mutex mutex;
    StatisticsCollector all(sources.pointCount()); // guarded by mutex
    const Status status = run.forEach(parts.size(), [&](size_t i) {
        StatisticsCollector ofPart(sources.pointCount());
        const BuildSource& source = sources.sources()[parts[i].source];
        Status loaded;
        const auto use = [&](const PointBatch& batch) {
            loaded = loader.load(parts[i].source, batch, ofPart);
            const Status goesOn = run.step(batch.records.size() / source.format.recordLength());
            if (loaded) loaded = goesOn;
            return loaded;
        };
        const Status read = sources.readPart(parts[i], use, RecordFields::All);
        sources.forget(parts[i]);
        if (loaded && !read) sources.noteUnreadable(parts[i].source, read);
        const std::lock_guard lock(mutex);
        all.add(ofPart);
        return loaded;
    });
    statistics = all.finish(grid);
    return status && sources.areReadable() ? spool.flush() : status;
}

} // namespace VelBrx
