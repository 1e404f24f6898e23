#pragma once

#include "store/build/StoreGrid.h"

#include <algorithm>
#include <cstdint>

namespace VelBrx {

constexpr unsigned kMortonLevels = 21; ///< octal digits of a Morton code

/// Bits of `value` (21 of them) with two zero bits between each.
inline uint64_t spreadBits(uint64_t value)
{
    value = (value | value << 32) & 0x001F00000000FFFF;
    value = (value | value << 16) & 0x001F0000FF0000FF;
    value = (value | value << 8) & 0x100F00F00F00F00F;
    value = (value | value << 4) & 0x10C30C30C30C30C3;
    value = (value | value << 2) & 0x1249249249249249;
    return value;
}

/// Octal digits that two Morton codes share from the top, 21 when they are equal.
inline unsigned sharedDigits(uint64_t a, uint64_t b)
{
    const uint64_t different = a ^ b;
    return different == 0 ? kMortonLevels : (static_cast<unsigned>(__builtin_clzll(different)) - 1) / 3;
}

/// The code's first `level` digits: the key code of the cell of that level.
inline uint64_t prefixOf(uint64_t code, unsigned level)
{
    return code >> 3 * (kMortonLevels - level);
}

/// Morton codes of store coordinates within the root cube: x in the lowest bit of each digit, then y, z.
class MortonCoder
{
public:
    explicit MortonCoder(const StoreGrid& grid)
    {
        for (size_t axis = 0; axis < 3; ++axis) {
            _min[axis] = grid.min[axis];
            _factor[axis] = (1 << kMortonLevels) * (grid.scale[axis] / grid.cubeSize);
        }
    }

    uint64_t code(int32_t x, int32_t y, int32_t z) const
    {
        return spreadBits(digit(0, x)) | spreadBits(digit(1, y)) << 1 | spreadBits(digit(2, z)) << 2;
    }

private:
    uint64_t digit(size_t axis, int32_t value) const
    {
        const auto steps = static_cast<uint64_t>(static_cast<double>(value - _min[axis]) * _factor[axis]);
        return std::min<uint64_t>(steps, (1 << kMortonLevels) - 1);
    }

    int64_t _min[3];
    double _factor[3];
};

} // namespace VelBrx
