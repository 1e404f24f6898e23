#pragma once

#include <VelBrx/PointRecord.h>

#include <cstdint>

/// How a point's fields are packed into the integer vertex attributes of a cell. The shaders unpack them in
/// render/shaders/attributes.glsl.
namespace PointAttributes {

constexpr int packHalves(uint16_t high, uint16_t low)
{
    return static_cast<int>(static_cast<uint32_t>(high) << 16 | low);
}

/// \name Location 12: class, hidden bits, red
/// @{
constexpr int kClassShift = 24;
constexpr int kHiddenShift = 16;
constexpr int kHiddenBits = VelBrx::PointRecord::kHiddenBits << kHiddenShift;
constexpr int kCulledBit = VelBrx::PointRecord::kCulledBit << kHiddenShift;

/// `flags`: the byte of the record that holds the hidden bits.
constexpr int packClass(uint8_t code, uint8_t flags, uint16_t red)
{
    return static_cast<int>(static_cast<uint32_t>(code) << kClassShift |
                            (flags & uint32_t{VelBrx::PointRecord::kHiddenBits}) << kHiddenShift | red);
}

constexpr uint8_t classOf(int packed)
{
    return static_cast<uint8_t>(static_cast<uint32_t>(packed) >> kClassShift);
}

constexpr int withClass(int packed, uint8_t code)
{
    constexpr uint32_t kOthers = (uint32_t{1} << kClassShift) - 1;
    return static_cast<int>((static_cast<uint32_t>(packed) & kOthers) | static_cast<uint32_t>(code)
                                                                            << kClassShift);
}
/// @}

} // namespace PointAttributes
