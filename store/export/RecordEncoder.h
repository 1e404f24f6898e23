#pragma once

#include "store/OriginRecord.h"
#include "store/las/RecordFormat.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// Some consecutive points of one source as the store holds them.
struct EncoderInput
{
    size_t count = 0;
    const uint8_t* records = nullptr; ///< the store's
    const uint8_t* flags = nullptr;   ///< `SourceFlags`, one byte a point, withheld where the point is hidden
    const uint8_t* rests = nullptr;   ///< of the flags record
    const uint8_t* taken = nullptr;   ///< 1 for points that are encoded, 0 for others; null: all are
};

/// Turns the records of one source's points in a store into records of an exported file. Immutable; any
/// thread may use it.
class RecordEncoder
{
public:
    /// Back to the source's records. The source was checked as `readSourceRecords` does.
    explicit RecordEncoder(const OriginSource& source);

    /// To records of `merged`, format 6 to 8, with the store's coordinates and colours. Extra bytes are kept
    /// where `merged` has room for as many as the source has.
    RecordEncoder(const OriginSource& source, const RecordFormat& merged);

    uint16_t recordLength() const { return _format.recordLength(); }

    /// Of the records that `encode` makes.
    const RecordFormat& format() const { return _format; }

    /// Appends the points' records to `out`. False where a coordinate is not on the source's grid.
    bool encode(const EncoderInput& input, std::vector<uint8_t>& out) const;

private:
    /// Bytes that follow each other in a point's rest in the exported file.
    struct RestPiece
    {
        bool isKnown;  ///< otherwise zeros
        uint32_t from; ///< position in the rest in the store
        uint32_t length;
    };

    bool restoreCoordinates(const uint8_t* rest, uint8_t* record) const;

    RecordFormat _format;
    uint32_t _restLength; ///< of a point in the store
    bool _restores;       ///< coordinates and colours are brought back to the source's
    bool _coordinatesKept;
    bool _colorsWidened;
    std::array<OriginAxis, 3> _axes;
    std::vector<RestPiece> _pieces;
};

} // namespace VelBrx
