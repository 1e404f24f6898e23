#pragma once

#include "store/build/BuildRun.h"
#include "store/build/CellTree.h"
#include "store/build/SourceSet.h"
#include "store/build/StatisticsCollector.h"

#include <array>
#include <memory>
#include <vector>

namespace VelBrx {

/// All points of a build in memory: what the sources hold, and the order and cells of the store.
class PointTable
{
public:
    PointTable(const SourceSet& sources, const StoreGrid& grid);

    /// Reads and converts the points of all sources.
    Status load(BuildRun& run);

    /// Sorts the points and divides them into cells.
    Status divide(BuildRun& run);

    const StoreStatistics& statistics() const { return _statistics; }
    const std::vector<TreeCell>& cells() const { return _cells; }
    uint64_t pointCount() const { return _count; }

    /// \name In Morton order, after `divide`
    /// @{
    const TreePoint* points() const { return _points.get(); }
    const uint8_t* levels() const { return _levels.get(); } ///< of the cells that hold the points
    /// @}

    /// \name By ordinal, after `load`
    /// @{
    const uint8_t* record(uint64_t ordinal) const { return &_records[ordinal * LasLayout::kPointSize]; }
    const uint8_t* flags() const { return _flags.get(); } ///< one byte a point
    /// @}

    /// What neither records nor flags hold of a source's points, `restLength(source)` bytes a point.
    const std::vector<uint8_t>& rest(size_t source) const { return _rest[source]; }
    uint32_t restLength(size_t source) const;

private:
    size_t loadBatch(size_t sourceIndex, const PointBatch& batch, StatisticsCollector& statistics);
    void widenColors(uint8_t* records, size_t count) const;
    std::vector<size_t> partition(BuildRun& run);
    Status sortParts(BuildRun& run, void (*finish)(TreePoint*, size_t));

    const SourceSet& _sources;
    const StoreGrid& _grid;
    const GridPlaces _places;
    const uint64_t _count;
    const bool _widensColors;
    std::unique_ptr<uint8_t[]> _records;
    std::unique_ptr<uint8_t[]> _flags;
    std::vector<std::vector<uint8_t>> _rest; ///< by source
    std::unique_ptr<TreePoint[]> _points;
    std::unique_ptr<uint8_t[]> _levels;
    std::vector<TreeCell> _cells;
    StoreStatistics _statistics;
};

} // namespace VelBrx
