#pragma once

#include "store/las/RecordFields.h"
#include "store/las/laz/AttributeCoders.h"
#include "store/las/laz/PointwiseItems.h"

#include <cstring>
#include <memory>
#include <vector>

namespace VelBrx::Laz {

/// The stream of one field of a layered chunk. A layer without bytes says that its field never changes there.
template <class Stream>
struct Layer;

template <>
struct Layer<ArithmeticDecoder>
{
    ArithmeticDecoder stream;
    RecordFields fields = RecordFields::All; ///< the least that a reader asks for to have it decoded
    bool present = false;                    ///< in the chunk, and asked for

    void note(bool) {}
};

template <>
struct Layer<ArithmeticEncoder>
{
    ArithmeticEncoder stream;
    static constexpr bool present = true; ///< every field is encoded; what never changed is thrown away
    bool changes = false;                 ///< some point differs in the field from its last item

    void note(bool change) { changes |= change; }
};

constexpr unsigned kChannels = 4;

/// The record of point formats 6 to 10 without its GPS time, as it is in a file.
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
    /// The flags except for the channel, in six bits.
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
class LayeredPointCoder
{
public:
    static constexpr size_t kSize = Point14::kSize + 8;
    static constexpr unsigned kLayers = 9;
    static constexpr unsigned kPlaceLayers = 2; ///< the first ones, always in a chunk: x, y and returns, z

    void reset(const uint8_t* record)
    {
        for (bool& exists : _exists)
            exists = false;
        const Timed first = load(record);
        _channel = first.point.channel();
        create(_channel).reset(first.point, first.time);
    }

    unsigned channel() const { return _channel; }

    /// Whether the last point came from another channel than the one before.
    bool switched() const { return _switched; }

    template <class Stream>
    void code(Layer<Stream>* layers, RecordPointer<Stream> record)
    {
        if constexpr (Stream::kEncodes) {
            const Timed next = load(record);
            code(layers, chooseChanged(next), next);
        } else {
            code(layers, 0, Timed());
            std::memcpy(record, &_contexts[_channel]->last(), Point14::kSize);
            storeLe(record + Point14::kSize, _contexts[_channel]->time());
        }
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

    /// \name Bits of the symbol that says what changed; the two lowest are about the return number
    /// @{
    static constexpr unsigned kChannelChanged = 64;
    static constexpr unsigned kSourceChanged = 32;
    static constexpr unsigned kTimeChanged = 16;
    static constexpr unsigned kAngleChanged = 8;
    static constexpr unsigned kReturnCountChanged = 4;
    static constexpr unsigned kSameReturn = 0;
    static constexpr unsigned kNextReturn = 1;
    static constexpr unsigned kReturnBefore = 2;
    static constexpr unsigned kOtherReturn = 3;
    /// @}

    /// A point that an encoder writes; of a decoder nothing but zeros, which it ignores.
    struct Timed
    {
        Point14 point = {};
        uint64_t time = 0;
    };

    static Timed load(const uint8_t* record)
    {
        Timed loaded;
        std::memcpy(&loaded.point, record, Point14::kSize);
        loaded.time = loadLe<uint64_t>(record + Point14::kSize);
        return loaded;
    }

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

        template <class Stream>
        unsigned codeChanged(Stream& stream, unsigned choice)
        {
            const unsigned context = (_last.returnNumber() == 1 ? 1 : 0) +
                                     (_last.returnNumber() >= _last.returnCount() ? 2 : 0) + 4 * _timeChanged;
            return stream.symbol(_changed[context], choice);
        }

        /// The bits above except for the channel.
        unsigned chooseChanged(const Timed& next) const
        {
            return (_last.pointSource != next.point.pointSource ? kSourceChanged : 0) |
                   (time() != next.time ? kTimeChanged : 0) |
                   (_last.scanAngle != next.point.scanAngle ? kAngleChanged : 0) |
                   (_last.returnCount() != next.point.returnCount() ? kReturnCountChanged : 0) |
                   chooseReturn(next.point.returnNumber());
        }

        /// How many channels further the new one is, less one.
        template <class Stream>
        unsigned codeChannelStep(Stream& stream, unsigned step)
        {
            return stream.symbol(_channelStep, step);
        }

        template <class Stream>
        void code(Layer<Stream>* layers, unsigned changed, const Timed& next)
        {
            _timeChanged = changed & kTimeChanged ? 1 : 0;
            Stream& xyLayer = layers[kReturnsAndXy].stream;
            codeReturns(xyLayer, changed, next.point);
            const unsigned number = _last.returnNumber();
            const unsigned count = _last.returnCount();
            codeXy(xyLayer, 2 * kReturnClass16[count][number] + _timeChanged, count == 1, next.point);
            if (layers[kZ].present) codeZ(layers[kZ].stream, number, count, next.point);
            const unsigned position = (number == 1 ? 2 : 0) + (number >= count ? 1 : 0);
            codeAttributes(layers, changed, position, next);
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

        unsigned chooseReturn(unsigned number) const
        {
            switch ((number + 16 - _last.returnNumber()) % 16) {
            case 0:
                return kSameReturn;
            case 1:
                return kNextReturn;
            case 15:
                return kReturnBefore;
            default:
                return kOtherReturn;
            }
        }

        template <class Stream>
        void codeReturns(Stream& stream, unsigned changed, const Point14& next)
        {
            const unsigned lastNumber = _last.returnNumber();
            unsigned count = _last.returnCount();
            if (changed & kReturnCountChanged) count = stream.symbol(_returnCount[count], next.returnCount());
            unsigned number = lastNumber;
            switch (changed & 3) {
            case kSameReturn:
                break;
            case kNextReturn:
                number = (lastNumber + 1) % 16;
                break;
            case kReturnBefore:
                number = (lastNumber + 15) % 16;
                break;
            default:
                if (_timeChanged) {
                    number = stream.symbol(_returnNumber[lastNumber], next.returnNumber());
                } else {
                    const unsigned step = (next.returnNumber() + 16 - lastNumber - 2) % 16;
                    number = (lastNumber + 2 + stream.symbol(_returnStep, step)) % 16;
                }
            }
            _last.returns = static_cast<uint8_t>(count << 4 | number);
        }

        template <class Stream>
        void codeXy(Stream& stream, unsigned median, unsigned single, const Point14& next)
        {
            const uint32_t dx = _dx.code(stream, _xMedian[median].median(), next.x - _last.x, single);
            _last.x += dx;
            _xMedian[median].add(dx);
            const uint32_t dy = _dy.code(stream, _yMedian[median].median(), next.y - _last.y,
                                         single + widthContext(_dx.width(), 20));
            _last.y += dy;
            _yMedian[median].add(dy);
        }

        template <class Stream>
        void codeZ(Stream& stream, unsigned number, unsigned count, const Point14& next)
        {
            const unsigned width = (_dx.width() + _dy.width()) / 2;
            uint32_t& z = _lastZ[returnLevel(number, count)];
            z = _z.code(stream, z, next.z, (count == 1 ? 1 : 0) + widthContext(width, 18));
            _last.z = z;
        }

        /// `position`: bit 1 first return, bit 0 last return.
        template <class Stream>
        void codeAttributes(Layer<Stream>* layers, unsigned changed, unsigned position,
                            const Timed& nextTimed)
        {
            const Point14& next = nextTimed.point;
            if (Layer<Stream>& layer = layers[kClassification]; layer.present) {
                layer.note(_last.classification != next.classification);
                const unsigned context = 2 * (_last.classification % 32) + (position == 3 ? 1 : 0);
                _last.classification =
                    static_cast<uint8_t>(layer.stream.symbol(_classification[context], next.classification));
            }
            if (Layer<Stream>& layer = layers[kFlags]; layer.present) {
                layer.note(_last.plainFlags() != next.plainFlags());
                _last.setPlainFlags(layer.stream.symbol(_flags[_last.plainFlags()], next.plainFlags()));
            }
            if (Layer<Stream>& layer = layers[kIntensity]; layer.present) {
                layer.note(_last.intensity != next.intensity);
                uint16_t& intensity = _lastIntensity[2 * position + _timeChanged];
                intensity =
                    static_cast<uint16_t>(_intensity.code(layer.stream, intensity, next.intensity, position));
                _last.intensity = intensity;
            }
            if (Layer<Stream>& layer = layers[kScanAngle]; layer.present && (changed & kAngleChanged)) {
                layer.note(true);
                _last.scanAngle = static_cast<uint16_t>(
                    _scanAngle.code(layer.stream, _last.scanAngle, next.scanAngle, _timeChanged));
            }
            if (Layer<Stream>& layer = layers[kUserData]; layer.present) {
                layer.note(_last.userData != next.userData);
                _last.userData =
                    static_cast<uint8_t>(layer.stream.symbol(_userData[_last.userData / 4], next.userData));
            }
            if (Layer<Stream>& layer = layers[kPointSource]; layer.present && (changed & kSourceChanged)) {
                layer.note(true);
                _last.pointSource = static_cast<uint16_t>(
                    _pointSource.code(layer.stream, _last.pointSource, next.pointSource));
            }
            if (Layer<Stream>& layer = layers[kGpsTime]; layer.present && _timeChanged) {
                layer.note(true);
                _time.code(layer.stream, nextTimed.time);
            }
        }

        Point14 _last = {};
        unsigned _timeChanged = 0; ///< 1 when the last point's time differed from the one before
        std::array<SymbolModel<128>, 8> _changed;
        SymbolModel<3> _channelStep;
        ModelTable<16, 16> _returnCount;
        ModelTable<16, 16> _returnNumber;
        SymbolModel<13> _returnStep; ///< for a point of the same pulse
        IntegerCoder<32, 2> _dx;
        IntegerCoder<32, 22> _dy;
        std::array<RunningMedian, 12> _xMedian;
        std::array<RunningMedian, 12> _yMedian;
        IntegerCoder<32, 20> _z;
        std::array<uint32_t, 8> _lastZ;
        ModelTable<256, 64> _classification;
        ModelTable<64, 64> _flags;
        IntegerCoder<16, 4> _intensity;
        std::array<uint16_t, 8> _lastIntensity;
        IntegerCoder<16, 2> _scanAngle;
        ModelTable<256, 64> _userData;
        IntegerCoder<16, 1> _pointSource;
        GpsTimeCoder<false> _time;
    };

    Context& create(unsigned channel)
    {
        _exists[channel] = true;
        if (!_contexts[channel]) _contexts[channel].reset(new Context); // without zeroing all its models
        return *_contexts[channel];
    }

    /// What the point changes in its own channel, or in the last point's where that has had no point yet.
    unsigned chooseChanged(const Timed& next) const
    {
        const unsigned channel = next.point.channel();
        const Context& context = *_contexts[_exists[channel] ? channel : _channel];
        return context.chooseChanged(next) | (channel != _channel ? kChannelChanged : 0);
    }

    template <class Stream>
    void code(Layer<Stream>* layers, unsigned choice, const Timed& next)
    {
        Stream& stream = layers[kReturnsAndXy].stream;
        const unsigned changed = _contexts[_channel]->codeChanged(stream, choice);
        _switched = changed & kChannelChanged;
        if (_switched) switchChannel(stream, next.point.channel());
        _contexts[_channel]->code(layers, changed, next);
    }

    template <class Stream>
    void switchChannel(Stream& stream, unsigned next)
    {
        Context& old = *_contexts[_channel];
        const unsigned step = (next + kChannels - _channel - 1) % kChannels;
        _channel = (_channel + old.codeChannelStep(stream, step) + 1) % kChannels;
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
class LayeredItemCoder
{
public:
    /// In item versions before 4 the point at which a channel comes back is predicted from the last item of
    /// the channel before and kept as that one's.
    LayeredItemCoder(const Models& models, unsigned version) : _prototype(models), _keepsLast(version < 4) {}

    unsigned layerCount() const { return _prototype.layerCount(); }

    void reset(const uint8_t* record, unsigned channel)
    {
        for (bool& exists : _exists)
            exists = false;
        _channel = channel;
        create(channel, record);
    }

    template <class Stream>
    void code(Layer<Stream>* layers, unsigned channel, RecordPointer<Stream> record)
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
        if constexpr (Stream::kEncodes) {
            context.models.code(layers, last, record);
        } else {
            context.models.code(layers, last, last);
            std::memcpy(record, last, context.last.size());
        }
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

    template <class Stream>
    void code(Layer<Stream>* layers, uint8_t* color, const uint8_t* next)
    {
        if (layers[0].present) layers[0].note(_rgb.code(layers[0].stream, color, next));
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

    template <class Stream>
    void code(Layer<Stream>* layers, uint8_t* color, const uint8_t* next)
    {
        if (layers[0].present) layers[0].note(_rgb.code(layers[0].stream, color, next));
        if (layers[1].present)
            layers[1].note(_nir.code(layers[1].stream, color + RgbModels::kSize, next + RgbModels::kSize));
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

    template <class Stream>
    void code(Layer<Stream>* layers, uint8_t* packet, const uint8_t* next)
    {
        if (!layers[0].present) return;
        layers[0].note(!std::equal(packet, packet + size(), next));
        _packet.code(layers[0].stream, packet, next);
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

    template <class Stream>
    void code(Layer<Stream>* layers, uint8_t* bytes, const uint8_t* next)
    {
        for (size_t k = 0; k < _models.size(); ++k) {
            if (!layers[k].present) continue;
            layers[k].note(bytes[k] != next[k]);
            const unsigned step = addBytes(next[k], 0u - bytes[k]);
            bytes[k] = addBytes(bytes[k], layers[k].stream.symbol(_models[k], step));
        }
    }

private:
    std::vector<SymbolModel<256>> _models;
};

} // namespace VelBrx::Laz
