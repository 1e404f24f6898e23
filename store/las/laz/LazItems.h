#pragma once

#include <VelBrx/Status.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// User id and record id of the VLR that says how the points of a LAZ file are compressed.
constexpr char kLazUserId[] = "laszip encoded";
constexpr uint16_t kLazRecordId = 22204;

/// \name Bits of a LAZ file's point format byte
/// @{
constexpr uint8_t kLazFormatBit = 0x80;     ///< set in every LAZ file; the low six bits are the format
constexpr uint8_t kLazPreReleaseBit = 0x40; ///< an old compression that nothing reads any more
/// @}

enum class LazCompressor : uint16_t
{
    Pointwise = 1,        ///< one stream for all points of the file
    PointwiseChunked = 2, ///< one stream a chunk
    Layered = 3           ///< a stream for each field of a chunk
};

enum class LazItemType : uint16_t
{
    Byte = 0,
    Point10 = 6,
    GpsTime11 = 7,
    Rgb12 = 8,
    WavePacket13 = 9,
    Point14 = 10,
    Rgb14 = 11,
    RgbNir14 = 12,
    WavePacket14 = 13,
    Byte14 = 14
};

/// A piece of the point record that is compressed by itself.
struct LazItem
{
    LazItemType type = LazItemType::Byte;
    uint16_t size = 0;    ///< bytes of the record
    uint16_t version = 0; ///< of its compression
};

/// How the points of a LAZ file are compressed, checked: the items are known, stand in the order in which
/// formats 0 to 10 have them, and make up the record.
struct LazItems
{
    LazCompressor compressor = LazCompressor::PointwiseChunked;
    uint32_t chunkSize = 0;           ///< points of every chunk but the last; 0: the chunk table has it
    bool isCompatibilityMode = false; ///< points of formats 6 to 10 in records of formats 0 to 5
    uint16_t recordLength = 0;
    std::vector<LazItem> items;

    bool hasChunks() const { return compressor != LazCompressor::Pointwise; }

    /// Streams of a layered chunk.
    size_t layerCount() const;
};

/// Points that a byte of a chunk can hold at most, with room to spare: no model lets a point cost less than
/// 0.007 bits.
constexpr uint64_t kMaxLazPointsPerByte = 2048;

/// Reads the payload of the VLR of a file whose point records have `recordLength` bytes. A failure says what
/// is wrong or unknown, without a file name.
Status parseLazItems(const uint8_t* payload, size_t size, uint16_t recordLength, LazItems& items);

/// How this program compresses records of `recordLength` bytes of a point format 0 to 10: in chunks of 50000
/// points, fewer where these would take more than 8 MiB.
LazItems makeLazItems(uint8_t pointFormat, uint16_t recordLength);

/// The payload of the VLR for `items`.
std::vector<uint8_t> makeLazRecord(const LazItems& items);

} // namespace VelBrx
