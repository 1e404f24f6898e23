#pragma once

#include "store/MortonBits.h"
#include "store/builder/StoreGrid.h"

#include <algorithm>
#include <cstdint>

namespace VelBrx {

constexpr unsigned kMortonLevels = 21; ///< octal digits of a Morton code

/// The code's first `level` digits: the key code of the cell of that level.
inline uint64_t prefixOf(uint64_t code, unsigned level)
{
    return code >> 3 * (kMortonLevels - level);
}

/// A place on the finest grid as a column code: the Morton code of x and y in the upper 42 bits, z in
/// the lower 21.
/// In the order of these codes every vertical column of every grid is one run.
inline uint64_t columnCode(uint64_t x, uint64_t y, uint64_t z)
{
    return (spreadByOne(x) | spreadByOne(y) << 1) << kMortonLevels | z;
}

/// The column's first `digits` digits: in which column of the grid of so many digits it is.
inline uint64_t columnOf(uint64_t columnCode, unsigned digits)
{
    return columnCode >> (kMortonLevels + 2 * (kMortonLevels - digits));
}

/// Height of a column code on the finest grid.
inline uint32_t heightOf(uint64_t columnCode)
{
    return columnCode & ((1 << kMortonLevels) - 1);
}

/// The Morton code of the same place: x in the lowest bit of each digit, then y, z.
inline uint64_t mortonCodeOf(uint64_t columnCode)
{
    const uint64_t xy = columnCode >> kMortonLevels;
    return spreadBits(gatherByOne(xy)) | spreadBits(gatherByOne(xy >> 1)) << 1 |
           spreadBits(heightOf(columnCode)) << 2;
}

/// Places of store coordinates on the finest grid in the root cube; those outside it have the nearest.
class GridPlaces
{
public:
    explicit GridPlaces(const StoreGrid& grid)
    {
        for (size_t axis = 0; axis < 3; ++axis) {
            _min[axis] = grid.min[axis];
            _factor[axis] = (1 << kMortonLevels) * (grid.scale[axis] / grid.cubeSize);
        }
    }

    uint64_t columnCode(int32_t x, int32_t y, int32_t z) const
    {
        return VelBrx::columnCode(place(0, x), place(1, y), place(2, z));
    }

private:
    uint64_t place(size_t axis, int32_t value) const
    {
        const auto steps = static_cast<int64_t>(static_cast<double>(value - _min[axis]) * _factor[axis]);
        return static_cast<uint64_t>(std::clamp<int64_t>(steps, 0, (1 << kMortonLevels) - 1));
    }

    int64_t _min[3];
    double _factor[3];
};

} // namespace VelBrx
