#include "store/builder/ColumnCounts.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>

namespace VelBrx {

namespace {

constexpr unsigned kLaterDigits = 10; ///< 2^10 by 2^10 columns in all open ones together

/// A grid for the open columns of `plan`.
ColumnGrid gridFor(const ChunkPlan& plan)
{
    const unsigned outer = plan.openDigits();
    if (outer == 0) return {kCountDigits, 0};
    unsigned added = kLaterDigits;
    while (added > 1 && plan.openCount() << 2 * added > uint64_t{1} << 2 * kLaterDigits)
        --added;
    return {std::min(outer + added, kMortonLevels), outer};
}

} // namespace

ColumnCounts::ColumnCounts(const StoreGrid& grid, const ChunkPlan& plan)
    : _grid(grid), _places(grid), _plan(plan), _columns(gridFor(plan)),
      _counts(plan.openCount() << 2 * (_columns.digits - _columns.outerDigits))
{
}

void ColumnCounts::add(size_t source, const uint8_t* records, size_t count, size_t stride)
{
    const std::array<AxisMapping, 3>& axes = _grid.mappings[source];
    const auto coordinate = [&](size_t i, size_t axis) {
        return axes[axis].apply(loadLe<int32_t>(records + i * stride + LasLayout::kX + 4 * axis));
    };
    _places.forColumnCodes(count, 2, coordinate, [&](size_t, uint64_t code) {
        if (size_t open; _plan.findOpen(code, open))
            _counts[_columns.numberOf(open, code)].fetch_add(1, std::memory_order_relaxed);
    });
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

} // namespace VelBrx
