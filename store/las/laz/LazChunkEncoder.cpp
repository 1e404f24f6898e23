#include "store/las/laz/LazChunkEncoder.h"

#include "store/io/ByteIo.h"
#include "store/las/laz/ChunkItems.h"

namespace VelBrx {

using namespace Laz;

/// What both kinds of chunk share: the first point is stored as it is, the rest encoded.
class LazChunkEncoder::Impl
{
public:
    explicit Impl(const LazItems& items) : _recordLength(items.recordLength) {}
    virtual ~Impl() = default;

    void encode(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk)
    {
        chunk.assign(records, records + _recordLength);
        append(records, pointCount, chunk);
    }

protected:
    const size_t _recordLength;

private:
    /// Appends what follows the first record.
    virtual void append(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk) = 0;
};

/// Points of formats 0 to 5: one stream.
class LazChunkEncoder::Pointwise : public Impl
{
public:
    explicit Pointwise(const LazItems& items) : Impl(items), _record(items) {}

private:
    void append(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk) override
    {
        _record.reset(records);
        _stream.start();
        for (uint64_t k = 1; k < pointCount; ++k)
            _record.code(_stream, records + k * _recordLength);
        _stream.finish();
        chunk.insert(chunk.end(), _stream.data(), _stream.data() + _stream.size());
    }

    PointwiseRecordV2 _record;
    ArithmeticEncoder _stream;
};

/// Points of formats 6 to 10: the number of points, the sizes of all layers, and the layers. A field that
/// never changes has a layer without bytes.
class LazChunkEncoder::Layered : public Impl
{
public:
    explicit Layered(const LazItems& items) : Impl(items), _record(items), _layers(_record.layerCount()) {}

private:
    void append(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk) override
    {
        _record.reset(records);
        for (size_t k = 0; k < _layers.size(); ++k) {
            _layers[k].stream.start();
            _layers[k].changes = k < LayeredPointCoder::kPlaceLayers;
        }
        for (uint64_t k = 1; k < pointCount; ++k)
            _record.code(_layers.data(), records + k * _recordLength);

        appendNumber(chunk, static_cast<uint32_t>(pointCount));
        for (auto& layer : _layers) {
            if (layer.changes) layer.stream.finish();
            appendNumber(chunk, layer.changes ? static_cast<uint32_t>(layer.stream.size()) : 0);
        }
        for (const auto& layer : _layers)
            if (layer.changes)
                chunk.insert(chunk.end(), layer.stream.data(), layer.stream.data() + layer.stream.size());
    }

    static void appendNumber(std::vector<uint8_t>& chunk, uint32_t number)
    {
        chunk.resize(chunk.size() + sizeof number);
        storeLe(chunk.data() + chunk.size() - sizeof number, number);
    }

    LayeredRecord _record;
    std::vector<Layer<ArithmeticEncoder>> _layers;
};

LazChunkEncoder::LazChunkEncoder(const LazItems& items)
{
    if (items.compressor == LazCompressor::Layered)
        _impl = std::make_unique<Layered>(items);
    else
        _impl = std::make_unique<Pointwise>(items);
}

LazChunkEncoder::~LazChunkEncoder() = default;

void LazChunkEncoder::encode(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk)
{
    _impl->encode(records, pointCount, chunk);
}

void LazChunkEncoders::encode(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk)
{
    std::unique_ptr<LazChunkEncoder> encoder;
    {
        const VelThreads::Lock lock(_mutex);
        if (!_idle.empty()) {
            encoder = std::move(_idle.back());
            _idle.pop_back();
        }
    }
    if (!encoder) encoder = std::make_unique<LazChunkEncoder>(_items);
    encoder->encode(records, pointCount, chunk);
    const VelThreads::Lock lock(_mutex);
    _idle.push_back(std::move(encoder));
}

} // namespace VelBrx
