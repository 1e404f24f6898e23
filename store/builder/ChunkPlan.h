#pragma once

#include "store/builder/Morton.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// Digits of the columns in which points are counted first: 2^11 by 2^11 columns over the root cube.
constexpr unsigned kCountDigits = 11;

/// Points that are sorted and divided together.
struct Chunk
{
    /// The chunk holds whole columns of `digits` digits: neighbours in one of fewer digits. An octree node of
    /// this level or a finer one lies wholly in one chunk.
    unsigned digits = 0;
    uint64_t firstPoint = 0; ///< points of the chunks before
    uint64_t pointCount = 0;
};

/// Columns of `digits` digits within some of fewer digits, numbered one of these after the other.
struct ColumnGrid
{
    unsigned digits;
    unsigned outerDigits;

    uint64_t numberOf(uint64_t outer, uint64_t columnCode) const
    {
        const unsigned bits = 2 * (digits - outerDigits);
        return outer << bits | (columnOf(columnCode, digits) & ((uint64_t{1} << bits) - 1));
    }
};

class ColumnCounts;

/// Which chunk each column belongs to. It is made from coarse to fine: as long as columns are open, their
/// points are counted in finer ones and these become chunks, or are open in turn.
class ChunkPlan
{
public:
    /// The root is open.
    ChunkPlan() : _root(kOpen), _openCount(1) {}

    /// One chunk of all points.
    explicit ChunkPlan(uint64_t pointCount) : _chunks{{0, 0, pointCount}} {}

    /// Makes chunks of up to `chunkPoints` points of the open columns. A column of `kCountDigits` or more
    /// digits is divided where it has more than `columnPoints`; one of the finest grid never is.
    void divide(const ColumnCounts& counts, uint64_t chunkPoints, uint64_t columnPoints);

    const std::vector<Chunk>& chunks() const { return _chunks; }

    /// The number of open columns, and their digits.
    size_t openCount() const { return _openCount; }
    unsigned openDigits() const { return _layers.empty() ? 0 : _layers.back().grid.digits; }

    /// Whether a point with this code is in an open column, and if so which.
    bool findOpen(uint64_t columnCode, size_t& open) const
    {
        const uint32_t entry = entryOf(columnCode);
        open = entry & ~kOpen;
        return entry & kOpen;
    }

    /// When no column is open.
    size_t chunkOf(uint64_t columnCode) const { return entryOf(columnCode); }

private:
    /// In an entry: the number belongs to an open column, which the next layer divides; else of a chunk.
    static constexpr uint32_t kOpen = 1u << 31;

    struct Layer
    {
        ColumnGrid grid;
        std::vector<uint32_t> entries; ///< by number in the grid
    };

    uint32_t entryOf(uint64_t columnCode) const
    {
        uint32_t entry = _root;
        for (const Layer& layer : _layers) {
            if (!(entry & kOpen)) break;
            entry = layer.entries[layer.grid.numberOf(entry & ~kOpen, columnCode)];
        }
        return entry;
    }

    void divide(const ColumnCounts& counts, uint64_t chunkPoints, uint64_t columnPoints, uint64_t column,
                unsigned digits);
    void add(uint64_t firstColumn, uint64_t lastColumn, uint64_t pointCount, unsigned digits);

    std::vector<Chunk> _chunks;
    std::vector<Layer> _layers;
    uint32_t _root = 0; ///< entry of all points
    size_t _openCount = 0;
};

} // namespace VelBrx
