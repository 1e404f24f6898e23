#pragma once

#include <cstdint>

namespace VelBrx {

/// What became of the edits of a store that was replaced.
struct KeptEdits
{
    uint64_t edits = 0;      ///< in the new store's journal
    uint64_t points = 0;     ///< edited points of the old store
    uint64_t lostEdits = 0;  ///< edits none of whose points is in the new store
    uint64_t lostPoints = 0; ///< edited points that are not in the new store
};

} // namespace VelBrx
