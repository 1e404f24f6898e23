#include "store/las/laz/LazChunkTable.h"

#include "store/io/ByteIo.h"
#include "store/las/laz/IntegerCoder.h"
#include "store/las/laz/LazChunkDecoder.h"

#include <algorithm>

namespace VelBrx {

namespace {

constexpr uint64_t kTablePositionSize = 8; ///< before the first chunk
constexpr uint64_t kTableHeadSize = 8;

Status unreadable(const std::string& what)
{
    return Status::failure("its chunk table " + what);
}

/// The points of a file and where they may stand.
class ChunkFinder
{
public:
    ChunkFinder(const FileReader& file, const LazItems& items, uint64_t pointDataStart, uint64_t pointCount)
        : _file(file), _items(items), _fileSize(static_cast<uint64_t>(file.size())),
          _pointDataStart(pointDataStart), _pointCount(pointCount)
    {
    }

    Status find(LazChunkTable& table)
    {
        table.end = _fileSize;
        if (_pointCount == 0) return {};
        if (_pointDataStart >= _fileSize) return Status::failure("it ends before its points");
        if (!_items.hasChunks()) {
            const bool plausible = append(table, _pointDataStart, _fileSize - _pointDataStart, _pointCount);
            return plausible ? Status() : Status::failure("its header states more points than it can hold");
        }
        const Status fromTable = readTable(table);
        if (fromTable) return {};
        table = LazChunkTable();
        table.end = _fileSize;
        if (Status status = scan(table); !status)
            return Status::failure(fromTable.message() + "; " + status.message());
        table.note = fromTable.message() + "; the chunks were found without it";
        if (table.pointCount < _pointCount)
            table.note += ": " + std::to_string(table.pointCount) + " of " + std::to_string(_pointCount) +
                          " points, the rest is cut off or damaged";
        return {};
    }

private:
    uint64_t firstChunk() const { return _pointDataStart + kTablePositionSize; }

    bool read(uint64_t position, void* bytes, size_t length) const
    {
        return position <= _fileSize && _file.read(static_cast<int64_t>(position), bytes, length);
    }

    /// False when the bytes cannot hold the points.
    bool append(LazChunkTable& table, uint64_t position, uint64_t size, uint64_t pointCount) const
    {
        if (size < _items.recordLength || pointCount / kMaxLazPointsPerByte > size) return false;
        table.chunks.push_back({position, size, table.pointCount, pointCount});
        table.pointCount += pointCount;
        return true;
    }

    Status readTable(LazChunkTable& table) const
    {
        uint64_t position = 0;
        if (Status status = locateTable(position); !status) return status;
        uint8_t head[kTableHeadSize];
        if (!read(position, head, sizeof head)) return unreadable("is cut off");
        const auto chunkCount = loadLe<uint32_t>(head + 4);
        if (loadLe<uint32_t>(head) != 0 || chunkCount > (position - firstChunk()) / _items.recordLength + 1)
            return unreadable("is damaged");
        // A chunk's two numbers take fewer than 16 bytes.
        std::vector<uint8_t> bytes(
            std::min(_fileSize - position - kTableHeadSize, 16 + uint64_t{16} * chunkCount));
        if (!read(position + kTableHeadSize, bytes.data(), bytes.size())) return unreadable("cannot be read");
        return decodeTable(bytes, chunkCount, position, table);
    }

    Status locateTable(uint64_t& position) const
    {
        uint8_t bytes[8];
        if (!read(_pointDataStart, bytes, sizeof bytes)) return unreadable("is missing");
        position = loadLe<uint64_t>(bytes);
        constexpr uint64_t kAtEndOfFile = ~uint64_t{0}; // of a writer that could not go back
        if (position == kAtEndOfFile) {
            if (!read(_fileSize - sizeof bytes, bytes, sizeof bytes)) return unreadable("is missing");
            position = loadLe<uint64_t>(bytes);
        }
        if (position < firstChunk() || position > _fileSize || _fileSize - position < kTableHeadSize)
            return unreadable("is missing");
        return {};
    }

    Status decodeTable(const std::vector<uint8_t>& bytes, uint32_t chunkCount, uint64_t end,
                       LazChunkTable& table) const
    {
        Laz::ArithmeticDecoder decoder;
        decoder.start(bytes.data(), bytes.data() + bytes.size());
        auto integers = std::make_unique<Laz::IntegerCoder<32, 2>>();
        integers->reset();
        uint64_t position = firstChunk();
        uint32_t pointCount = 0;
        uint32_t size = 0;
        for (uint32_t k = 0; k < chunkCount; ++k) {
            if (_items.chunkSize == 0)
                pointCount = integers->decode(decoder, pointCount, 0);
            else
                pointCount = nextFixedCount(table);
            size = integers->decode(decoder, size, 1);
            if (decoder.overrun() || decoder.corrupt() || size > end - position)
                return unreadable("is damaged");
            if (pointCount > 0 && !append(table, position, size, pointCount)) return unreadable("is damaged");
            position += size;
        }
        if (table.pointCount != _pointCount)
            return unreadable("holds " + std::to_string(table.pointCount) + " points, its header " +
                              std::to_string(_pointCount));
        table.end = end + kTableHeadSize + static_cast<uint64_t>(decoder.position() - bytes.data());
        return {};
    }

    uint32_t nextFixedCount(const LazChunkTable& table) const
    {
        return static_cast<uint32_t>(std::min<uint64_t>(_items.chunkSize, _pointCount - table.pointCount));
    }

    /// Finds chunk after chunk by what they hold; the first that is not whole ends the search.
    Status scan(LazChunkTable& table) const
    {
        if (_items.compressor == LazCompressor::Layered)
            scanLayered(table);
        else if (_items.chunkSize != 0)
            scanPointwise(table);
        else
            return Status::failure("without it the points cannot be read");
        if (table.chunks.empty()) return Status::failure("no whole chunk of points was found");
        return {};
    }

    /// Layered chunks state their counts and sizes.
    void scanLayered(LazChunkTable& table) const
    {
        std::vector<uint8_t> head(4 * (1 + _items.layerCount()));
        uint64_t position = firstChunk();
        while (table.pointCount < _pointCount &&
               read(position + _items.recordLength, head.data(), head.size())) {
            const auto pointCount = loadLe<uint32_t>(head.data());
            uint64_t size = _items.recordLength + head.size();
            for (size_t at = 4; at < head.size(); at += 4)
                size += loadLe<uint32_t>(head.data() + at);
            const bool whole = size <= _fileSize - position && pointCount > 0 &&
                               pointCount <= _pointCount - table.pointCount &&
                               (_items.chunkSize == 0 || pointCount == nextFixedCount(table));
            if (!whole || !append(table, position, size, pointCount)) return;
            position += size;
        }
    }

    /// Pointwise chunks end where their last point does.
    void scanPointwise(LazChunkTable& table) const
    {
        constexpr uint64_t kBlock = 4096;
        LazChunkDecoder decoder(_items);
        std::vector<uint8_t> records(kBlock * _items.recordLength);
        std::vector<uint8_t> bytes;
        uint64_t position = firstChunk();
        while (table.pointCount < _pointCount && position < _fileSize) {
            const uint64_t pointCount = nextFixedCount(table);
            // No byte of a record takes four compressed ones.
            bytes.resize(std::min(_fileSize - position, pointCount * (4 * _items.recordLength + 32)));
            if (!read(position, bytes.data(), bytes.size())) return;
            if (pointCount / kMaxLazPointsPerByte > bytes.size()) return;
            if (!decoder.start(bytes.data(), bytes.size(), pointCount)) return;
            for (uint64_t done = 0; done < pointCount; done += kBlock)
                if (!decoder.read(records.data(), std::min(kBlock, pointCount - done))) return;
            append(table, position, decoder.bytesRead(), pointCount);
            position += decoder.bytesRead();
        }
    }

    const FileReader& _file;
    const LazItems& _items;
    const uint64_t _fileSize;
    const uint64_t _pointDataStart;
    const uint64_t _pointCount;
};

} // namespace

Status readLazChunkTable(const FileReader& file, const LazItems& items, uint64_t pointDataStart,
                         uint64_t pointCount, LazChunkTable& table)
{
    table = LazChunkTable();
    return ChunkFinder(file, items, pointDataStart, pointCount).find(table);
}

std::vector<uint8_t> makeLazChunkTable(const std::vector<LazChunk>& chunks, bool tellsCounts)
{
    std::vector<uint8_t> bytes(kTableHeadSize);
    storeLe(bytes.data() + 4, static_cast<uint32_t>(chunks.size()));
    if (chunks.empty()) return bytes;
    Laz::ArithmeticEncoder encoder;
    encoder.start();
    auto integers = std::make_unique<Laz::IntegerCoder<32, 2>>();
    integers->reset();
    uint32_t lastCount = 0;
    uint32_t lastSize = 0;
    for (const LazChunk& chunk : chunks) {
        const auto count = static_cast<uint32_t>(chunk.pointCount);
        const auto size = static_cast<uint32_t>(chunk.size);
        if (tellsCounts) integers->code(encoder, lastCount, count, 0);
        integers->code(encoder, lastSize, size, 1);
        lastCount = count;
        lastSize = size;
    }
    encoder.finish();
    bytes.insert(bytes.end(), encoder.data(), encoder.data() + encoder.size());
    return bytes;
}

} // namespace VelBrx
