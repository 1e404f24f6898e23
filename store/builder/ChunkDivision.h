#pragma once

#include "store/builder/BuildMemory.h"
#include "store/builder/CellTree.h"
#include "store/builder/ChunkLevels.h"
#include "store/builder/PointSpool.h"
#include "store/builder/StoreCells.h"
#include "store/io/ParallelRun.h"

#include <VelThreads/Mutex.h>

#include <map>
#include <vector>

namespace VelBrx {

/// Divides the points of all chunks into the store's cells. Whatever chunks there are, the cells are the
/// same: levels are decided in columns (`ChunkLevels`), and cells from counts, which chunks add up.
///
/// What the cells above a chunk take of its points depends on counts that are complete only when all chunks
/// are known. Each chunk is therefore divided as if every cell above took the points of its own level, which
/// is nearly always right, and adds its counts. Where the counts say otherwise, the chunk's cells are renamed
/// or it is divided once more.
class ChunkDivision
{
public:
    /// Everything is referenced and must live as long. `levels` has decided the shared columns.
    ChunkDivision(const ChunkPlan& plan, const BuildMemory& memory, const ChunkLevels& levels,
                  PointSpool& spool, PointGate& gate);

    /// Divides all chunks and writes the order of their points to the spool. Call once.
    Status run(ParallelRun& run, StoreCells& cells);

private:
    /// A node and its points' cells, in the order of the spool.
    struct DividedNode
    {
        TreeNode node;
        std::vector<TreeCell> cells;
    };
    struct LargeCellPart;

    Status divideAsUsual(size_t chunk);
    template <typename TakeOf>
    Status divide(size_t chunk, const TakeOf& takeOf);
    Status correct(size_t chunk);
    void countShared();
    bool isLarge(const TreeCell& cell) const;
    Status joinLarge(size_t chunk);
    StoreCells placeCells();

    const std::vector<Chunk>& _chunks;
    const BuildMemory& _memory;
    const ChunkLevels& _levels;
    PointSpool& _spool;
    PointGate& _gate;
    VelThreads::Mutex _mutex;
    SharedNodes _shared;                          ///< under _mutex while chunks are added, then constant
    std::vector<std::vector<DividedNode>> _nodes; ///< by chunk
    std::map<CellKey, uint64_t> _sharedCounts;    ///< points of the cells that chunks share
};

} // namespace VelBrx
