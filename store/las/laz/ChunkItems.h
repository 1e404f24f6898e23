#pragma once

#include "store/las/laz/LayeredItems.h"
#include "store/las/laz/LazItems.h"
#include "store/las/laz/PointwiseItems.h"

#include <optional>
#include <vector>

/// \file
/// All items of a point record together, each with its place in the record. What is said of `code` there
/// holds here: an encoder reads the record, a decoder fills it.

namespace VelBrx::Laz {

/// An item of a pointwise chunk that has no coder of its own: its models and its last bytes.
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

    template <class Stream>
    void code(Stream& stream, RecordPointer<Stream> record)
    {
        if constexpr (Stream::kEncodes) {
            _models.code(stream, _last.data(), record);
        } else {
            _models.code(stream, _last.data(), _last.data());
            std::memcpy(record, _last.data(), _last.size());
        }
    }

private:
    Models _models;
    std::vector<uint8_t> _last;
};

/// The records of formats 0 to 5, whose items share one stream.
template <typename Point, typename GpsTime, typename Rgb, typename Bytes>
class PointwiseRecord
{
public:
    explicit PointwiseRecord(const LazItems& items)
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

    /// Begins a chunk whose first record this is.
    void reset(const uint8_t* record)
    {
        _point.reset(record);
        if (_gpsTime) _gpsTime->coder.reset(record + _gpsTime->at);
        if (_rgb) _rgb->coder.reset(record + _rgb->at);
        if (_wavePacket) _wavePacket->coder.reset(record + _wavePacket->at);
        if (_bytes) _bytes->coder.reset(record + _bytes->at);
    }

    template <class Stream>
    [[gnu::always_inline]] void code(Stream& stream, RecordPointer<Stream> record)
    {
        _point.code(stream, record);
        if (_gpsTime) _gpsTime->coder.code(stream, record + _gpsTime->at);
        if (_rgb) _rgb->coder.code(stream, record + _rgb->at);
        if (_wavePacket) _wavePacket->coder.code(stream, record + _wavePacket->at);
        if (_bytes) _bytes->coder.code(stream, record + _bytes->at);
    }

private:
    template <typename Coder>
    struct Placed
    {
        Coder coder;
        size_t at;
    };

    template <typename Models>
    static Placed<PointwiseItem<Models>> place(const Models& models, const LazItem& item, size_t at)
    {
        return {PointwiseItem<Models>(models, item.size), at};
    }

    Point _point;
    std::optional<Placed<GpsTime>> _gpsTime;
    std::optional<Placed<PointwiseItem<Rgb>>> _rgb;
    std::optional<Placed<PointwiseItem<WavePacketModels>>> _wavePacket;
    std::optional<Placed<PointwiseItem<Bytes>>> _bytes;
};

using PointwiseRecordV1 = PointwiseRecord<PointDecoderV1, GpsTimeDecoderV1, RgbModelsV1, ByteModelsV1>;
using PointwiseRecordV2 = PointwiseRecord<PointCoderV2, GpsTimeCoderV2, RgbModels, ByteModelsV2>;

/// The records of formats 6 to 10, each field in a layer of its own.
class LayeredRecord
{
public:
    explicit LayeredRecord(const LazItems& items) : _keepsChannel(items.items.front().version >= 4)
    {
        size_t at = LayeredPointCoder::kSize;
        const auto place = [&](auto& slot, const auto& models, const LazItem& item) {
            slot.emplace(models, item.version, at, _layerCount);
            _layerCount += models.layerCount();
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
    }

    size_t layerCount() const { return _layerCount; }

    /// The least that a reader asks for to need a layer.
    RecordFields fieldsOf(size_t layer) const
    {
        if (layer < LayeredPointCoder::kPlaceLayers) return RecordFields::Places;
        const bool isColor = (_rgb && layer == _rgb->layer) || (_rgbNir && layer == _rgbNir->layer);
        return isColor ? RecordFields::PlacesAndColors : RecordFields::All;
    }

    /// Begins a chunk whose first record this is.
    void reset(const uint8_t* record)
    {
        _point.reset(record);
        const unsigned channel = _point.channel();
        if (_rgb) _rgb->coder.reset(record + _rgb->at, channel);
        if (_rgbNir) _rgbNir->coder.reset(record + _rgbNir->at, channel);
        if (_wavePacket) _wavePacket->coder.reset(record + _wavePacket->at, channel);
        if (_bytes) _bytes->coder.reset(record + _bytes->at, channel);
    }

    template <class Stream>
    void code(Layer<Stream>* layers, RecordPointer<Stream> record)
    {
        _point.code(layers, record);
        // Before version 4 the other items took a point that stays in its channel for one of channel 0.
        const unsigned channel = _keepsChannel || _point.switched() ? _point.channel() : 0;
        if (_rgb) _rgb->code(layers, channel, record);
        if (_rgbNir) _rgbNir->code(layers, channel, record);
        if (_wavePacket) _wavePacket->code(layers, channel, record);
        if (_bytes) _bytes->code(layers, channel, record);
    }

private:
    template <typename Models>
    struct Item
    {
        Item(const Models& models, unsigned version, size_t recordAt, size_t firstLayer)
            : coder(models, version), at(recordAt), layer(firstLayer)
        {
        }

        template <class Stream>
        void code(Layer<Stream>* layers, unsigned channel, RecordPointer<Stream> record)
        {
            coder.code(layers + layer, channel, record + at);
        }

        LayeredItemCoder<Models> coder;
        size_t at;
        size_t layer;
    };

    const bool _keepsChannel;
    size_t _layerCount = LayeredPointCoder::kLayers;
    LayeredPointCoder _point;
    std::optional<Item<LayeredRgbModels>> _rgb;
    std::optional<Item<LayeredRgbNirModels>> _rgbNir;
    std::optional<Item<LayeredWavePacketModels>> _wavePacket;
    std::optional<Item<LayeredByteModels>> _bytes;
};

} // namespace VelBrx::Laz
