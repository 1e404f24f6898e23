#pragma once

#include <VelBrx/Status.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VelBrx {

constexpr uint32_t kFlagsVersion = 1;
constexpr char kFlagsDescription[] = "source flags, classes, extras";

/// Bytes of a kept coordinate triple at the start of a point's rest.
constexpr uint32_t kKeptCoordinatesLength = 12;

/// Where the flags record holds what the store's records cannot hold of one source's points.
struct FlagsSource
{
    uint64_t pointCount = 0;
    uint32_t restLength = 0; ///< bytes a point, 0 for none
    uint64_t restStart = 0;  ///< where the record holds them, set by `encodeFlags`
};

/// What the sources' points had and the store's records cannot hold, in the order of the points' ordinals:
/// four classification flags a point (`SourceFlags`), two points a byte, the even ordinal in the low half;
/// then the class of each point when the store was built, one byte; then each source's rest, `restLength`
/// bytes a point: its coordinates X, Y, Z (12 bytes) where the origin record says that they are kept, then
/// what `RecordFormat` calls the rest.
struct FlagsRecord
{
    uint64_t pointCount = 0;
    std::vector<FlagsSource> sources;
    uint64_t flagsStart = 0;   ///< set by `encodeFlags`
    uint64_t classesStart = 0; ///< set by `encodeFlags`
    uint64_t length = 0;       ///< bytes of the whole record, checksum included, set by `encodeFlags`
};

/// Lays out the record and returns its bytes up to the first flag; flags, classes and rest follow at the
/// positions that `record` gives afterwards, then the checksum. Layout: docs/store-format.md.
std::vector<uint8_t> encodeFlags(FlagsRecord& record);

/// Bytes to read in order to know how long the part in front of the flags is.
constexpr size_t kFlagsFixedSize = 32;

/// Length of the part in front of the flags, from the first `kFlagsFixedSize` bytes; 0 where these are not
/// the bytes of a flags record.
uint64_t flagsHeadLength(const uint8_t* fixed);

/// Decodes and checks the `size` bytes in front of the flags of a record of `length` bytes of a store of
/// `pointCount` points. A failure names the first thing wrong.
Status decodeFlags(const uint8_t* data, size_t size, uint64_t length, uint64_t pointCount,
                   FlagsRecord& record);

} // namespace VelBrx
