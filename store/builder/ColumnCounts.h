#pragma once

#include "store/builder/ChunkPlan.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// How many points stand in each column of a grid that divides the open columns of a plan. Any thread may
/// add.
class ColumnCounts
{
public:
    /// The grid is the finer the fewer columns are open, so that it takes 32 MiB for the root, at most 8 MiB
    /// later. `plan` must stay and not change while points are added.
    ColumnCounts(const StoreGrid& grid, const ChunkPlan& plan);

    const ColumnGrid& columns() const { return _columns; }
    size_t size() const { return _counts.size(); }

    /// Counts `count` records of `source`, whose coordinates are the source's; one begins `stride` bytes
    /// after the other. Points that do not stand in open columns are left out.
    void add(size_t source, const uint8_t* records, size_t count, size_t stride);

    /// The number of points in the columns [first, last).
    uint64_t sum(uint64_t first, uint64_t last) const;

    /// Makes `sum` usable and ends counting.
    void accumulate();

private:
    const StoreGrid _grid;
    const GridPlaces _places;
    const ChunkPlan& _plan;
    const ColumnGrid _columns;
    std::vector<std::atomic<uint64_t>> _counts; ///< after `accumulate` of this column and those before
};

} // namespace VelBrx
