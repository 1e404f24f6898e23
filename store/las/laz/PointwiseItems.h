#pragma once

#include "store/las/laz/AttributeCoders.h"

#include <cstring>
#include <type_traits>
#include <vector>

namespace VelBrx::Laz {

/// The record of point formats 0 to 5, as it is in a file.
struct Point10
{
    static constexpr size_t kSize = 20;

    uint32_t x, y, z;
    uint16_t intensity;
    uint8_t flags;
    uint8_t classification;
    uint8_t scanAngle;
    uint8_t userData;
    uint16_t pointSource;

    unsigned returnNumber() const { return flags & 7; }
    unsigned returnCount() const { return flags >> 3 & 7; }
    unsigned scanDirection() const { return flags >> 6 & 1; }
};
static_assert(sizeof(Point10) == Point10::kSize);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are copied as they stand in memory");

/// Where a coder finds the record that it encodes, or puts the one that it decodes.
template <class Stream>
using RecordPointer = std::conditional_t<Stream::kEncodes, const uint8_t*, uint8_t*>;

/// The fields that change seldom; both versions code them alike except for the scan angle between them.
/// `next` is the point that an encoder writes; a decoder ignores it.
class SeldomFields
{
public:
    /// \name Bits of the symbol that says which of a point's fields changed
    /// @{
    static constexpr unsigned kClassChanged = 8;
    static constexpr unsigned kScanAngleChanged = 4;
    static constexpr unsigned kUserDataChanged = 2;
    static constexpr unsigned kPointSourceChanged = 1;
    /// @}

    void reset()
    {
        _changed = kFreshModel<64>;
        _flags.reset();
        _classification.reset();
        _userData.reset();
        _pointSource.reset();
    }

    /// The bits above.
    static unsigned chooseChanged(const Point10& last, const Point10& next)
    {
        return (last.classification != next.classification ? kClassChanged : 0) |
               (last.scanAngle != next.scanAngle ? kScanAngleChanged : 0) |
               (last.userData != next.userData ? kUserDataChanged : 0) |
               (last.pointSource != next.pointSource ? kPointSourceChanged : 0);
    }

    template <class Stream>
    unsigned codeChanged(Stream& stream, unsigned choice)
    {
        return stream.symbol(_changed, choice);
    }

    template <class Stream>
    void codeFlags(Stream& stream, Point10& point, const Point10& next)
    {
        point.flags = static_cast<uint8_t>(stream.symbol(_flags[point.flags], next.flags));
    }

    template <class Stream, typename CodeScanAngle>
    void codeRest(Stream& stream, unsigned changed, Point10& point, const Point10& next,
                  const CodeScanAngle& codeScanAngle)
    {
        if (changed & kClassChanged)
            point.classification = static_cast<uint8_t>(
                stream.symbol(_classification[point.classification], next.classification));
        if (changed & kScanAngleChanged) codeScanAngle();
        if (changed & kUserDataChanged)
            point.userData = static_cast<uint8_t>(stream.symbol(_userData[point.userData], next.userData));
        if (changed & kPointSourceChanged)
            point.pointSource =
                static_cast<uint16_t>(_pointSource.code(stream, point.pointSource, next.pointSource));
    }

private:
    SymbolModel<64> _changed;
    ModelTable<256, 256> _flags;
    ModelTable<256, 256> _classification;
    ModelTable<256, 256> _userData;
    IntegerCoder<16, 1> _pointSource;
};

class PointCoderV2
{
public:
    static constexpr size_t kSize = Point10::kSize;

    void reset(const uint8_t* record)
    {
        std::memcpy(&_last, record, kSize);
        _last.intensity = 0;
        _fields.reset();
        _scanAngle.fill(kFreshModel<256>);
        _intensity.reset();
        _dx.reset();
        _dy.reset();
        _z.reset();
        _xMedian.fill({});
        _yMedian.fill({});
        _lastIntensity.fill(0);
        _lastZ.fill(0);
    }

    template <class Stream>
    void code(Stream& stream, RecordPointer<Stream> record)
    {
        if constexpr (Stream::kEncodes) {
            Point10 next;
            std::memcpy(&next, record, kSize);
            code(stream, chooseChanged(next), next);
        } else {
            code(stream, 0, _last);
            std::memcpy(record, &_last, kSize);
        }
    }

private:
    static constexpr unsigned kFlagsChanged = 32;
    static constexpr unsigned kIntensityChanged = 16;

    static unsigned returnClass(const Point10& point)
    {
        return kReturnClass8[point.returnCount()][point.returnNumber()];
    }

    unsigned chooseChanged(const Point10& next) const
    {
        return SeldomFields::chooseChanged(_last, next) | (_last.flags != next.flags ? kFlagsChanged : 0) |
               (_lastIntensity[returnClass(next)] != next.intensity ? kIntensityChanged : 0);
    }

    template <class Stream>
    void code(Stream& stream, unsigned choice, const Point10& next)
    {
        const unsigned changed = _fields.codeChanged(stream, choice);
        if (changed & kFlagsChanged) _fields.codeFlags(stream, _last, next);
        const unsigned returns = returnClass(_last);
        if (changed & kIntensityChanged)
            _lastIntensity[returns] = static_cast<uint16_t>(
                _intensity.code(stream, _lastIntensity[returns], next.intensity, std::min(returns, 3u)));
        _last.intensity = _lastIntensity[returns];
        _fields.codeRest(stream, changed, _last, next, [&] {
            const unsigned step = addBytes(next.scanAngle, 0u - _last.scanAngle);
            _last.scanAngle =
                addBytes(_last.scanAngle, stream.symbol(_scanAngle[_last.scanDirection()], step));
        });
        codePosition(stream, returns, next);
    }

    template <class Stream>
    void codePosition(Stream& stream, unsigned returns, const Point10& next)
    {
        const unsigned single = _last.returnCount() == 1;
        const uint32_t dx = _dx.code(stream, _xMedian[returns].median(), next.x - _last.x, single);
        _last.x += dx;
        _xMedian[returns].add(dx);

        const uint32_t dy = _dy.code(stream, _yMedian[returns].median(), next.y - _last.y,
                                     single + widthContext(_dx.width(), 20));
        _last.y += dy;
        _yMedian[returns].add(dy);

        uint32_t& z = _lastZ[returnLevel(_last.returnNumber(), _last.returnCount())];
        z = _z.code(stream, z, next.z, single + widthContext((_dx.width() + _dy.width()) / 2, 18));
        _last.z = z;
    }

    Point10 _last = {};
    SeldomFields _fields;
    std::array<SymbolModel<256>, 2> _scanAngle;
    IntegerCoder<16, 4> _intensity;
    IntegerCoder<32, 2> _dx;
    IntegerCoder<32, 22> _dy;
    IntegerCoder<32, 20> _z;
    std::array<RunningMedian, 16> _xMedian;
    std::array<RunningMedian, 16> _yMedian;
    std::array<uint16_t, 16> _lastIntensity;
    std::array<uint32_t, 8> _lastZ;
};

/// The first version, which is read only, as are the other items of it.
class PointDecoderV1
{
public:
    static constexpr size_t kSize = Point10::kSize;

    void reset(const uint8_t* record)
    {
        std::memcpy(&_last, record, kSize);
        _fields.reset();
        _scanAngle.reset();
        _intensity.reset();
        _dx.reset();
        _dy.reset();
        _z.reset();
        _lastDx.fill(0);
        _lastDy.fill(0);
        _oldest = 0;
    }

    void code(ArithmeticDecoder& decoder, uint8_t* record)
    {
        const uint32_t dx = _dx.decode(decoder, medianOfThree(_lastDx));
        const uint32_t dy = _dy.decode(decoder, medianOfThree(_lastDy), std::min(_dx.width(), kMaxContext));
        const unsigned width = (_dx.width() + _dy.width()) / 2;
        _last.x += dx;
        _last.y += dy;
        _last.z = _z.decode(decoder, _last.z, std::min(width, kMaxContext));
        _lastDx[_oldest] = static_cast<int32_t>(dx);
        _lastDy[_oldest] = static_cast<int32_t>(dy);
        _oldest = (_oldest + 1) % 3;

        const unsigned changed = _fields.codeChanged(decoder, 0);
        if (changed & kIntensityChanged)
            _last.intensity = static_cast<uint16_t>(_intensity.decode(decoder, _last.intensity));
        if (changed & kFlagsChanged) _fields.codeFlags(decoder, _last, _last);
        _fields.codeRest(decoder, changed, _last, _last, [&] {
            _last.scanAngle =
                static_cast<uint8_t>(_scanAngle.decode(decoder, _last.scanAngle, width < 3 ? 1 : 0));
        });
        std::memcpy(record, &_last, kSize);
    }

private:
    static constexpr unsigned kIntensityChanged = 32;
    static constexpr unsigned kFlagsChanged = 16;
    static constexpr unsigned kMaxContext = 19;

    static uint32_t medianOfThree(const std::array<int32_t, 3>& v)
    {
        return static_cast<uint32_t>(std::max(std::min(v[0], v[1]), std::min(std::max(v[0], v[1]), v[2])));
    }

    Point10 _last = {};
    SeldomFields _fields;
    IntegerCoder<8, 2> _scanAngle;
    IntegerCoder<16, 1> _intensity;
    IntegerCoder<32, 1> _dx;
    IntegerCoder<32, 20> _dy;
    IntegerCoder<32, 20> _z;
    std::array<int32_t, 3> _lastDx;
    std::array<int32_t, 3> _lastDy;
    unsigned _oldest = 0;
};

/// A time of its own as the first version codes it: one sequence, predicted by its last step.
class GpsTimeDecoderV1
{
public:
    static constexpr size_t kSize = 8;

    void reset(const uint8_t* record)
    {
        _multiple = kFreshModel<512>;
        _unknownStep = kFreshModel<3>;
        _stepModel.reset();
        _time = loadLe<uint64_t>(record);
        _step = 0;
        _extremes = 0;
    }

    void code(ArithmeticDecoder& decoder, uint8_t* record)
    {
        if (_step == 0)
            decodeUnknownStep(decoder);
        else
            decodeMultiple(decoder);
        storeLe(record, _time);
    }

private:
    void add(uint32_t difference)
    {
        _time += static_cast<uint64_t>(int64_t{static_cast<int32_t>(difference)});
    }

    void addExtreme(uint32_t difference)
    {
        if (++_extremes > 3) {
            _step = difference;
            _extremes = 0;
        }
        add(difference);
    }

    void decodeUnknownStep(ArithmeticDecoder& decoder)
    {
        const unsigned symbol = decoder.symbol(_unknownStep);
        if (symbol == 1) {
            _step = _stepModel.decode(decoder, 0, 0);
            add(_step);
        } else if (symbol == 2)
            _time = decoder.bits64();
    }

    void decodeMultiple(ArithmeticDecoder& decoder)
    {
        const unsigned symbol = decoder.symbol(_multiple);
        if (symbol == 1) {
            _step = _stepModel.decode(decoder, _step, 1);
            _extremes = 0;
            add(_step);
        } else if (symbol == 0)
            addExtreme(_stepModel.decode(decoder, static_cast<uint32_t>(static_cast<int32_t>(_step) / 4), 2));
        else if (symbol < 10)
            add(_stepModel.decode(decoder, symbol * _step, 3));
        else if (symbol < 50)
            add(_stepModel.decode(decoder, symbol * _step, 4));
        else if (symbol < 509)
            add(_stepModel.decode(decoder, symbol * _step, 5));
        else if (symbol == 509)
            addExtreme(_stepModel.decode(decoder, symbol * _step, 5));
        else if (symbol == 510)
            _time = decoder.bits64();
    }

    SymbolModel<512> _multiple;
    SymbolModel<3> _unknownStep;
    IntegerCoder<32, 6> _stepModel;
    uint64_t _time = 0;
    uint32_t _step = 0;
    uint32_t _extremes = 0;
};

class GpsTimeCoderV2
{
public:
    static constexpr size_t kSize = 8;

    void reset(const uint8_t* record) { _time.reset(loadLe<uint64_t>(record)); }

    template <class Stream>
    void code(Stream& stream, RecordPointer<Stream> record)
    {
        if constexpr (Stream::kEncodes) {
            _time.code(stream, loadLe<uint64_t>(record));
        } else {
            _time.code(stream, 0);
            storeLe(record, _time.time());
        }
    }

private:
    GpsTimeCoder<true> _time;
};

class RgbModelsV1
{
public:
    static constexpr size_t kSize = 6;

    void reset()
    {
        _changed = kFreshModel<64>;
        _bytes.reset();
    }

    void code(ArithmeticDecoder& decoder, uint8_t* color, const uint8_t*)
    {
        const unsigned changed = decoder.symbol(_changed);
        for (unsigned byte = 0; byte < kSize; ++byte)
            if (changed & 1u << byte)
                color[byte] = static_cast<uint8_t>(_bytes.decode(decoder, color[byte], byte));
    }

private:
    SymbolModel<64> _changed;
    IntegerCoder<8, 6> _bytes;
};

/// Extra bytes, each predicted by the one before.
class ByteModelsV1
{
public:
    explicit ByteModelsV1(size_t count) : _widths(count) {}

    void reset()
    {
        std::fill(_widths.begin(), _widths.end(), kFreshModel<9>);
        _corrections.reset();
    }

    void code(ArithmeticDecoder& decoder, uint8_t* bytes, const uint8_t*)
    {
        for (size_t k = 0; k < _widths.size(); ++k)
            bytes[k] = static_cast<uint8_t>(_corrections.decode(decoder, bytes[k], _widths[k]));
    }

private:
    std::vector<SymbolModel<9>> _widths;
    CorrectionCoder<8> _corrections;
};

class ByteModelsV2
{
public:
    explicit ByteModelsV2(size_t count) : _models(count) {}

    void reset() { std::fill(_models.begin(), _models.end(), kFreshModel<256>); }

    template <class Stream>
    void code(Stream& stream, uint8_t* bytes, const uint8_t* next)
    {
        for (size_t k = 0; k < _models.size(); ++k)
            bytes[k] = addBytes(bytes[k], stream.symbol(_models[k], addBytes(next[k], 0u - bytes[k])));
    }

private:
    std::vector<SymbolModel<256>> _models;
};

} // namespace VelBrx::Laz
