#include "store/las/laz/LazChunkDecoder.h"

#include "store/io/ByteIo.h"
#include "store/las/laz/ChunkItems.h"

#include <algorithm>
#include <string>

namespace VelBrx {

namespace {

using namespace Laz;

Status damaged(const std::string& what)
{
    return Status::failure("its compressed points are damaged: " + what);
}

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
    /// Points decoded between overrun checks: few enough that a false count costs no time.
    static constexpr uint64_t kCheckedPoints = 1024;

    /// Sets all models up from the first record, which is in front of `streams`.
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

/// Points of formats 0 to 5.
template <typename Record>
class LazChunkDecoder::Pointwise : public Impl
{
public:
    explicit Pointwise(const LazItems& items) : Impl(items), _record(items) {}

private:
    /// In one stream no field can be left out.
    Status startStreams(const uint8_t* streams, const uint8_t* end, uint64_t, RecordFields) override
    {
        _record.reset(streams - _recordLength);
        _stream.start(streams, end);
        return {};
    }

    void decodePoints(uint8_t* records, uint64_t count) override
    {
        ArithmeticDecoder stream = _stream; // a copy of its own stays in registers
        for (uint8_t* record = records; record != records + count * _recordLength; record += _recordLength)
            _record.code(stream, record);
        _stream = stream;
    }

    bool endsExactly() const override { return true; }
    bool failed() const override { return _stream.overrun() || _stream.corrupt(); }
    const uint8_t* end() const override { return _stream.position(); }

    ArithmeticDecoder _stream;
    Record _record;
};

/// Points of formats 6 to 10.
class LazChunkDecoder::Layered : public Impl
{
public:
    explicit Layered(const LazItems& items) : Impl(items), _record(items), _layers(_record.layerCount())
    {
        for (size_t k = 0; k < _layers.size(); ++k)
            _layers[k].fields = _record.fieldsOf(k);
    }

private:
    Status startStreams(const uint8_t* streams, const uint8_t* end, uint64_t pointCount,
                        RecordFields fields) override
    {
        if (Status status = startLayers(streams, end, pointCount, fields); !status) return status;
        _record.reset(streams - _recordLength);
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
        for (auto& layer : _layers) {
            const auto size = loadLe<uint32_t>(sizes);
            if (size > static_cast<size_t>(end - next)) return damaged("a layer reaches behind its chunk");
            layer.present = size > 0 && layer.fields <= fields;
            layer.stream.start(next, next + size);
            next += size;
            sizes += 4;
        }
        if (pointCount > 1 && !_layers.front().present) return damaged("a chunk has no coordinates");
        _end = next;
        return {};
    }

    void decodePoints(uint8_t* records, uint64_t count) override
    {
        for (uint8_t* record = records; record != records + count * _recordLength; record += _recordLength)
            _record.code(_layers.data(), record);
    }

    bool failed() const override
    {
        return std::any_of(_layers.begin(), _layers.end(), [](const auto& layer) {
            return layer.present && (layer.stream.overrun() || layer.stream.corrupt());
        });
    }
    bool endsExactly() const override
    {
        return std::all_of(_layers.begin(), _layers.end(),
                           [](const auto& layer) { return !layer.present || layer.stream.atEnd(); });
    }
    const uint8_t* end() const override { return _end; }

    const uint8_t* _end = nullptr;
    LayeredRecord _record;
    std::vector<Layer<ArithmeticDecoder>> _layers;
};

LazChunkDecoder::LazChunkDecoder(const LazItems& items)
{
    if (items.compressor == LazCompressor::Layered)
        _impl = std::make_unique<Layered>(items);
    else if (items.items.front().version == 1)
        _impl = std::make_unique<Pointwise<PointwiseRecordV1>>(items);
    else
        _impl = std::make_unique<Pointwise<PointwiseRecordV2>>(items);
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
