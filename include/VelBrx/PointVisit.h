#pragma once

#include <VelBrx/BuildProgress.h>
#include <VelBrx/Export.h>
#include <VelBrx/PointRecord.h>
#include <VelBrx/Status.h>
#include <VelBrx/StorePart.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace VelBrx {

/// Some points of one cell of a store, as their records stand in the file now, saved edits included.
struct PointBlock
{
    const uint8_t* records = nullptr; ///< of `count` points, `PointRecord::kPointSize` bytes each, one behind
    size_t count = 0;                 ///< the other: `PointRecord` says what stands where
    unsigned level = 0;               ///< of the cell; 0 is the coarsest
    std::array<double, 3> scale;
    std::array<double, 3> offset;

    const uint8_t* record(size_t point) const { return records + point * PointRecord::kPointSize; }

    /// Coordinates of the store, along x (axis 0), y and z.
    double coordinate(size_t point, size_t axis) const
    {
        const uint8_t* const bytes = record(point) + 4 * axis;
        const auto steps = static_cast<int32_t>(uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 |
                                                uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24);
        return steps * scale[axis] + offset[axis];
    }
};

/// What `visitPoints` visits, and with what.
struct PointVisit
{
    std::string store;
    StorePart part; ///< which points are visited
    /// The finest level to read. Levels are additive: the points of the levels from 0 on are a sample of the
    /// part, spread evenly, that doubles its density along each axis from level to level.
    unsigned lastLevel = 21;
    unsigned threads = 0;                               ///< 0: all processors
    uint64_t memory = 256u << 20;                       ///< bytes that thinning may use
    std::function<void(const BuildProgress&)> progress; ///< called on the thread that called `visitPoints`
    const std::atomic<bool>* cancel = nullptr;          ///< set by the caller: the visit ends soon
};

/// Calls `visit` with all points of a part of a store, block by block, in no fixed order and from several
/// threads at once, `threads` of them at most; a block is valid during the call. Only the cells that the
/// part's box and polygons touch are read. `visit` must not throw. A failure names the store and may come
/// after some blocks. Any thread may call it.
VEL_BRX_EXPORT Status visitPoints(const PointVisit& wanted,
                                  const std::function<void(const PointBlock&)>& visit);

} // namespace VelBrx
