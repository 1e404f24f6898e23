#pragma once

#include <cstddef>
#include <cstdint>

/// Byte positions in a point record of a store, which is one of LAS point format 7, little-endian.
namespace VelBrx::PointRecord {

constexpr uint8_t kStorePointFormat = 7;
constexpr size_t kX = 0;
constexpr size_t kY = 4;
constexpr size_t kZ = 8;
constexpr size_t kIntensity = 12;
constexpr size_t kReturns = 14; ///< return number in the low nibble, number of returns in the high one
constexpr size_t kFlags = 15;   ///< hidden bits in the low nibble, channel, scan direction, edge of line
constexpr uint8_t kHiddenBits = 0x0F; ///< of `kFlags`: any of them hides the point
constexpr uint8_t kCulledBit = 0x04;  ///< the one that hiding sets: LAS's withheld bit
constexpr size_t kClass = 16;
constexpr size_t kUserData = 17;
constexpr size_t kScanAngle = 18;
constexpr size_t kPointSource = 20;
constexpr size_t kGpsTime = 22;
constexpr size_t kRed = 30;
constexpr size_t kGreen = 32;
constexpr size_t kBlue = 34;
constexpr size_t kPointSize = 36;

} // namespace VelBrx::PointRecord
