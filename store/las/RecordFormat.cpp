#include "store/las/RecordFormat.h"

#include "store/io/ByteIo.h"

#include <algorithm>
#include <initializer_list>
#include <limits>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr size_t kNearInfraredLength = 2;
constexpr size_t kWavePacketLength = 29;
constexpr size_t kColorLength = 6;

// Positions in the records of formats 0 to 5; 0 to 13 are as in the store's record.
constexpr size_t kLegacyReturns = 14; // return number 0-2, number of returns 3-5, direction 6, edge 7
constexpr size_t kLegacyClass = 15;   // class 0-4, synthetic 5, key-point 6, withheld 7
constexpr size_t kLegacyScanAngle = 16;
constexpr size_t kLegacyUserData = 17;
constexpr size_t kLegacyPointSource = 18;

bool isLegacy(uint8_t pointFormat)
{
    return pointFormat <= 5;
}

/// Scan angle in units of 0.006 degrees nearest to `rank` whole degrees. Units are 166.67 a degree, so the
/// nearest whole degree of the result is `rank` again.
constexpr int16_t angleFromRank(int8_t rank)
{
    const int scaled = rank * 500;
    return static_cast<int16_t>((scaled + (scaled < 0 ? -1 : 1)) / 3);
}

constexpr int8_t rankFromAngle(int16_t angle)
{
    const int scaled = angle * 3;
    return static_cast<int8_t>((scaled + (scaled < 0 ? -250 : 250)) / 500);
}

inline uint8_t hiddenBits(uint8_t sourceFlags)
{
    return sourceFlags & kWithheld ? kWithheldHidden : 0;
}

inline void decodeLegacyHead(const uint8_t* source, uint8_t* record, uint8_t& flags)
{
    const uint8_t returns = source[kLegacyReturns];
    const uint8_t classByte = source[kLegacyClass];
    flags = classByte >> 5;
    std::memcpy(record, source, kReturns);
    record[kReturns] = static_cast<uint8_t>((returns & 0x07) | (returns & 0x38) << 1);
    record[kFlags] = static_cast<uint8_t>((returns & 0xC0) | hiddenBits(flags));
    record[kClass] = classByte & 0x1F;
    record[kUserData] = source[kLegacyUserData];
    storeLe<int16_t>(record + kScanAngle, angleFromRank(static_cast<int8_t>(source[kLegacyScanAngle])));
    std::memcpy(record + kPointSource, source + kLegacyPointSource, 2);
}

inline void decodeHead(const uint8_t* source, uint8_t* record, uint8_t& flags)
{
    flags = source[kFlags] & 0x0F;
    std::memcpy(record, source, kGpsTime);
    record[kFlags] = static_cast<uint8_t>((source[kFlags] & 0xF0) | hiddenBits(flags));
}

void encodeLegacyHead(const uint8_t* record, uint8_t flags, uint8_t* source)
{
    const uint8_t returns = record[kReturns];
    std::memcpy(source, record, kReturns);
    source[kLegacyReturns] =
        static_cast<uint8_t>((returns & 0x07) | (returns >> 1 & 0x38) | (record[kFlags] & 0xC0));
    source[kLegacyClass] = static_cast<uint8_t>((record[kClass] & 0x1F) | flags << 5);
    source[kLegacyScanAngle] = static_cast<uint8_t>(rankFromAngle(loadLe<int16_t>(record + kScanAngle)));
    source[kLegacyUserData] = record[kUserData];
    std::memcpy(source + kLegacyPointSource, record + kPointSource, 2);
}

void encodeHead(const uint8_t* record, uint8_t flags, uint8_t* source)
{
    std::memcpy(source, record, kGpsTime);
    source[kFlags] = static_cast<uint8_t>((record[kFlags] & 0xF0) | (flags & 0x0F));
}

} // namespace

uint16_t coreRecordLength(uint8_t pointFormat)
{
    constexpr std::array<uint16_t, 11> lengths = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
    return lengths[pointFormat];
}

RecordScan::RecordScan()
{
    min.fill(std::numeric_limits<int32_t>::max());
    max.fill(std::numeric_limits<int32_t>::min());
}

void RecordScan::add(const RecordScan& other)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        min[axis] = std::min(min[axis], other.min[axis]);
        max[axis] = std::max(max[axis], other.max[axis]);
    }
    maxColor = std::max(maxColor, other.maxColor);
    for (size_t i = 0; i < pointsByReturn.size(); ++i)
        pointsByReturn[i] += other.pointsByReturn[i];
}

RecordFormat::RecordFormat(uint8_t pointFormat, uint16_t recordLength)
    : _pointFormat(pointFormat), _recordLength(recordLength), _coreLength(coreRecordLength(pointFormat))
{
    uint16_t end = isLegacy(pointFormat) ? 20 : 30;
    const auto place = [&end](uint16_t& at, size_t length) {
        at = end;
        end = static_cast<uint16_t>(end + length);
    };
    const auto isOneOf = [pointFormat](std::initializer_list<int> formats) {
        for (int format : formats)
            if (pointFormat == format) return true;
        return false;
    };
    if (!isLegacy(pointFormat)) _gpsTimeAt = kGpsTime;
    if (isOneOf({1, 3, 4, 5})) place(_gpsTimeAt, sizeof(double));
    if (isOneOf({2, 3, 5, 7, 8, 10})) place(_colorAt, kColorLength);
    if (isOneOf({8, 10})) place(_nearInfraredAt, kNearInfraredLength);
    if (isOneOf({4, 5, 9, 10})) place(_wavePacketAt, kWavePacketLength);
}

uint16_t RecordFormat::restLength() const
{
    size_t length = _recordLength - _coreLength;
    if (_nearInfraredAt != kAbsent) length += kNearInfraredLength;
    if (_wavePacketAt != kAbsent) length += kWavePacketLength;
    return static_cast<uint16_t>(length);
}

void RecordFormat::scan(const uint8_t* source, size_t count, RecordScan& scan) const
{
    const uint8_t returnMask = isLegacy(_pointFormat) ? 0x07 : 0x0F;
    for (size_t i = 0; i < count; ++i, source += _recordLength) {
        for (size_t axis = 0; axis < 3; ++axis) {
            const auto value = loadLe<int32_t>(source + kX + 4 * axis);
            scan.min[axis] = std::min(scan.min[axis], value);
            scan.max[axis] = std::max(scan.max[axis], value);
        }
        ++scan.pointsByReturn[source[kReturns] & returnMask];
        if (!hasColors()) continue;
        for (size_t color = 0; color < kColorLength; color += 2)
            scan.maxColor = std::max(scan.maxColor, loadLe<uint16_t>(source + _colorAt + color));
    }
}

void RecordFormat::decode(const uint8_t* source, size_t count, uint8_t* records, uint8_t* flags,
                          uint8_t* rest, size_t restStride) const
{
    if (isLegacy(_pointFormat))
        decodeAll<true>(source, count, records, flags);
    else
        decodeAll<false>(source, count, records, flags);
    if (restLength() > 0) copyRest(source, count, rest, restStride);
}

template <bool Legacy>
void RecordFormat::decodeAll(const uint8_t* source, size_t count, uint8_t* records, uint8_t* flags) const
{
    const bool gpsTime = hasGpsTime();
    const bool colors = hasColors();
    for (size_t i = 0; i < count; ++i, source += _recordLength, records += kPointSize) {
        if constexpr (Legacy)
            decodeLegacyHead(source, records, flags[i]);
        else
            decodeHead(source, records, flags[i]);
        std::memset(records + kGpsTime, 0, kPointSize - kGpsTime);
        if (gpsTime) std::memcpy(records + kGpsTime, source + _gpsTimeAt, sizeof(double));
        if (colors) std::memcpy(records + kRed, source + _colorAt, kColorLength);
    }
}

void RecordFormat::copyRest(const uint8_t* source, size_t count, uint8_t* rest, size_t restStride) const
{
    const size_t extraLength = _recordLength - _coreLength;
    for (size_t i = 0; i < count; ++i, source += _recordLength, rest += restStride) {
        uint8_t* out = rest;
        const auto keep = [&](uint16_t at, size_t length) {
            std::memcpy(out, source + at, length);
            out += length;
        };
        if (_nearInfraredAt != kAbsent) keep(_nearInfraredAt, kNearInfraredLength);
        if (_wavePacketAt != kAbsent) keep(_wavePacketAt, kWavePacketLength);
        if (extraLength > 0) keep(_coreLength, extraLength);
    }
}

void RecordFormat::encode(const uint8_t* record, uint8_t flags, const uint8_t* rest, uint8_t* source) const
{
    if (isLegacy(_pointFormat))
        encodeLegacyHead(record, flags, source);
    else
        encodeHead(record, flags, source);
    if (hasGpsTime()) std::memcpy(source + _gpsTimeAt, record + kGpsTime, sizeof(double));
    if (hasColors()) std::memcpy(source + _colorAt, record + kRed, kColorLength);
    const auto restore = [&](uint16_t at, size_t length) {
        std::memcpy(source + at, rest, length);
        rest += length;
    };
    if (_nearInfraredAt != kAbsent) restore(_nearInfraredAt, kNearInfraredLength);
    if (_wavePacketAt != kAbsent) restore(_wavePacketAt, kWavePacketLength);
    if (_recordLength > _coreLength) restore(_coreLength, _recordLength - _coreLength);
}

} // namespace VelBrx
