#include "store/las/laz/LazChunkSequence.h"

#include "store/io/ByteIo.h"

#include <algorithm>
#include <iterator>

namespace VelBrx {

namespace {

constexpr uint64_t kTablePositionSize = 8; ///< before the first chunk

} // namespace

LazChunkSequence::LazChunkSequence(uint64_t position, Write write)
    : _position(position), _write(std::move(write)), _end(position + kTablePositionSize)
{
}

Status LazChunkSequence::add(uint64_t number, uint64_t pointCount, std::vector<uint8_t> bytes)
{
    for (const Encoded& chunk : place(number, {std::move(bytes), 0, pointCount}))
        if (Status status = _write(chunk.position, chunk.bytes.data(), chunk.bytes.size()); !status)
            return status;
    return {};
}

/// The chunks that have their place now: this one, if all before it have, and those that waited for it.
std::vector<LazChunkSequence::Encoded> LazChunkSequence::place(uint64_t number, Encoded chunk)
{
    std::vector<Encoded> placed;
    const VelThreads::Lock lock(_mutex);
    _early.emplace(number, std::move(chunk));
    for (auto next = _early.begin(); next != _early.end() && next->first == _chunks.size();
         next = _early.erase(next)) {
        Encoded& encoded = next->second;
        encoded.position = _end;
        _chunks.push_back({_end, encoded.bytes.size(), _pointCount, encoded.pointCount});
        _end += encoded.bytes.size();
        _pointCount += encoded.pointCount;
        placed.push_back(std::move(encoded));
    }
    return placed;
}

Status LazChunkSequence::finish(bool tellsCounts, uint64_t& end)
{
    const VelThreads::Lock lock(_mutex);
    std::vector<LazChunk> chunks;
    std::copy_if(_chunks.begin(), _chunks.end(), std::back_inserter(chunks),
                 [](const LazChunk& chunk) { return chunk.size > 0; });
    uint8_t tablePosition[kTablePositionSize];
    storeLe(tablePosition, _end);
    const std::vector<uint8_t> table = makeLazChunkTable(chunks, tellsCounts);
    end = _end + table.size();
    if (Status status = _write(_position, tablePosition, sizeof tablePosition); !status) return status;
    return _write(_end, table.data(), table.size());
}

} // namespace VelBrx
