#pragma once

#include <VelBrx/Status.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

constexpr uint32_t kOriginVersion = 1;
constexpr char kOriginDescription[] = "source files and point order";

/// \name What an axis may have: factors from 1 on, shifts of either sign
/// @{
constexpr int64_t kLargestFactor = int64_t(1) << 31;
constexpr int64_t kLargestShift = int64_t(1) << 62;
/// @}

/// From a source's integer coordinate to the store's: source x factor + shift.
struct OriginAxis
{
    int64_t factor = 1;
    int64_t shift = 0;
};

/// A source file as the origin record keeps it: all its bytes but the point records.
struct OriginSource
{
    std::string name; ///< without its folder
    uint64_t fileSize = 0;
    uint64_t pointCount = 0;
    uint8_t pointFormat = 0;
    uint16_t recordLength = 0;
    bool colorsWidened = false;   ///< the store holds 257 times the source's colours
    bool coordinatesKept = false; ///< the axes are not exact; the flags record keeps the source's coordinates
    std::array<OriginAxis, 3> axes;
    std::vector<uint8_t> head; ///< the file up to its first point: header, VLRs and what follows them
    uint64_t tailLength = 0;   ///< bytes of the file behind its last whole point: EVLRs and what follows them
    uint64_t tailStart = 0;    ///< where the record holds these bytes, set by `encodeOrigin`
};

/// Where the points of a store come from. The points of all sources, one source after the other, have
/// ordinals from 0; the record holds the ordinal of every point in the order of the store.
struct OriginRecord
{
    uint64_t pointCount = 0;
    std::vector<OriginSource> sources;
    uint8_t ordinalSize = 4;   ///< bytes of an ordinal, 4 or 8, set by `encodeOrigin`
    uint64_t ordinalStart = 0; ///< where the record holds the ordinals, set by `encodeOrigin`
    uint64_t length = 0;       ///< bytes of the whole record, checksum included, set by `encodeOrigin`
};

/// Lays out the record and returns its bytes up to the first ordinal; ordinals and tails follow at the
/// positions that `record` gives afterwards, then the checksum. Layout: docs/store-format.md.
std::vector<uint8_t> encodeOrigin(OriginRecord& record);

/// Bytes to read in order to know how long the part in front of the ordinals is.
constexpr size_t kOriginFixedSize = 40;

/// Length of the part in front of the ordinals, from the first `kOriginFixedSize` bytes; 0 where these
/// are not an origin record's.
uint64_t originHeadLength(const uint8_t* fixed);

/// Decodes and checks the `size` bytes in front of the ordinals of a record of `length` bytes of a store of
/// `pointCount` points. A failure names the first thing wrong.
Status decodeOrigin(const uint8_t* data, size_t size, uint64_t length, uint64_t pointCount,
                    OriginRecord& record);

} // namespace VelBrx
