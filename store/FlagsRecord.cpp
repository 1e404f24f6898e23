#include "store/FlagsRecord.h"

#include "store/StoreIndex.h"
#include "store/io/ByteIo.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace VelBrx {

namespace {

constexpr char kMagic[] = "VELBRXFL";
constexpr size_t kMagicSize = 8;

/// \name Byte positions in the fixed part
/// @{
constexpr size_t kVersionAt = 8;
constexpr size_t kSourceCountAt = 12;
constexpr size_t kPointCountAt = 16;
constexpr size_t kFlagsStartAt = 24;
/// @}

/// \name Byte positions in the description of a source
/// @{
constexpr size_t kSourcePointsAt = 0;
constexpr size_t kRestStartAt = 8;
constexpr size_t kRestLengthAt = 16;
constexpr size_t kSourceSize = 24;
/// @}

constexpr uint32_t kMaxRestLength = 65535 + 12; ///< a record of all extra bytes, and coordinates

} // namespace

std::vector<uint8_t> encodeFlags(FlagsRecord& record)
{
    record.flagsStart = kFlagsFixedSize + kSourceSize * record.sources.size();
    record.classesStart = record.flagsStart + (record.pointCount + 1) / 2;
    record.length = record.classesStart + record.pointCount;
    std::vector<uint8_t> bytes(record.flagsStart, 0);
    std::memcpy(bytes.data(), kMagic, kMagicSize);
    storeLe<uint32_t>(&bytes[kVersionAt], kFlagsVersion);
    storeLe<uint32_t>(&bytes[kSourceCountAt], static_cast<uint32_t>(record.sources.size()));
    storeLe<uint64_t>(&bytes[kPointCountAt], record.pointCount);
    storeLe<uint64_t>(&bytes[kFlagsStartAt], record.flagsStart);
    uint8_t* position = bytes.data() + kFlagsFixedSize;
    for (FlagsSource& source : record.sources) {
        source.restStart = record.length;
        record.length += source.pointCount * source.restLength;
        storeLe<uint64_t>(position + kSourcePointsAt, source.pointCount);
        storeLe<uint64_t>(position + kRestStartAt, source.restStart);
        storeLe<uint32_t>(position + kRestLengthAt, source.restLength);
        position += kSourceSize;
    }
    record.length += kRecordChecksumSize;
    return bytes;
}

uint64_t flagsHeadLength(const uint8_t* fixed)
{
    return std::memcmp(fixed, kMagic, kMagicSize) == 0 ? loadLe<uint64_t>(fixed + kFlagsStartAt) : 0;
}

Status decodeFlags(const uint8_t* data, size_t size, uint64_t length, uint64_t pointCount,
                   FlagsRecord& record)
{
    if (size < kFlagsFixedSize || std::memcmp(data, kMagic, kMagicSize) != 0)
        return Status::failure("the flags record does not begin as one");
    const uint32_t version = loadLe<uint32_t>(data + kVersionAt);
    if (version != kFlagsVersion)
        return Status::failure("the flags record has version " + std::to_string(version) +
                               ", which this program does not know");
    record = FlagsRecord();
    record.pointCount = loadLe<uint64_t>(data + kPointCountAt);
    record.flagsStart = loadLe<uint64_t>(data + kFlagsStartAt);
    record.length = length;
    const uint64_t sourceCount = loadLe<uint32_t>(data + kSourceCountAt);
    if (record.pointCount != pointCount)
        return Status::failure("the flags record counts other points than the header");
    const uint64_t restsEnd = length - std::min<uint64_t>(length, kRecordChecksumSize);
    const uint64_t room = restsEnd - std::min<uint64_t>(restsEnd, size);
    if (record.flagsStart != size || size != kFlagsFixedSize + sourceCount * kSourceSize ||
        pointCount > room || (pointCount + 1) / 2 > room - pointCount)
        return Status::failure("the flags record has no room for its flags and classes");
    record.classesStart = record.flagsStart + (pointCount + 1) / 2;

    uint64_t end = record.classesStart + pointCount;
    uint64_t sum = 0;
    for (uint64_t i = 0; i < sourceCount; ++i) {
        const uint8_t* bytes = data + kFlagsFixedSize + i * kSourceSize;
        FlagsSource source;
        source.pointCount = loadLe<uint64_t>(bytes + kSourcePointsAt);
        source.restStart = loadLe<uint64_t>(bytes + kRestStartAt);
        source.restLength = loadLe<uint32_t>(bytes + kRestLengthAt);
        if (source.pointCount > pointCount - sum || source.restStart != end ||
            source.restLength > kMaxRestLength ||
            (source.restLength > 0 && source.pointCount > (restsEnd - end) / source.restLength))
            return Status::failure("the flags record describes source " + std::to_string(i + 1) + " wrongly");
        sum += source.pointCount;
        end += source.pointCount * source.restLength;
        record.sources.push_back(source);
    }
    if (sum != pointCount || end != restsEnd)
        return Status::failure("the flags record's sources have other points than the store");
    return {};
}

} // namespace VelBrx
