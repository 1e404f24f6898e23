#pragma once

#include "store/builder/BuildMemory.h"
#include "store/builder/PointLevels.h"
#include "store/builder/PointSpool.h"
#include "store/io/ParallelRun.h"

#include <memory>
#include <vector>

namespace VelBrx {

/// Points that are sorted together, and their ordinals by `TreePoint::index`.
struct SortedPoints
{
    explicit SortedPoints(uint64_t size)
        : count(size), points(uninitialised<TreePoint>(size)), scratch(uninitialised<TreePoint>(size)),
          ordinals(uninitialised<uint64_t>(size))
    {
    }

    void sort() { sortByCode(points.get(), count, scratch.get(), ordinals.get()); }

    uint64_t count;
    Uninitialised<TreePoint> points;
    Uninitialised<TreePoint> scratch;
    Uninitialised<uint64_t> ordinals;
};

/// Decides the level of each point of a build. A level depends on the points of one column of level 0's grid.
/// A chunk that holds whole columns of this grid is decided alone. Chunks that share a column first thin
/// their parts of it; the few points that remain, the candidates, decide the coarser levels together.
class ChunkLevels
{
public:
    /// Everything is referenced and must live as long. The spool holds all points.
    ChunkLevels(const ChunkPlan& plan, const BuildMemory& memory, const GridPlaces& places,
                const PointSpool& spool, PointGate& gate)
        : _chunks(plan.chunks()), _memory(memory), _places(places), _spool(spool), _gate(gate)
    {
    }

    /// Decides the candidates' levels, from all chunks that share columns. Call once, before `sort`.
    Status decideShared(ParallelRun& run);

    /// Reads the points of a chunk and decides their levels; they are sorted by Morton code. Any thread; the
    /// caller holds room in the gate.
    Status sort(const Chunk& chunk, SortedPoints& sorted) const;

private:
    struct Candidate
    {
        uint64_t code;
        uint64_t ordinal;
        uint32_t level;
    };

    Status sortByColumn(const Chunk& chunk, SortedPoints& sorted) const;
    Status findCandidates(ParallelRun& run);
    uint32_t sharedLevel(uint64_t ordinal) const;

    const std::vector<Chunk>& _chunks;
    const BuildMemory& _memory;
    const GridPlaces& _places;
    const PointSpool& _spool;
    PointGate& _gate;
    std::vector<Candidate> _candidates; ///< by ordinal
};

} // namespace VelBrx
