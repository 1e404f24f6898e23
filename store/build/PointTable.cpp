#include "store/build/PointTable.h"

#include "store/ByteIo.h"
#include "store/LasLayout.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr size_t kCoordinatesLength = 12;
constexpr uint16_t kWiden = 257; ///< takes 0 to 255 to 0 to 65535

/// Leading bits of the code by which points are parted before they are sorted: 6 digits of a column's place,
/// so that a part holds whole columns of every level's grid, or 4 digits of a Morton code.
constexpr unsigned kPartBits = 12;
static_assert(kPartBits <= 2 * kGridDigits);
constexpr size_t kPartCount = size_t{1} << kPartBits;

size_t partOf(const TreePoint& point)
{
    return point.code >> (3 * kMortonLevels - kPartBits);
}

/// Memory that is not touched before it is filled.
template <typename T>
std::unique_ptr<T[]> uninitialised(uint64_t count)
{
    return std::unique_ptr<T[]>(new T[count]);
}

} // namespace

PointTable::PointTable(const SourceSet& sources, const StoreGrid& grid)
    : _sources(sources), _grid(grid), _places(grid), _count(sources.pointCount()),
      _widensColors(sources.hasNarrowColors())
{
}

uint32_t PointTable::restLength(size_t source) const
{
    const uint32_t coordinates = _grid.isExact(source) ? 0 : kCoordinatesLength;
    return coordinates + _sources.sources()[source].format.restLength();
}

Status PointTable::load(BuildRun& run)
{
    _records = uninitialised<uint8_t>(_count * kPointSize);
    _flags = uninitialised<uint8_t>(_count);
    _points = uninitialised<TreePoint>(_count);
    for (size_t source = 0; source < _sources.sources().size(); ++source)
        _rest.emplace_back(_sources.sources()[source].points->file().pointCount * restLength(source));

    const std::vector<SourceSet::Part> parts = _sources.parts();
    StatisticsCollector all(_count);
    std::mutex mutex; // guards all
    const Status status = run.forEach(parts.size(), [&](size_t i) {
        StatisticsCollector statistics(_count);
        const auto& [source, index] = parts[i];
        Status loaded = _sources.sources()[source].points->readPart(
            index, [&](const PointBatch& batch) { return run.step(loadBatch(source, batch, statistics)); });
        const std::lock_guard lock(mutex);
        all.add(statistics);
        return loaded;
    });
    _statistics = all.finish(_grid);
    return status;
}

/// Returns how many points there are in the batch.
size_t PointTable::loadBatch(size_t sourceIndex, const PointBatch& batch, StatisticsCollector& statistics)
{
    const BuildSource& source = _sources.sources()[sourceIndex];
    const size_t sourceLength = source.format.recordLength();
    const size_t count = batch.records.size() / sourceLength;
    const uint64_t first = source.firstOrdinal + batch.first;

    uint8_t* records = &_records[first * kPointSize];
    const size_t stride = restLength(sourceIndex);
    uint8_t* rest = stride ? &_rest[sourceIndex][batch.first * stride] : nullptr;
    if (!_grid.isExact(sourceIndex))
        for (size_t i = 0; i < count; ++i)
            std::memcpy(rest + i * stride, &batch.records[i * sourceLength], kCoordinatesLength);
    source.format.decode(batch.records.data(), count, records, &_flags[first],
                         _grid.isExact(sourceIndex) ? rest : rest + kCoordinatesLength, stride);
    _grid.mapRecords(sourceIndex, records, count);
    if (_widensColors) widenColors(records, count);
    statistics.add(records, count, first);
    for (size_t i = 0; i < count; ++i, records += kPointSize)
        _points[first + i] = {_places.columnCode(loadLe<int32_t>(records + kX), loadLe<int32_t>(records + kY),
                                                 loadLe<int32_t>(records + kZ)),
                              first + i, 0};
    return count;
}

void PointTable::widenColors(uint8_t* records, size_t count) const
{
    for (size_t i = 0; i < count; ++i, records += kPointSize)
        for (size_t color : {kRed, kGreen, kBlue})
            storeLe(records + color, static_cast<uint16_t>(loadLe<uint16_t>(records + color) * kWiden));
}

/// Brings the points into the order of their parts. Returns the bounds of the parts.
std::vector<size_t> PointTable::partition(BuildRun& run)
{
    const size_t slices = std::min<size_t>(run.threads(), _count);
    const auto sliceStart = [&](size_t slice) { return _count * slice / slices; };
    std::vector<std::vector<size_t>> starts(slices, std::vector<size_t>(kPartCount));
    const std::unique_ptr<TreePoint[]> unordered = std::move(_points);
    _points = uninitialised<TreePoint>(_count);

    const std::atomic<bool> never{false};
    (void)parallelFor(run.threads(), slices, never, [&](size_t slice) -> Status {
        for (size_t i = sliceStart(slice); i < sliceStart(slice + 1); ++i)
            ++starts[slice][partOf(unordered[i])];
        return {};
    });
    std::vector<size_t> bounds = {0};
    size_t start = 0;
    for (size_t part = 0; part < kPartCount; ++part) {
        for (std::vector<size_t>& slice : starts)
            start += std::exchange(slice[part], start);
        if (start != bounds.back()) bounds.push_back(start);
    }
    (void)parallelFor(run.threads(), slices, never, [&](size_t slice) -> Status {
        for (size_t i = sliceStart(slice); i < sliceStart(slice + 1); ++i)
            _points[starts[slice][partOf(unordered[i])]++] = unordered[i];
        return {};
    });
    return bounds;
}

/// Sorts all points by code; `finish` is called for each part then.
Status PointTable::sortParts(BuildRun& run, void (*finish)(TreePoint*, size_t))
{
    const std::vector<size_t> bounds = partition(run);
    return run.forEach(bounds.size() - 1, [&](size_t part) -> Status {
        TreePoint* const points = &_points[bounds[part]];
        const size_t count = bounds[part + 1] - bounds[part];
        const auto scratch = uninitialised<TreePoint>(count);
        sortByCode(points, count, scratch.get());
        finish(points, count);
        run.done(count);
        return {};
    });
}

Status PointTable::divide(BuildRun& run)
{
    Status status = sortParts(run, [](TreePoint* points, size_t count) {
        assignLevels(points, count);
        for (size_t i = 0; i < count; ++i)
            points[i].code = mortonCodeOf(points[i].code);
    });
    if (status) status = sortParts(run, [](TreePoint*, size_t) {});
    if (!status) return status;
    _levels = uninitialised<uint8_t>(_count);
    for (uint64_t i = 0; i < _count; ++i)
        _levels[i] = _points[i].level;
    _cells = divideIntoCells(_points.get(), _count, _levels.get());
    return {};
}

} // namespace VelBrx
