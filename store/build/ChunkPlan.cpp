#include "store/build/ChunkPlan.h"

#include "store/ByteIo.h"
#include "store/LasLayout.h"

#include <algorithm>

namespace VelBrx {

namespace {

constexpr uint64_t kColumnCount = uint64_t{1} << 2 * kCountDigits;

} // namespace

ColumnCounts::ColumnCounts(const StoreGrid& grid) : _grid(grid), _places(grid), _counts(kColumnCount) {}

void ColumnCounts::add(size_t source, const uint8_t* records, size_t count, size_t stride)
{
    const std::array<AxisMapping, 3>& axes = _grid.mappings[source];
    for (size_t i = 0; i < count; ++i, records += stride) {
        const auto coordinate = [&](size_t axis) {
            return axes[axis].apply(loadLe<int32_t>(records + LasLayout::kX + 4 * axis));
        };
        const uint64_t code = _places.columnCode(coordinate(0), coordinate(1), 0);
        _counts[columnOf(code, kCountDigits)].fetch_add(1, std::memory_order_relaxed);
    }
}

void ColumnCounts::accumulate()
{
    uint64_t sum = 0;
    for (std::atomic<uint64_t>& count : _counts) {
        sum += count.load(std::memory_order_relaxed);
        count.store(sum, std::memory_order_relaxed);
    }
}

uint64_t ColumnCounts::sum(uint64_t first, uint64_t last) const
{
    const auto before = [this](uint64_t column) {
        return column == 0 ? 0 : _counts[column - 1].load(std::memory_order_relaxed);
    };
    return before(last) - before(first);
}

ChunkPlan::ChunkPlan(uint64_t pointCount)
{
    _chunks.push_back({0, 0, pointCount});
}

ChunkPlan::ChunkPlan(const ColumnCounts& counts, uint64_t chunkPoints) : _chunkOfColumn(kColumnCount)
{
    divide(counts, chunkPoints, 0, 0);
}

/// Divides the points of a column of `digits` digits: large quarters further, small neighbours stay together.
void ChunkPlan::divide(const ColumnCounts& counts, uint64_t chunkPoints, uint64_t column, unsigned digits)
{
    const uint64_t width = kColumnCount >> 2 * (digits + 1);
    uint64_t first = 4 * column * width; // of the quarters that are still to become a chunk
    uint64_t pending = 0;
    for (uint64_t quarter = 4 * column; quarter < 4 * column + 4; ++quarter) {
        const uint64_t start = quarter * width;
        const uint64_t points = counts.sum(start, start + width);
        const bool isLarge = points > chunkPoints && digits + 1 < kCountDigits;
        if (isLarge || pending + points > chunkPoints) {
            add(first, start, pending, digits + 1);
            first = start;
            pending = 0;
        }
        if (isLarge) {
            divide(counts, chunkPoints, quarter, digits + 1);
            first = start + width;
        } else {
            pending += points;
        }
    }
    add(first, 4 * (column + 1) * width, pending, digits + 1);
}

void ChunkPlan::add(uint64_t firstColumn, uint64_t lastColumn, uint64_t pointCount, unsigned digits)
{
    if (pointCount == 0) return;
    std::fill(_chunkOfColumn.begin() + static_cast<std::ptrdiff_t>(firstColumn),
              _chunkOfColumn.begin() + static_cast<std::ptrdiff_t>(lastColumn),
              static_cast<uint32_t>(_chunks.size()));
    const uint64_t firstPoint = _chunks.empty() ? 0 : _chunks.back().firstPoint + _chunks.back().pointCount;
    _chunks.push_back({digits, firstPoint, pointCount});
}

} // namespace VelBrx
