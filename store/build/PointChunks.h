#pragma once

#include "store/build/BuildMemory.h"
#include "store/build/BuildRun.h"
#include "store/build/CellTree.h"
#include "store/build/PointSpool.h"
#include "store/build/StatisticsCollector.h"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace VelBrx {

/// All points of a build on their way into cells, chunk by chunk. Whatever chunks there are, the cells are
/// the same: levels are decided in columns, which lie in one chunk, and cells from counts, which chunks add
/// up.
class PointChunks
{
public:
    /// A cell of the store.
    struct Cell
    {
        uint8_t level;
        uint64_t code;
        uint64_t firstPoint; ///< in the order of the store
        uint64_t pointCount;
        uint64_t firstShared; ///< where its points gather in the spool
        bool isGathered;      ///< several chunks share it, and its points fit into memory together
    };

    PointChunks(const SourceSet& sources, const StoreGrid& grid, const ChunkPlan& plan,
                const BuildMemory& memory, PointSpool& spool);

    /// Reads and converts the points of all sources.
    Status load(BuildRun& run);

    /// Decides the level of each point and orders those of each chunk by cells.
    Status sort(BuildRun& run);

    const StoreStatistics& statistics() const { return _statistics; }

    /// By level, then code; after `sort`.
    const std::vector<Cell>& cells() const { return _cells; }
    const Cell& cell(unsigned level, uint64_t code) const;
    uint64_t pointCount() const { return _count; }
    const std::vector<Chunk>& chunks() const { return _chunks; }

    /// The cells of a chunk's points in the order of the spool; a cell may stand there more than once. What
    /// belongs to a cell that is not gathered has its final order, and its place there.
    const std::vector<TreeCell>& cellsOf(size_t chunk) const { return _cellsOf[chunk]; }
    const GridPlaces& places() const { return _places; }
    PointSpool& spool() const { return _spool; }
    PointGate& gate() const { return _gate; }

private:
    struct Levelled;
    struct LargeCellPart;
    /// A node and its points' cells, in the order of the spool.
    struct DividedNode
    {
        TreeNode node;
        std::vector<TreeCell> cells;
    };
    struct Candidate
    {
        uint64_t code;
        uint64_t ordinal;
        uint32_t level;
    };

    Status loadBatch(size_t source, const PointBatch& batch, StatisticsCollector& statistics);
    void widenColors(uint8_t* records, size_t count) const;
    Status assign(const Chunk& chunk, Levelled& levelled) const;
    Status assignCandidates(BuildRun& run);
    Status sortMorton(const Chunk& chunk, Levelled& levelled) const;
    template <typename FloorOf>
    Status divide(size_t chunk, const FloorOf& floorOf);
    NodeFloor floorOf(size_t chunk, const TreeNode& node) const;
    Status settle(size_t chunk);
    void countShared();
    bool isLarge(const TreeCell& cell) const;
    Status orderLarge(size_t chunk);
    void placeCells();

    const SourceSet& _sources;
    const StoreGrid& _grid;
    const ChunkPlan& _plan;
    const std::vector<Chunk>& _chunks;
    PointSpool& _spool;
    const GridPlaces _places;
    const uint64_t _count;
    const bool _widensColors;
    const BuildMemory& _memory;
    mutable PointGate _gate;
    StoreStatistics _statistics;
    std::vector<Candidate> _candidates; ///< by ordinal, those of columns that chunks share
    std::mutex _mutex;
    SharedNodes _shared;                          ///< guarded by _mutex while chunks are added
    std::vector<std::vector<DividedNode>> _nodes; ///< by chunk
    std::map<CellKey, uint64_t> _sharedCounts;    ///< points of the cells that chunks share
    std::vector<std::vector<TreeCell>> _cellsOf;  ///< by chunk
    std::vector<Cell> _cells;
};

} // namespace VelBrx
