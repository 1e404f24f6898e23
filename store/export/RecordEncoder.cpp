#include "store/export/RecordEncoder.h"

#include "store/FlagsRecord.h"
#include "store/io/ByteIo.h"

#include <limits>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint16_t kColorWidening = 257;
constexpr uint32_t kNearInfraredLength = 2;

uint32_t coordinatesLength(const OriginSource& source)
{
    return source.coordinatesKept ? kKeptCoordinatesLength : 0;
}

uint32_t extraLength(const RecordFormat& format)
{
    return static_cast<uint32_t>(format.recordLength() - coreRecordLength(format.pointFormat()));
}

} // namespace

RecordEncoder::RecordEncoder(const OriginSource& source)
    : _format(source.pointFormat, source.recordLength),
      _restLength(coordinatesLength(source) + _format.restLength()), _restores(true),
      _coordinatesKept(source.coordinatesKept), _colorsWidened(source.colorsWidened),
      _axes(source.axes), _pieces{{true, coordinatesLength(source), _format.restLength()}}
{
}

RecordEncoder::RecordEncoder(const OriginSource& source, const RecordFormat& merged) : RecordEncoder(source)
{
    const RecordFormat own = _format;
    _format = merged;
    _restores = false;
    _pieces.clear();
    if (merged.hasNearInfrared())
        _pieces.push_back({own.hasNearInfrared(), coordinatesLength(source), kNearInfraredLength});
    if (const uint32_t length = extraLength(merged); length > 0)
        _pieces.push_back({extraLength(own) == length, _restLength - extraLength(own), length});
}

bool RecordEncoder::restoreCoordinates(const uint8_t* rest, uint8_t* record) const
{
    if (_coordinatesKept) {
        std::memcpy(record, rest, kKeptCoordinatesLength);
        return true;
    }
    for (size_t axis = 0; axis < 3; ++axis) {
        const int64_t shifted = loadLe<int32_t>(record + kX + 4 * axis) - _axes[axis].shift;
        const int64_t value = shifted / _axes[axis].factor;
        if (value * _axes[axis].factor != shifted || value < std::numeric_limits<int32_t>::min() ||
            value > std::numeric_limits<int32_t>::max())
            return false;
        storeLe(record + kX + 4 * axis, static_cast<int32_t>(value));
    }
    return true;
}

bool RecordEncoder::encode(const EncoderInput& input, std::vector<uint8_t>& out) const
{
    std::vector<uint8_t> rest(_format.restLength()); // zeros where a piece is not known
    size_t end = out.size();
    out.resize(end + input.count * recordLength());
    for (size_t i = 0; i < input.count; ++i) {
        if (input.taken && !input.taken[i]) continue;
        uint8_t record[kPointSize];
        std::memcpy(record, input.records + i * kPointSize, kPointSize);
        const uint8_t* const kept = input.rests + i * _restLength;
        if (_restores && !restoreCoordinates(kept, record)) return false;
        if (_restores && _colorsWidened)
            for (size_t color = kRed; color <= kBlue; color += 2)
                storeLe(record + color,
                        static_cast<uint16_t>(loadLe<uint16_t>(record + color) / kColorWidening));
        uint8_t* part = rest.data();
        for (const RestPiece& piece : _pieces) {
            if (piece.isKnown && piece.length > 0) std::memcpy(part, kept + piece.from, piece.length);
            part += piece.length;
        }
        _format.encode(record, input.flags[i], rest.data(), &out[end]);
        end += recordLength();
    }
    out.resize(end);
    return true;
}

} // namespace VelBrx
