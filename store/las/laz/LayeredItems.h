#pragma once

#include "store/las/RecordFields.h"
#include "store/las/laz/AttributeDecoders.h"

#include <cstring>
#include <memory>
#include <vector>

namespace VelBrx::Laz {

/// The stream of one field of a layered chunk. A layer without bytes tells that its field never changes
/// there.
struct Layer
{
    ArithmeticDecoder decoder;
    RecordFields fields = RecordFields::All; ///< the least that a reader asks for to have it decoded
    bool present = false;                    ///< in the chunk, and asked for
};

constexpr unsigned kChannels = 4;

/// The record of point formats 6 to 10 without its GPS time, as it stands in a file.
struct Point14
{
    static constexpr size_t kSize = 22;

    uint32_t x, y, z;
    uint16_t intensity;
    uint8_t returns; ///< number of this return in the low half, of all in the high one
    uint8_t flags;   ///< class flags 0-3, scanner channel 4-5, scan direction 6, edge of flight line 7
    uint8_t classification;
    uint8_t userData;
    uint16_t scanAngle;
    uint16_t pointSource;

    unsigned returnNumber() const { return returns & 15; }
    unsigned returnCount() const { return returns >> 4; }
    unsigned channel() const { return flags >> 4 & 3; }
    void setChannel(unsigned channel) { flags = static_cast<uint8_t>((flags & ~0x30u) | channel << 4); }
    /// The flags but for the channel, in six bits.
    unsigned plainFlags() const { return (flags & 0x0Fu) | (flags >> 2 & 0x30u); }
    void setPlainFlags(unsigned plain)
    {
        flags = static_cast<uint8_t>((flags & 0x30u) | (plain & 0x0Fu) | (plain & 0x30u) << 2);
    }
};
static_assert(offsetof(Point14, pointSource) + 2 == Point14::kSize);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are copied as they stand in memory");

/// Points of formats 6 to 10 with their GPS times. Each scanner channel has models and predictions of its
/// own, set up when its first point comes.
class LayeredPointDecoder
{
public:
    static constexpr size_t kSize = Point14::kSize + 8;
    static constexpr unsigned kLayers = 9;
    static constexpr unsigned kPlaceLayers = 2; ///< the first ones: x, y and returns, z

    void reset(const uint8_t* record)
    {
        for (bool& exists : _exists)
            exists = false;
        Point14 point;
        std::memcpy(&point, record, Point14::kSize);
        _channel = point.channel();
        create(_channel).reset(point, loadLe<uint64_t>(record + Point14::kSize));
    }

    unsigned channel() const { return _channel; }

    /// Whether the last point came from another channel than the one before.
    bool switched() const { return _switched; }

    void decode(Layer* layers, uint8_t* record)
    {
        ArithmeticDecoder& decoder = layers[kReturnsAndXy].decoder;
        const unsigned changed = _contexts[_channel]->decodeChanged(decoder);
        _switched = changed & kChannelChanged;
        if (_switched) switchChannel(decoder);
        _contexts[_channel]->decode(layers, changed, record);
    }

private:
    /// Layers in the order of the file. All the others need the first, and no other.
    enum LayerIndex
    {
        kReturnsAndXy,
        kZ,
        kClassification,
        kFlags,
        kIntensity,
        kScanAngle,
        kUserData,
        kPointSource,
        kGpsTime
    };

    /// \name Bits of the symbol that tells what changed; the two lowest are about the return number
    /// @{
    static constexpr unsigned kChannelChanged = 64;
    static constexpr unsigned kSourceChanged = 32;
    static constexpr unsigned kTimeChanged = 16;
    static constexpr unsigned kAngleChanged = 8;
    static constexpr unsigned kReturnCountChanged = 4;
    /// @}

    class Context
    {
    public:
        void reset(const Point14& seed, uint64_t time)
        {
            _last = seed;
            _timeChanged = 0;
            resetXy();
            _z.reset();
            _lastZ.fill(seed.z);
            _classification.reset();
            _flags.reset();
            _intensity.reset();
            _lastIntensity.fill(seed.intensity);
            _scanAngle.reset();
            _userData.reset();
            _pointSource.reset();
            _time.reset(time);
        }

        const Point14& last() const { return _last; }
        uint64_t time() const { return _time.time(); }
        void setChannel(unsigned channel) { _last.setChannel(channel); }

        unsigned decodeChanged(ArithmeticDecoder& decoder)
        {
            const unsigned context = (_last.returnNumber() == 1 ? 1 : 0) +
                                     (_last.returnNumber() >= _last.returnCount() ? 2 : 0) + 4 * _timeChanged;
            return decoder.symbol(_changed[context]);
        }

        /// How many channels further the new one is, less one.
        unsigned decodeChannelStep(ArithmeticDecoder& decoder) { return decoder.symbol(_channelStep); }

        void decode(Layer* layers, unsigned changed, uint8_t* record)
        {
            _timeChanged = changed & kTimeChanged ? 1 : 0;
            ArithmeticDecoder& xyLayer = layers[kReturnsAndXy].decoder;
            decodeReturns(xyLayer, changed);
            const unsigned number = _last.returnNumber();
            const unsigned count = _last.returnCount();
            decodeXy(xyLayer, 2 * kReturnClass16[count][number] + _timeChanged, count == 1);
            if (layers[kZ].present) decodeZ(layers[kZ].decoder, number, count);
            const unsigned position = (number == 1 ? 2 : 0) + (number >= count ? 1 : 0);
            decodeAttributes(layers, changed, position);
            std::memcpy(record, &_last, Point14::kSize);
            storeLe(record + Point14::kSize, _time.time());
        }

    private:
        void resetXy()
        {
            _changed.fill(kFreshModel<128>);
            _channelStep = kFreshModel<3>;
            _returnCount.reset();
            _returnNumber.reset();
            _returnStep = kFreshModel<13>;
            _dx.reset();
            _dy.reset();
            _xMedian.fill({});
            _yMedian.fill({});
        }

        void decodeReturns(ArithmeticDecoder& decoder, unsigned changed)
        {
            const unsigned lastNumber = _last.returnNumber();
            unsigned count = _last.returnCount();
            if (changed & kReturnCountChanged) count = decoder.symbol(_returnCount[count]);
            unsigned number = lastNumber;
            switch (changed & 3) {
            case 0:
                break;
            case 1:
                number = (lastNumber + 1) % 16;
                break;
            case 2:
                number = (lastNumber + 15) % 16;
                break;
            default:
                number = _timeChanged ? decoder.symbol(_returnNumber[lastNumber])
                                      : (lastNumber + 2 + decoder.symbol(_returnStep)) % 16;
            }
            _last.returns = static_cast<uint8_t>(count << 4 | number);
        }

        void decodeXy(ArithmeticDecoder& decoder, unsigned median, unsigned single)
        {
            const uint32_t dx = _dx.decode(decoder, _xMedian[median].median(), single);
            _last.x += dx;
            _xMedian[median].add(dx);
            const uint32_t dy =
                _dy.decode(decoder, _yMedian[median].median(), single + widthContext(_dx.width(), 20));
            _last.y += dy;
            _yMedian[median].add(dy);
        }

        void decodeZ(ArithmeticDecoder& decoder, unsigned number, unsigned count)
        {
            const unsigned width = (_dx.width() + _dy.width()) / 2;
            uint32_t& z = _lastZ[returnLevel(number, count)];
            z = _z.decode(decoder, z, (count == 1 ? 1 : 0) + widthContext(width, 18));
            _last.z = z;
        }

        /// `position`: bit 1 first return, bit 0 last return.
        void decodeAttributes(Layer* layers, unsigned changed, unsigned position)
        {
            if (layers[kClassification].present) {
                const unsigned context = 2 * (_last.classification % 32) + (position == 3 ? 1 : 0);
                _last.classification =
                    static_cast<uint8_t>(layers[kClassification].decoder.symbol(_classification[context]));
            }
            if (layers[kFlags].present)
                _last.setPlainFlags(layers[kFlags].decoder.symbol(_flags[_last.plainFlags()]));
            if (layers[kIntensity].present) {
                uint16_t& intensity = _lastIntensity[2 * position + _timeChanged];
                intensity =
                    static_cast<uint16_t>(_intensity.decode(layers[kIntensity].decoder, intensity, position));
                _last.intensity = intensity;
            }
            if (layers[kScanAngle].present && (changed & kAngleChanged))
                _last.scanAngle = static_cast<uint16_t>(
                    _scanAngle.decode(layers[kScanAngle].decoder, _last.scanAngle, _timeChanged));
            if (layers[kUserData].present)
                _last.userData =
                    static_cast<uint8_t>(layers[kUserData].decoder.symbol(_userData[_last.userData / 4]));
            if (layers[kPointSource].present && (changed & kSourceChanged))
                _last.pointSource = static_cast<uint16_t>(
                    _pointSource.decode(layers[kPointSource].decoder, _last.pointSource));
            if (layers[kGpsTime].present && _timeChanged) _time.decode(layers[kGpsTime].decoder);
        }

        Point14 _last = {};
        unsigned _timeChanged = 0; ///< 1 when the last point's time differed from the one before
        std::array<SymbolModel<128>, 8> _changed;
        SymbolModel<3> _channelStep;
        ModelTable<16, 16> _returnCount;
        ModelTable<16, 16> _returnNumber;
        SymbolModel<13> _returnStep; ///< for a point of the same pulse
        IntegerDecoder<32, 2> _dx;
        IntegerDecoder<32, 22> _dy;
        std::array<RunningMedian, 12> _xMedian;
        std::array<RunningMedian, 12> _yMedian;
        IntegerDecoder<32, 20> _z;
        std::array<uint32_t, 8> _lastZ;
        ModelTable<256, 64> _classification;
        ModelTable<64, 64> _flags;
        IntegerDecoder<16, 4> _intensity;
        std::array<uint16_t, 8> _lastIntensity;
        IntegerDecoder<16, 2> _scanAngle;
        ModelTable<256, 64> _userData;
        IntegerDecoder<16, 1> _pointSource;
        GpsTimeDecoder<false> _time;
    };

    Context& create(unsigned channel)
    {
        _exists[channel] = true;
        if (!_contexts[channel]) _contexts[channel].reset(new Context); // without zeroing all its models
        return *_contexts[channel];
    }

    void switchChannel(ArithmeticDecoder& decoder)
    {
        Context& old = *_contexts[_channel];
        _channel = (_channel + old.decodeChannelStep(decoder) + 1) % kChannels;
        if (!_exists[_channel]) create(_channel).reset(old.last(), old.time());
        _contexts[_channel]->setChannel(_channel);
    }

    std::unique_ptr<Context> _contexts[kChannels]; ///< kept from chunk to chunk to save allocations
    bool _exists[kChannels] = {};                  ///< in this chunk
    unsigned _channel = 0;
    bool _switched = false;
};

/// Another item of a layered chunk: `Models` with the item's last bytes, once for each channel.
template <typename Models>
class LayeredItemDecoder
{
public:
    /// In item versions before 4 the point at which a channel comes back is predicted from the last item of
    /// the channel before and kept as that one's.
    LayeredItemDecoder(const Models& models, unsigned version) : _prototype(models), _keepsLast(version < 4)
    {
    }

    unsigned layerCount() const { return _prototype.layerCount(); }

    void reset(const uint8_t* record, unsigned channel)
    {
        for (bool& exists : _exists)
            exists = false;
        _channel = channel;
        create(channel, record);
    }

    void decode(Layer* layers, unsigned channel, uint8_t* record)
    {
        uint8_t* last = _contexts[_channel]->last.data();
        if (channel != _channel) {
            if (!_exists[channel])
                last = create(channel, last).last.data();
            else if (!_keepsLast)
                last = _contexts[channel]->last.data();
            _channel = channel;
        }
        Context& context = *_contexts[_channel];
        context.models.decode(layers, last);
        std::memcpy(record, last, context.last.size());
    }

private:
    struct Context
    {
        Models models;
        std::vector<uint8_t> last;
    };

    Context& create(unsigned channel, const uint8_t* last)
    {
        _exists[channel] = true;
        auto& context = _contexts[channel];
        if (!context) context.reset(new Context{_prototype, std::vector<uint8_t>(_prototype.size())});
        context->models.reset();
        std::copy_n(last, context->last.size(), context->last.begin());
        return *context;
    }

    Models _prototype;
    bool _keepsLast;
    std::unique_ptr<Context> _contexts[kChannels];
    bool _exists[kChannels] = {};
    unsigned _channel = 0;
};

class LayeredRgbModels
{
public:
    static unsigned layerCount() { return 1; }
    static size_t size() { return RgbModels::kSize; }
    void reset() { _rgb.reset(); }

    void decode(Layer* layers, uint8_t* color)
    {
        if (layers[0].present) _rgb.decode(layers[0].decoder, color);
    }

private:
    RgbModels _rgb;
};

class LayeredRgbNirModels
{
public:
    static unsigned layerCount() { return 2; }
    static size_t size() { return RgbModels::kSize + 2; }

    void reset()
    {
        _rgb.reset();
        _nir.reset();
    }

    void decode(Layer* layers, uint8_t* color)
    {
        if (layers[0].present) _rgb.decode(layers[0].decoder, color);
        if (layers[1].present) _nir.decode(layers[1].decoder, color + RgbModels::kSize);
    }

private:
    RgbModels _rgb;
    WordModels _nir;
};

class LayeredWavePacketModels
{
public:
    static unsigned layerCount() { return 1; }
    static size_t size() { return WavePacketModels::kSize; }
    void reset() { _packet.reset(); }

    void decode(Layer* layers, uint8_t* packet)
    {
        if (layers[0].present) _packet.decode(layers[0].decoder, packet);
    }

private:
    WavePacketModels _packet;
};

/// Extra bytes, a layer each.
class LayeredByteModels
{
public:
    explicit LayeredByteModels(size_t count) : _models(count) {}

    unsigned layerCount() const { return static_cast<unsigned>(_models.size()); }
    size_t size() const { return _models.size(); }
    void reset() { std::fill(_models.begin(), _models.end(), kFreshModel<256>); }

    void decode(Layer* layers, uint8_t* bytes)
    {
        for (size_t k = 0; k < _models.size(); ++k)
            if (layers[k].present) bytes[k] = addBytes(bytes[k], layers[k].decoder.symbol(_models[k]));
    }

private:
    std::vector<SymbolModel<256>> _models;
};

} // namespace VelBrx::Laz
