#include "store/builder/ChunkPlan.h"

#include "store/builder/ColumnCounts.h"

#include <algorithm>
#include <utility>

namespace VelBrx {

void ChunkPlan::divide(const ColumnCounts& counts, uint64_t chunkPoints, uint64_t columnPoints)
{
    const size_t outerCount = std::exchange(_openCount, 0);
    _layers.push_back({counts.columns(), std::vector<uint32_t>(counts.size())});
    for (size_t outer = 0; outer < outerCount; ++outer)
        divide(counts, chunkPoints, columnPoints, outer, counts.columns().outerDigits);
}

/// Divides the points of a column of `digits` digits: large quarters further, small neighbours stay together.
void ChunkPlan::divide(const ColumnCounts& counts, uint64_t chunkPoints, uint64_t columnPoints,
                       uint64_t column, unsigned digits)
{
    const unsigned below = counts.columns().digits - (digits + 1);
    const uint64_t width = uint64_t{1} << 2 * below;
    const uint64_t limit = digits + 1 < kCountDigits ? chunkPoints : columnPoints;
    uint64_t first = 4 * column * width; // of the quarters that are still to become a chunk
    uint64_t pending = 0;
    for (uint64_t quarter = 4 * column; quarter < 4 * column + 4; ++quarter) {
        const uint64_t start = quarter * width;
        const uint64_t points = counts.sum(start, start + width);
        const bool isLarge = points > limit && digits + 1 < kMortonLevels;
        if (isLarge || pending + points > chunkPoints) {
            add(first, start, pending, digits + 1);
            first = start;
            pending = 0;
        }
        if (isLarge) {
            if (below > 0)
                divide(counts, chunkPoints, columnPoints, quarter, digits + 1);
            else
                _layers.back().entries[quarter] = kOpen | static_cast<uint32_t>(_openCount++);
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
    const auto entries = _layers.back().entries.begin();
    std::fill(entries + static_cast<std::ptrdiff_t>(firstColumn),
              entries + static_cast<std::ptrdiff_t>(lastColumn), static_cast<uint32_t>(_chunks.size()));
    const uint64_t firstPoint = _chunks.empty() ? 0 : _chunks.back().firstPoint + _chunks.back().pointCount;
    _chunks.push_back({digits, firstPoint, pointCount});
}

} // namespace VelBrx
