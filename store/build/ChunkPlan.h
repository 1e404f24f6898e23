#pragma once

#include "store/build/Morton.h"
#include "store/build/StoreGrid.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace VelBrx {

/// Digits of the columns in which points are counted: 2^11 by 2^11 columns over the root cube.
constexpr unsigned kCountDigits = 11;

/// How many points stand in each column. Any thread may add.
class ColumnCounts
{
public:
    explicit ColumnCounts(const StoreGrid& grid);

    const StoreGrid& grid() const { return _grid; }

    /// Counts `count` records of `source`, whose coordinates are the source's; one begins `stride` bytes
    /// after the other.
    void add(size_t source, const uint8_t* records, size_t count, size_t stride);

    /// The number of points in the columns [first, last).
    uint64_t sum(uint64_t first, uint64_t last) const;

    /// Makes `sum` usable and ends counting.
    void accumulate();

private:
    const StoreGrid _grid;
    const GridPlaces _places;
    std::vector<std::atomic<uint64_t>> _counts; ///< after `accumulate` of this column and those before
};

/// Points that are sorted and divided together.
struct Chunk
{
    /// The chunk holds whole columns of `digits` digits: neighbours in one of fewer digits. An octree node of
    /// this level or a finer one lies wholly in one chunk.
    unsigned digits = 0;
    uint64_t firstPoint = 0; ///< points of the chunks before
    uint64_t pointCount = 0;
};

/// Which chunk each column belongs to.
class ChunkPlan
{
public:
    /// One chunk of all points.
    explicit ChunkPlan(uint64_t pointCount);

    /// Chunks of up to `chunkPoints` points; a column of `kCountDigits` digits is not divided.
    ChunkPlan(const ColumnCounts& counts, uint64_t chunkPoints);

    const std::vector<Chunk>& chunks() const { return _chunks; }

    size_t chunkOf(uint64_t columnCode) const
    {
        return _chunkOfColumn.empty() ? 0 : _chunkOfColumn[columnOf(columnCode, kCountDigits)];
    }

private:
    void divide(const ColumnCounts& counts, uint64_t chunkPoints, uint64_t column, unsigned digits);
    void add(uint64_t firstColumn, uint64_t lastColumn, uint64_t pointCount, unsigned digits);

    std::vector<Chunk> _chunks;
    std::vector<uint32_t> _chunkOfColumn;
};

} // namespace VelBrx
