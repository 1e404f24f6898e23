#include "store/OriginRecord.h"

#include "store/StoreIndex.h"
#include "store/io/ByteIo.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace VelBrx {

namespace {

constexpr char kMagic[] = "VELBRXOR";
constexpr size_t kMagicSize = 8;

/// \name Byte positions in the fixed part
/// @{
constexpr size_t kVersionAt = 8;
constexpr size_t kSourceCountAt = 12;
constexpr size_t kPointCountAt = 16;
constexpr size_t kOrdinalStartAt = 24;
constexpr size_t kOrdinalSizeAt = 32;
/// @}

/// \name Byte positions in the description of a source
/// @{
constexpr size_t kFileSizeAt = 0;
constexpr size_t kSourcePointsAt = 8;
constexpr size_t kTailStartAt = 16;
constexpr size_t kTailLengthAt = 24;
constexpr size_t kHeadLengthAt = 32;
constexpr size_t kNameLengthAt = 36;
constexpr size_t kPointFormatAt = 40;
constexpr size_t kChangesAt = 41;
constexpr size_t kRecordLengthAt = 42;
constexpr size_t kAxesAt = 48; ///< factor and shift of x, y and z
constexpr size_t kSourceSize = 96;
/// @}

constexpr uint8_t kColorsWidened = 1;
constexpr uint8_t kCoordinatesKept = 2;

uint64_t alignedTo8(uint64_t position)
{
    return (position + 7) / 8 * 8;
}

void encodeSource(const OriginSource& source, uint8_t* bytes)
{
    storeLe<uint64_t>(bytes + kFileSizeAt, source.fileSize);
    storeLe<uint64_t>(bytes + kSourcePointsAt, source.pointCount);
    storeLe<uint64_t>(bytes + kTailStartAt, source.tailStart);
    storeLe<uint64_t>(bytes + kTailLengthAt, source.tailLength);
    storeLe<uint32_t>(bytes + kHeadLengthAt, static_cast<uint32_t>(source.head.size()));
    storeLe<uint32_t>(bytes + kNameLengthAt, static_cast<uint32_t>(source.name.size()));
    bytes[kPointFormatAt] = source.pointFormat;
    bytes[kChangesAt] = static_cast<uint8_t>((source.colorsWidened ? kColorsWidened : 0) |
                                             (source.coordinatesKept ? kCoordinatesKept : 0));
    storeLe<uint16_t>(bytes + kRecordLengthAt, source.recordLength);
    for (size_t axis = 0; axis < 3; ++axis) {
        storeLe<int64_t>(bytes + kAxesAt + 16 * axis, source.axes[axis].factor);
        storeLe<int64_t>(bytes + kAxesAt + 16 * axis + 8, source.axes[axis].shift);
    }
    uint8_t* const head = std::copy(source.name.begin(), source.name.end(), bytes + kSourceSize);
    std::copy(source.head.begin(), source.head.end(), head);
}

/// Reads the source that starts at `position` and moves `position` behind it. False when it is not whole.
bool decodeSource(const uint8_t* data, size_t size, size_t& position, OriginSource& source)
{
    if (size - position < kSourceSize) return false;
    const uint8_t* bytes = data + position;
    source.fileSize = loadLe<uint64_t>(bytes + kFileSizeAt);
    source.pointCount = loadLe<uint64_t>(bytes + kSourcePointsAt);
    source.tailStart = loadLe<uint64_t>(bytes + kTailStartAt);
    source.tailLength = loadLe<uint64_t>(bytes + kTailLengthAt);
    source.pointFormat = bytes[kPointFormatAt];
    source.colorsWidened = bytes[kChangesAt] & kColorsWidened;
    source.coordinatesKept = bytes[kChangesAt] & kCoordinatesKept;
    source.recordLength = loadLe<uint16_t>(bytes + kRecordLengthAt);
    for (size_t axis = 0; axis < 3; ++axis) {
        source.axes[axis].factor = loadLe<int64_t>(bytes + kAxesAt + 16 * axis);
        source.axes[axis].shift = loadLe<int64_t>(bytes + kAxesAt + 16 * axis + 8);
    }
    const uint64_t nameLength = loadLe<uint32_t>(bytes + kNameLengthAt);
    const uint64_t headLength = loadLe<uint32_t>(bytes + kHeadLengthAt);
    position += kSourceSize;
    if (nameLength + headLength > size - position) return false;
    source.name.assign(reinterpret_cast<const char*>(data + position), nameLength);
    position += nameLength;
    source.head.assign(data + position, data + position + headLength);
    position += headLength;
    return true;
}

bool isInside(uint64_t start, uint64_t length, uint64_t end)
{
    return start <= end && length <= end - start;
}

} // namespace

std::vector<uint8_t> encodeOrigin(OriginRecord& record)
{
    uint64_t headEnd = kOriginFixedSize;
    for (const OriginSource& source : record.sources)
        headEnd += kSourceSize + source.name.size() + source.head.size();
    record.ordinalSize = record.pointCount <= std::numeric_limits<uint32_t>::max() ? 4 : 8;
    record.ordinalStart = alignedTo8(headEnd);
    record.length = record.ordinalStart + record.pointCount * record.ordinalSize;
    for (OriginSource& source : record.sources) {
        source.tailStart = record.length;
        record.length += source.tailLength;
    }
    record.length += kRecordChecksumSize;

    std::vector<uint8_t> bytes(record.ordinalStart, 0);
    std::memcpy(bytes.data(), kMagic, kMagicSize);
    storeLe<uint32_t>(&bytes[kVersionAt], kOriginVersion);
    storeLe<uint32_t>(&bytes[kSourceCountAt], static_cast<uint32_t>(record.sources.size()));
    storeLe<uint64_t>(&bytes[kPointCountAt], record.pointCount);
    storeLe<uint64_t>(&bytes[kOrdinalStartAt], record.ordinalStart);
    bytes[kOrdinalSizeAt] = record.ordinalSize;
    uint8_t* position = bytes.data() + kOriginFixedSize;
    for (const OriginSource& source : record.sources) {
        encodeSource(source, position);
        position += kSourceSize + source.name.size() + source.head.size();
    }
    return bytes;
}

uint64_t originHeadLength(const uint8_t* fixed)
{
    return std::memcmp(fixed, kMagic, kMagicSize) == 0 ? loadLe<uint64_t>(fixed + kOrdinalStartAt) : 0;
}

Status decodeOrigin(const uint8_t* data, size_t size, uint64_t length, uint64_t pointCount,
                    OriginRecord& record)
{
    if (size < kOriginFixedSize || std::memcmp(data, kMagic, kMagicSize) != 0)
        return Status::failure("the origin record does not begin as one");
    const uint32_t version = loadLe<uint32_t>(data + kVersionAt);
    if (version != kOriginVersion)
        return Status::failure("the origin record has version " + std::to_string(version) +
                               ", which this program does not know");
    record = OriginRecord();
    record.pointCount = loadLe<uint64_t>(data + kPointCountAt);
    record.ordinalStart = originHeadLength(data);
    record.ordinalSize = data[kOrdinalSizeAt];
    record.length = length;
    const uint64_t end = length - std::min<uint64_t>(length, kRecordChecksumSize);
    if (record.pointCount != pointCount)
        return Status::failure("the origin record counts other points than the header");
    if (record.ordinalStart != size || (record.ordinalSize != 4 && record.ordinalSize != 8) ||
        pointCount > std::numeric_limits<uint64_t>::max() / 8 ||
        !isInside(record.ordinalStart, pointCount * record.ordinalSize, end))
        return Status::failure("the origin record has no room for the order of its points");

    uint64_t sum = 0;
    size_t position = kOriginFixedSize;
    for (uint32_t i = 0; i < loadLe<uint32_t>(data + kSourceCountAt); ++i) {
        OriginSource source;
        if (!decodeSource(data, size, position, source) || source.pointFormat > 10 ||
            !isInside(source.tailStart, source.tailLength, end) || source.pointCount > pointCount - sum)
            return Status::failure("the origin record describes source " + std::to_string(i + 1) +
                                   " wrongly");
        sum += source.pointCount;
        record.sources.push_back(std::move(source));
    }
    if (sum != pointCount)
        return Status::failure("the origin record's sources have other points than the store");
    return {};
}

} // namespace VelBrx
