#pragma once

#include "store/io/ParallelRun.h"
#include "store/part/StoreFile.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace VelBrx {

/// Chooses of every cube of a grid the point that is nearest to the cube's centre; of several as near, the
/// one that the store has first. The grid is that of the coordinates: what is chosen does not depend on the
/// bounds of the store, nor on memory or threads.
///
/// The cubes are cut into slabs along x whose points fit the memory. A slab reads the cells that reach into
/// it.
class PointThinning
{
public:
    static constexpr unsigned kPasses = 2; ///< `choose` goes that often over all points

    /// `isWanted` tells by a record of the store which points there are to choose from.
    Status choose(const StoreFile& store, const StoreIndex& index, double spacing,
                  const std::function<bool(const uint8_t*)>& isWanted, uint64_t memory, ParallelRun& run);

    /// Whether the point with this place in the store was chosen. Any thread, after `choose`.
    bool keeps(uint64_t place) const
    {
        return _kept[place / 64].load(std::memory_order_relaxed) >> place % 64 & 1;
    }

private:
    struct Candidate;
    struct Slab;
    class Chooser;

    std::unique_ptr<std::atomic<uint64_t>[]> _kept; ///< a bit for each point of the store
};

} // namespace VelBrx
