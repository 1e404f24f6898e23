#include "store/builder/PointSpool.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>
#include <utility>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint64_t kMostBuffer = 64 << 10;

Status inputChanged()
{
    return Status::failure("the input changed while it was read; build again when it is complete");
}

} // namespace

PointSpool::PointSpool(const SourceSet& sources, const ChunkPlan& plan, std::vector<uint32_t> restLengths)
    : _chunks(plan.chunks()), _restLengths(std::move(restLengths)),
      _ordinalSize(itemSize(sources.pointCount()) - kPointSize), _buffers(_chunks.size())
{
    const uint64_t count = sources.pointCount();
    _orderStart = count * itemSize();
    _flagsStart = _orderStart + count * sizeof(uint32_t);
    _classesStart = _flagsStart + count;
    uint64_t start = _classesStart + count;
    for (size_t source = 0; source < _restLengths.size(); ++source) {
        _restStarts.push_back(start);
        start += sources.sources()[source].points->file().pointCount * _restLengths[source];
    }
    _sharedStart = start;
}

Status PointSpool::create(const std::string& output, uint64_t bufferBytes)
{
    const uint64_t items = std::clamp<uint64_t>(bufferBytes / _chunks.size(), 1, kMostBuffer) / itemSize();
    _bufferSize = std::max<uint64_t>(items, 1) * itemSize();
    return _file.create(folderOf(output), size());
}

Status PointSpool::append(const uint8_t* records, const std::vector<uint32_t>& chunks, uint64_t firstOrdinal)
{
    // Chunk by chunk, so that the lock of each is taken once.
    std::vector<uint32_t> starts(_chunks.size() + 1);
    for (uint32_t chunk : chunks)
        ++starts[chunk + 1];
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    std::vector<uint32_t> ends(starts.begin(), starts.end() - 1);
    std::vector<uint32_t> order(chunks.size());
    for (uint32_t i = 0; i < chunks.size(); ++i)
        order[ends[chunks[i]]++] = i;

    for (size_t chunk = 0; chunk < _chunks.size(); ++chunk) {
        if (starts[chunk] == ends[chunk]) continue;
        Buffer& buffer = _buffers[chunk];
        const VelThreads::Lock lock(buffer.mutex);
        if (!buffer.bytes) buffer.bytes = uninitialised<uint8_t>(_bufferSize);
        for (uint32_t i = starts[chunk]; i < ends[chunk]; ++i) {
            uint8_t* const item = &buffer.bytes[buffer.filled];
            const uint64_t ordinal = firstOrdinal + order[i];
            std::memcpy(item, records + order[i] * kPointSize, kPointSize);
            storeOrdinal(item + kPointSize, ordinal);
            buffer.filled += itemSize();
            if (buffer.filled < _bufferSize) continue;
            if (Status status = flush(chunk, buffer); !status) return status;
        }
    }
    return {};
}

Status PointSpool::flush(size_t chunk, Buffer& buffer)
{
    const uint64_t end = buffer.written + buffer.filled;
    if (end > _chunks[chunk].pointCount * itemSize()) return inputChanged();
    const uint64_t start = _chunks[chunk].firstPoint * itemSize() + buffer.written;
    buffer.written = end;
    return _file.write(start, buffer.bytes.get(), std::exchange(buffer.filled, 0));
}

Status PointSpool::flush()
{
    for (size_t chunk = 0; chunk < _chunks.size(); ++chunk) {
        Buffer& buffer = _buffers[chunk];
        const VelThreads::Lock lock(buffer.mutex);
        if (Status status = flush(chunk, buffer); !status) return status;
        buffer.bytes.reset();
        if (buffer.written != _chunks[chunk].pointCount * itemSize()) return inputChanged();
    }
    return {};
}

Status PointSpool::readItems(const Chunk& chunk, uint64_t first, uint64_t count, uint8_t* items) const
{
    return _file.read((chunk.firstPoint + first) * itemSize(), items, count * itemSize());
}

void PointSpool::discardItems(const Chunk& chunk)
{
    _file.discard(chunk.firstPoint * itemSize(), chunk.pointCount * itemSize());
}

uint64_t PointSpool::ordinal(const uint8_t* item) const
{
    return _ordinalSize == 4 ? loadLe<uint32_t>(item + kPointSize) : loadLe<uint64_t>(item + kPointSize);
}

Status PointSpool::writeOrder(const Chunk& chunk, const uint32_t* order)
{
    return _file.write(_orderStart + chunk.firstPoint * sizeof *order, order,
                       chunk.pointCount * sizeof *order);
}

Status PointSpool::readOrder(const Chunk& chunk, uint32_t* order) const
{
    return _file.read(_orderStart + chunk.firstPoint * sizeof *order, order,
                      chunk.pointCount * sizeof *order);
}

Status PointSpool::writeFlags(uint64_t firstOrdinal, const std::vector<uint8_t>& flags)
{
    return _file.write(_flagsStart + firstOrdinal, flags.data(), flags.size());
}

Status PointSpool::readFlags(uint64_t firstOrdinal, std::vector<uint8_t>& flags) const
{
    return _file.read(_flagsStart + firstOrdinal, flags.data(), flags.size());
}

Status PointSpool::writeClasses(uint64_t firstOrdinal, const std::vector<uint8_t>& classes)
{
    return _file.write(_classesStart + firstOrdinal, classes.data(), classes.size());
}

Status PointSpool::readClasses(uint64_t firstOrdinal, std::vector<uint8_t>& classes) const
{
    return _file.read(_classesStart + firstOrdinal, classes.data(), classes.size());
}

Status PointSpool::writeRest(size_t source, uint64_t position, const std::vector<uint8_t>& rest)
{
    return _file.write(_restStarts[source] + position, rest.data(), rest.size());
}

Status PointSpool::readRest(size_t source, uint64_t position, std::vector<uint8_t>& rest) const
{
    return _file.read(_restStarts[source] + position, rest.data(), rest.size());
}

Status PointSpool::writeShared(uint64_t first, const std::vector<uint8_t>& items)
{
    return _file.write(_sharedStart + first * itemSize(), items.data(), items.size());
}

Status PointSpool::readShared(uint64_t first, uint64_t count, uint8_t* items) const
{
    return _file.read(_sharedStart + first * itemSize(), items, count * itemSize());
}

} // namespace VelBrx
