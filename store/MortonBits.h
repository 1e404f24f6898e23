#pragma once

#include <cstdint>

namespace VelBrx {

/// Bits of `value` (21 of them) with a zero bit between each.
inline uint64_t spreadByOne(uint64_t value)
{
    value = (value | value << 16) & 0x0000001F0000FFFF;
    value = (value | value << 8) & 0x001F00FF00FF00FF;
    value = (value | value << 4) & 0x010F0F0F0F0F0F0F;
    value = (value | value << 2) & 0x1333333333333333;
    value = (value | value << 1) & 0x1555555555555555;
    return value;
}

/// The inverse of `spreadByOne`; other bits are ignored.
inline uint64_t gatherByOne(uint64_t value)
{
    value &= 0x1555555555555555;
    value = (value | value >> 1) & 0x1333333333333333;
    value = (value | value >> 2) & 0x010F0F0F0F0F0F0F;
    value = (value | value >> 4) & 0x001F00FF00FF00FF;
    value = (value | value >> 8) & 0x0000001F0000FFFF;
    value = (value | value >> 16) & 0x00000000001FFFFF;
    return value;
}

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

} // namespace VelBrx
