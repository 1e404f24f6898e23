#include "store/las/laz/LazPointWriter.h"

#include "store/ByteIo.h"
#include "store/LasLayout.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint64_t kTablePositionSize = 8; ///< before the first chunk

/// First byte behind the VLRs of a head, as far as they lie inside it.
size_t endOfVlrs(const std::vector<uint8_t>& head)
{
    size_t end = loadLe<uint16_t>(head.data() + kHeaderSizeField);
    for (auto left = loadLe<uint32_t>(head.data() + kVlrCount); left > 0; --left) {
        if (head.size() - end < kVlrHeaderSize) break;
        const size_t length = kVlrHeaderSize + loadLe<uint16_t>(head.data() + end + kVlrLength);
        if (head.size() - end < length) break;
        end += length;
    }
    return end;
}

/// Whether a name ends so, in letters of either case.
bool endsWith(const std::string& name, const std::string& ending)
{
    return name.size() >= ending.size() &&
           std::equal(ending.rbegin(), ending.rend(), name.rbegin(), [](char expected, char letter) {
               return expected == std::tolower(static_cast<unsigned char>(letter));
           });
}

} // namespace

bool isLazName(const std::string& path)
{
    return endsWith(path, ".laz");
}

bool isCopcName(const std::string& path)
{
    return endsWith(path, ".copc.laz");
}

bool makeLazHead(std::vector<uint8_t>& head, const LazItems& items)
{
    const std::vector<uint8_t> payload = makeLazRecord(items);
    const auto count = loadLe<uint32_t>(head.data() + kVlrCount);
    const uint64_t size = head.size() + kVlrHeaderSize + payload.size();
    if (count == std::numeric_limits<uint32_t>::max() || size > std::numeric_limits<uint32_t>::max())
        return false;
    std::vector<uint8_t> vlr(kVlrHeaderSize);
    std::memcpy(vlr.data() + kVlrUserId, kLazUserId, std::strlen(kLazUserId));
    storeLe(vlr.data() + kVlrRecordId, kLazRecordId);
    storeLe(vlr.data() + kVlrLength, static_cast<uint16_t>(payload.size()));
    constexpr char kDescription[] = "compressed points";
    std::memcpy(vlr.data() + kVlrDescription, kDescription, sizeof kDescription);
    vlr.insert(vlr.end(), payload.begin(), payload.end());

    head.insert(head.begin() + static_cast<std::ptrdiff_t>(endOfVlrs(head)), vlr.begin(), vlr.end());
    storeLe(head.data() + kVlrCount, count + 1);
    storeLe(head.data() + kPointDataStart, static_cast<uint32_t>(head.size()));
    head[kPointFormat] |= kLazFormatBit;
    return true;
}

LazPointWriter::LazPointWriter(const LazItems& items, uint64_t position, uint64_t pointCount, Write write)
    : _items(items), _position(position), _pointCount(pointCount), _write(std::move(write)),
      _end(position + kTablePositionSize)
{
}

uint64_t LazPointWriter::pointsOf(uint64_t chunk) const
{
    return std::min<uint64_t>(_items.chunkSize, _pointCount - chunk * _items.chunkSize);
}

Status LazPointWriter::write(uint64_t first, const uint8_t* records, uint64_t count)
{
    while (count > 0) {
        const uint64_t chunk = first / _items.chunkSize;
        const uint64_t inChunk = first % _items.chunkSize;
        const uint64_t step = std::min(count, pointsOf(chunk) - inChunk);
        const Status status =
            step == pointsOf(chunk) ? encode(chunk, records) : gather(chunk, inChunk, records, step);
        if (!status) return status;
        first += step;
        records += step * _items.recordLength;
        count -= step;
    }
    return {};
}

/// Threads copy into parts of the buffer that do not overlap; the one that brings the last part encodes.
Status LazPointWriter::gather(uint64_t chunk, uint64_t first, const uint8_t* records, uint64_t count)
{
    std::shared_ptr<Gathered> gathered;
    {
        const std::lock_guard lock(_mutex);
        std::shared_ptr<Gathered>& entry = _gathered[chunk];
        if (!entry) {
            entry = std::make_shared<Gathered>();
            entry->missing = pointsOf(chunk);
            entry->records.resize(entry->missing * _items.recordLength);
        }
        gathered = entry;
    }
    std::copy_n(records, count * _items.recordLength,
                gathered->records.begin() + static_cast<std::ptrdiff_t>(first * _items.recordLength));
    {
        const std::lock_guard lock(_mutex);
        gathered->missing -= count;
        if (gathered->missing > 0) return {};
        _gathered.erase(chunk);
    }
    return encode(chunk, gathered->records.data());
}

Status LazPointWriter::encode(uint64_t chunk, const uint8_t* records)
{
    std::unique_ptr<LazChunkEncoder> encoder;
    {
        const std::lock_guard lock(_mutex);
        if (!_idle.empty()) {
            encoder = std::move(_idle.back());
            _idle.pop_back();
        }
    }
    if (!encoder) encoder = std::make_unique<LazChunkEncoder>(_items);
    std::vector<uint8_t> bytes;
    encoder->encode(records, pointsOf(chunk), bytes);
    for (const Encoded& encoded : place(chunk, std::move(bytes), std::move(encoder)))
        if (Status status = _write(encoded.position, encoded.bytes.data(), encoded.bytes.size()); !status)
            return status;
    return {};
}

/// The chunks that have their place now: this one, if all before it have, and those that waited for it.
std::vector<LazPointWriter::Encoded> LazPointWriter::place(uint64_t chunk, std::vector<uint8_t> bytes,
                                                           std::unique_ptr<LazChunkEncoder> encoder)
{
    std::vector<Encoded> placed;
    const std::lock_guard lock(_mutex);
    _idle.push_back(std::move(encoder));
    _early.emplace(chunk, std::move(bytes));
    for (auto next = _early.begin(); next != _early.end() && next->first == _chunks.size();
         next = _early.erase(next)) {
        placed.push_back({std::move(next->second), _end});
        const uint64_t size = placed.back().bytes.size();
        _chunks.push_back({_end, size, next->first * _items.chunkSize, pointsOf(next->first)});
        _end += size;
    }
    return placed;
}

Status LazPointWriter::finish(uint64_t& end)
{
    const std::lock_guard lock(_mutex);
    uint8_t tablePosition[kTablePositionSize];
    storeLe(tablePosition, _end);
    const std::vector<uint8_t> table = makeLazChunkTable(_chunks, false);
    end = _end + table.size();
    if (Status status = _write(_position, tablePosition, sizeof tablePosition); !status) return status;
    return _write(_end, table.data(), table.size());
}

} // namespace VelBrx
