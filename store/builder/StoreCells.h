#pragma once

#include "store/builder/CellTree.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// A cell of the store to be written.
struct StoreCell
{
    uint8_t level;
    uint64_t code;
    uint64_t firstPoint; ///< in the order of the store
    uint64_t pointCount;
    uint64_t firstShared; ///< of a merged cell: its first place in the spool's shared part
    bool isMerged; ///< several chunks hold its points, which are sorted together before they are written
};

/// The cells of a store and their places in it. Constant once made; any thread.
class StoreCells
{
public:
    StoreCells() = default;

    /// Gives the cells their places. `ofChunks`: the cells of each chunk's points in the order of the spool,
    /// with `TreeCell::first` set where a cell is shared by chunks and not merged.
    StoreCells(std::vector<StoreCell> cells, std::vector<std::vector<TreeCell>> ofChunks);

    /// By level, then code: the order of the store.
    const std::vector<StoreCell>& all() const { return _cells; }

    /// The index of a cell in `all`.
    size_t indexOf(unsigned level, uint64_t code) const;

    /// The cells of a chunk's points in the order of the spool; a cell may occur more than once. Points of a
    /// cell that is not merged are in their final order, from `StoreCell::firstPoint + TreeCell::first` on.
    const std::vector<TreeCell>& ofChunk(size_t chunk) const { return _ofChunks[chunk]; }

private:
    std::vector<StoreCell> _cells;
    std::vector<std::vector<TreeCell>> _ofChunks;
};

} // namespace VelBrx
