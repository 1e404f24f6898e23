#pragma once

#include <VelBrx/BrxHeader.h>
#include <VelBrx/Export.h>

#include <array>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// A box across the ground, in file units.
struct GroundBox
{
    std::array<double, 2> min{}; ///< x, y
    std::array<double, 2> max{};
};

/// Finds where a store has nearly all of its points across the ground, by the points of its coarse cells,
/// which lie spread over all of it. One thread.
class VEL_BRX_EXPORT GroundSpread
{
public:
    /// So many points tell it. They are those of whole levels, or parts of the ground would lack.
    static constexpr int64_t kEnough = 10000;

    /// Takes `count` point records, one behind the other.
    void add(const uint8_t* records, int64_t count);

    /// The box of the points without the outermost ones on each side, one of 200, where noise is. The bounds
    /// of the store, whose header this is, where no points were added.
    GroundBox bulk(const BrxHeader& header);

private:
    std::array<std::vector<int32_t>, 2> _steps; ///< of the store's scale, x and y
};

} // namespace VelBrx
