#include "store/las/laz/LazChunkDecoder.h"

#include "store/ByteIo.h"
#include "store/las/laz/LayeredItems.h"
#include "store/las/laz/PointwiseItems.h"

#include <algorithm>
#include <optional>
#include <string>

namespace VelBrx {

namespace {

using namespace Laz;

Status damaged(const std::string& what)
{
    return Status::failure("its compressed points are damaged: " + what);
}

/// An item of a pointwise chunk: its models and its last bytes.
template <typename Models>
class PointwiseItem
{
public:
    PointwiseItem(const Models& models, size_t size) : _models(models), _last(size) {}

    void reset(const uint8_t* record)
    {
        _models.reset();
        std::copy_n(record, _last.size(), _last.begin());
    }

    void decode(ArithmeticDecoder& decoder, uint8_t* record)
    {
        _models.decode(decoder, _last.data());
        std::memcpy(record, _last.data(), _last.size());
    }

private:
    Models _models;
    std::vector<uint8_t> _last;
};

/// An item and where it stands in the record.
template <typename Decoder>
struct Placed
{
    Decoder decoder;
    size_t at;
};

} // namespace

/// What both kinds of chunk share: the first point is stored as it is, the rest decoded.
class LazChunkDecoder::Impl
{
public:
    explicit Impl(const LazItems& items) : _recordLength(items.recordLength) {}
    virtual ~Impl() = default;

    Status start(const uint8_t* data, size_t size, uint64_t pointCount, RecordFields fields)
    {
        _begin = _first = data;
        _size = size;
        _left = 0;
        if (pointCount == 0) return {};
        if (size < _recordLength) return damaged("a chunk is shorter than one point");
        if (Status status = startStreams(data + _recordLength, data + size, pointCount, fields); !status)
            return status;
        _left = pointCount;
        return {};
    }

    Status read(uint8_t* records, uint64_t count)
    {
        if (count > _left) return Status::failure("more points are read than a chunk holds");
        _left -= count;
        if (_first && count > 0) {
            std::memcpy(records, _first, _recordLength);
            _first = nullptr;
            records += _recordLength;
            --count;
        }
        while (count > 0) {
            const uint64_t step = std::min(count, kCheckedPoints);
            decodePoints(records, step);
            if (failed()) {
                _left = 0;
                return damaged("a chunk holds less than its points");
            }
            records += step * _recordLength;
            count -= step;
        }
        return {};
    }

    bool isExact() const { return bytesRead() == _size && endsExactly(); }
    size_t bytesRead() const { return static_cast<size_t>(end() - _begin); }

protected:
    const size_t _recordLength;

private:
    /// Points between two looks for a stream's end: few enough that a false count costs no time.
    static constexpr uint64_t kCheckedPoints = 1024;

    /// Sets all models up from the first record, which stands before `streams`.
    virtual Status startStreams(const uint8_t* streams, const uint8_t* end, uint64_t pointCount,
                                RecordFields fields) = 0;
    virtual void decodePoints(uint8_t* records, uint64_t count) = 0;
    virtual bool failed() const = 0;
    /// Whether every stream ends where its last value does.
    virtual bool endsExactly() const = 0;
    virtual const uint8_t* end() const = 0;

    const uint8_t* _begin = nullptr;
    size_t _size = 0;
    const uint8_t* _first = nullptr; ///< the first record until it has been read
    uint64_t _left = 0;
};

/// Points of formats 0 to 5, whose items share one stream.
template <typename Point, typename GpsTime, typename Rgb, typename Bytes>
class LazChunkDecoder::Pointwise : public Impl
{
public:
    explicit Pointwise(const LazItems& items) : Impl(items)
    {
        size_t at = 0;
        for (const LazItem& item : items.items) {
            switch (item.type) {
            case LazItemType::GpsTime11:
                _gpsTime.emplace(Placed<GpsTime>{GpsTime(), at});
                break;
            case LazItemType::Rgb12:
                _rgb.emplace(place<Rgb>(Rgb(), item, at));
                break;
            case LazItemType::WavePacket13:
                _wavePacket.emplace(place<WavePacketModels>(WavePacketModels(), item, at));
                break;
            case LazItemType::Byte:
                _bytes.emplace(place<Bytes>(Bytes(item.size), item, at));
                break;
            default:
                break; // the point, which is always there
            }
            at += item.size;
        }
    }

private:
    template <typename Models>
    static Placed<PointwiseItem<Models>> place(const Models& models, const LazItem& item, size_t at)
    {
        return {PointwiseItem<Models>(models, item.size), at};
    }

    /// In one stream no field can be left out.
    Status startStreams(const uint8_t* streams, const uint8_t* end, uint64_t, RecordFields) override
    {
        const uint8_t* record = streams - _recordLength;
        _point.reset(record);
        if (_gpsTime) _gpsTime->decoder.reset(record + _gpsTime->at);
        if (_rgb) _rgb->decoder.reset(record + _rgb->at);
        if (_wavePacket) _wavePacket->decoder.reset(record + _wavePacket->at);
        if (_bytes) _bytes->decoder.reset(record + _bytes->at);
        _stream.start(streams, end);
        return {};
    }

    void decodePoints(uint8_t* records, uint64_t count) override
    {
        ArithmeticDecoder stream = _stream; // a copy of its own stays in registers
        for (uint8_t* record = records; record != records + count * _recordLength; record += _recordLength) {
            _point.decode(stream, record);
            if (_gpsTime) _gpsTime->decoder.decode(stream, record + _gpsTime->at);
            if (_rgb) _rgb->decoder.decode(stream, record + _rgb->at);
            if (_wavePacket) _wavePacket->decoder.decode(stream, record + _wavePacket->at);
            if (_bytes) _bytes->decoder.decode(stream, record + _bytes->at);
        }
        _stream = stream;
    }

    bool endsExactly() const override { return true; }
    bool failed() const override { return _stream.overrun() || _stream.corrupt(); }
    const uint8_t* end() const override { return _stream.position(); }

    ArithmeticDecoder _stream;
    Point _point;
    std::optional<Placed<GpsTime>> _gpsTime;
    std::optional<Placed<PointwiseItem<Rgb>>> _rgb;
    std::optional<Placed<PointwiseItem<WavePacketModels>>> _wavePacket;
    std::optional<Placed<PointwiseItem<Bytes>>> _bytes;
};

/// Points of formats 6 to 10, each field in a stream of its own.
class LazChunkDecoder::Layered : public Impl
{
public:
    explicit Layered(const LazItems& items) : Impl(items), _keepsChannel(items.items.front().version >= 4)
    {
        size_t at = LayeredPointDecoder::kSize;
        size_t layer = LayeredPointDecoder::kLayers;
        const auto place = [&](auto& slot, const auto& models, const LazItem& item) {
            slot.emplace(models, item.version, at, layer);
            layer += models.layerCount();
        };
        for (const LazItem& item : items.items) {
            switch (item.type) {
            case LazItemType::Rgb14:
                place(_rgb, LayeredRgbModels(), item);
                break;
            case LazItemType::RgbNir14:
                place(_rgbNir, LayeredRgbNirModels(), item);
                break;
            case LazItemType::WavePacket14:
                place(_wavePacket, LayeredWavePacketModels(), item);
                break;
            case LazItemType::Byte14:
                place(_bytes, LayeredByteModels(item.size), item);
                break;
            default:
                continue; // the point, which is always there
            }
            at += item.size;
        }
        _layers.resize(layer);
        for (size_t k = 0; k < LayeredPointDecoder::kPlaceLayers; ++k)
            _layers[k].fields = RecordFields::Places;
        if (_rgb) _layers[_rgb->layer].fields = RecordFields::PlacesAndColors;
        if (_rgbNir) _layers[_rgbNir->layer].fields = RecordFields::PlacesAndColors;
    }

private:
    template <typename Models>
    struct Item
    {
        Item(const Models& models, unsigned version, size_t recordAt, size_t firstLayer)
            : decoder(models, version), at(recordAt), layer(firstLayer)
        {
        }

        void decode(Layer* layers, unsigned channel, uint8_t* record)
        {
            decoder.decode(layers + layer, channel, record + at);
        }

        LayeredItemDecoder<Models> decoder;
        size_t at;
        size_t layer;
    };

    Status startStreams(const uint8_t* streams, const uint8_t* end, uint64_t pointCount,
                        RecordFields fields) override
    {
        const uint8_t* record = streams - _recordLength;
        if (Status status = startLayers(streams, end, pointCount, fields); !status) return status;
        _point.reset(record);
        const unsigned channel = _point.channel();
        if (_rgb) _rgb->decoder.reset(record + _rgb->at, channel);
        if (_rgbNir) _rgbNir->decoder.reset(record + _rgbNir->at, channel);
        if (_wavePacket) _wavePacket->decoder.reset(record + _wavePacket->at, channel);
        if (_bytes) _bytes->decoder.reset(record + _bytes->at, channel);
        return {};
    }

    /// The count of points and the sizes of all layers stand before the layers.
    Status startLayers(const uint8_t* streams, const uint8_t* end, uint64_t pointCount, RecordFields fields)
    {
        const size_t headSize = 4 * (1 + _layers.size());
        if (static_cast<size_t>(end - streams) < headSize) return damaged("a chunk ends before its layers");
        if (loadLe<uint32_t>(streams) != pointCount)
            return damaged("a chunk and the chunk table disagree about its points");
        const uint8_t* sizes = streams + 4;
        const uint8_t* next = streams + headSize;
        for (Layer& layer : _layers) {
            const auto size = loadLe<uint32_t>(sizes);
            if (size > static_cast<size_t>(end - next)) return damaged("a layer reaches behind its chunk");
            layer.present = size > 0 && layer.fields <= fields;
            layer.decoder.start(next, next + size);
            next += size;
            sizes += 4;
        }
        if (pointCount > 1 && !_layers.front().present) return damaged("a chunk has no coordinates");
        _end = next;
        return {};
    }

    void decodePoints(uint8_t* records, uint64_t count) override
    {
        Layer* layers = _layers.data();
        for (uint8_t* record = records; record != records + count * _recordLength; record += _recordLength) {
            _point.decode(layers, record);
            // Before version 4 the other items took a point that stays in its channel for one of channel 0.
            const unsigned channel = _keepsChannel || _point.switched() ? _point.channel() : 0;
            if (_rgb) _rgb->decode(layers, channel, record);
            if (_rgbNir) _rgbNir->decode(layers, channel, record);
            if (_wavePacket) _wavePacket->decode(layers, channel, record);
            if (_bytes) _bytes->decode(layers, channel, record);
        }
    }

    bool failed() const override
    {
        return std::any_of(_layers.begin(), _layers.end(), [](const Layer& layer) {
            return layer.present && (layer.decoder.overrun() || layer.decoder.corrupt());
        });
    }
    bool endsExactly() const override
    {
        return std::all_of(_layers.begin(), _layers.end(),
                           [](const Layer& layer) { return !layer.present || layer.decoder.atEnd(); });
    }
    const uint8_t* end() const override { return _end; }

    const bool _keepsChannel;
    const uint8_t* _end = nullptr;
    std::vector<Layer> _layers;
    LayeredPointDecoder _point;
    std::optional<Item<LayeredRgbModels>> _rgb;
    std::optional<Item<LayeredRgbNirModels>> _rgbNir;
    std::optional<Item<LayeredWavePacketModels>> _wavePacket;
    std::optional<Item<LayeredByteModels>> _bytes;
};

LazChunkDecoder::LazChunkDecoder(const LazItems& items)
{
    if (items.compressor == LazCompressor::Layered)
        _impl = std::make_unique<Layered>(items);
    else if (items.items.front().version == 1)
        _impl =
            std::make_unique<Pointwise<PointDecoderV1, GpsTimeDecoderV1, RgbModelsV1, ByteModelsV1>>(items);
    else
        _impl = std::make_unique<Pointwise<PointDecoderV2, GpsTimeDecoderV2, RgbModels, ByteModelsV2>>(items);
}

LazChunkDecoder::~LazChunkDecoder() = default;

Status LazChunkDecoder::start(const uint8_t* data, size_t size, uint64_t pointCount, RecordFields fields)
{
    return _impl->start(data, size, pointCount, fields);
}

Status LazChunkDecoder::read(uint8_t* records, uint64_t count)
{
    return _impl->read(records, count);
}

Status LazChunkDecoder::decode(const uint8_t* data, size_t size, uint64_t pointCount, uint8_t* records)
{
    if (Status status = start(data, size, pointCount); !status) return status;
    return read(records, pointCount);
}

bool LazChunkDecoder::endsExactly() const
{
    return _impl->isExact();
}

size_t LazChunkDecoder::bytesRead() const
{
    return _impl->bytesRead();
}

} // namespace VelBrx
