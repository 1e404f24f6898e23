#pragma once

#include "store/builder/LoadInput.h"
#include "store/builder/StoreWriter.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace VelBrx {

/// The points of a build's inputs in the cells of the store that is to be written.
///
/// Threads: the one of the build, whose run it uses.
class SortedInput
{
public:
    /// `input` is loaded and outlives it.
    explicit SortedInput(LoadedInput& input);

    /// Decides the cell of each point and lays out the store. `options` outlives it.
    Status sort(const BuildOptions& options);

    /// The size of the store.
    uint64_t storeBytes() const { return _writer->fileSize(); }
    const std::vector<StoreCell>& cells() const { return _cells.all(); }

    /// Writes the store, once: the points are given up.
    Status write(DiskFile& file);

private:
    Status sortIntoCells();

    LoadedInput& _input;
    const GridPlaces _places;
    PointGate _gate;
    StoreCells _cells;
    std::optional<StoreWriter> _writer; ///< of the others
};

} // namespace VelBrx
