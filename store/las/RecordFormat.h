#pragma once

#include "store/las/LasLayout.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace VelBrx {

/// Bit of byte 15 that is set where a withheld point comes in hidden: 0x0400 of the word at byte 14.
constexpr uint8_t kWithheldHidden = 0x04;

/// Classification flags of a source point as the flags record keeps them.
enum SourceFlags : uint8_t
{
    kSynthetic = 1,
    kKeyPoint = 2,
    kWithheld = 4,
    kOverlap = 8
};

/// Bytes of a record of LAS point format 0 to 10 without extra bytes.
uint16_t coreRecordLength(uint8_t pointFormat);

/// What is known of source records before they are converted.
struct RecordScan
{
    std::array<int32_t, 3> min;
    std::array<int32_t, 3> max;
    uint16_t maxColor = 0;
    std::array<uint64_t, 16> pointsByReturn{}; ///< by return number, 0 included

    RecordScan();
    void add(const RecordScan& other);
};

/// How the records of one LAS file become store records and back. Together a store record (coordinates
/// aside, see `StoreGrid`), the flags and the rest hold every bit of the source record. The rest is, in this
/// order: near infrared (2 bytes, formats 8 and 10), wave packet (29 bytes, formats 4, 5, 9 and 10), extra
/// bytes.
///
/// - Legacy formats 0 to 5 keep their class (12, overlap, included), their return numbers and scan direction;
///   the scan angle rank in degrees becomes the nearest multiple of 0.006 degrees.
/// - A withheld point comes in hidden. The other flags are kept in the flags record only.
///
/// Immutable; any thread may use it.
class RecordFormat
{
public:
    /// `recordLength` is at least `coreRecordLength(pointFormat)`.
    RecordFormat(uint8_t pointFormat, uint16_t recordLength);

    uint8_t pointFormat() const { return _pointFormat; }
    uint16_t recordLength() const { return _recordLength; }
    bool hasColors() const { return _colorAt != kAbsent; }
    bool hasGpsTime() const { return _gpsTimeAt != kAbsent; }
    bool hasNearInfrared() const { return _nearInfraredAt != kAbsent; }
    bool hasWavePacket() const { return _wavePacketAt != kAbsent; }

    /// Bytes a point that neither the store record nor the flags hold.
    uint16_t restLength() const;

    /// Adds `count` source records to `scan`.
    void scan(const uint8_t* source, size_t count, RecordScan& scan) const;

    /// Converts `count` source records. `flags` gets one byte a point, `rest` gets `restStride` bytes further
    /// for each point `restLength()` bytes; X, Y and Z are copied as they are. Colours are not widened.
    void decode(const uint8_t* source, size_t count, uint8_t* records, uint8_t* flags, uint8_t* rest,
                size_t restStride) const;

    /// The inverse of `decode` for one point, byte for byte. The withheld bit is taken from `flags`.
    void encode(const uint8_t* record, uint8_t flags, const uint8_t* rest, uint8_t* source) const;

private:
    static constexpr uint16_t kAbsent = 0xFFFF;

    template <bool Legacy>
    void decodeAll(const uint8_t* source, size_t count, uint8_t* records, uint8_t* flags) const;
    void copyRest(const uint8_t* source, size_t count, uint8_t* rest, size_t restStride) const;

    uint8_t _pointFormat;
    uint16_t _recordLength;
    uint16_t _coreLength;
    uint16_t _gpsTimeAt = kAbsent;
    uint16_t _colorAt = kAbsent;
    uint16_t _nearInfraredAt = kAbsent;
    uint16_t _wavePacketAt = kAbsent;
};

} // namespace VelBrx
