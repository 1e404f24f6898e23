#include "store/las/laz/LazPointWriter.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/VlrHeader.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace VelBrx {

using namespace LasLayout;

namespace {

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
    std::vector<uint8_t> vlr = makeVlr(kLazUserId, kLazRecordId, "compressed points", payload.size());
    std::copy(payload.begin(), payload.end(), vlr.begin() + kVlrHeaderSize);

    head.insert(head.begin() + static_cast<std::ptrdiff_t>(endOfVlrs(head)), vlr.begin(), vlr.end());
    storeLe(head.data() + kVlrCount, count + 1);
    storeLe(head.data() + kPointDataStart, static_cast<uint32_t>(head.size()));
    head[kPointFormat] |= kLazFormatBit;
    return true;
}

LazPointWriter::LazPointWriter(const LazItems& items, uint64_t position, uint64_t pointCount, Write write)
    : _items(items), _pointCount(pointCount), _encoders(items), _chunks(position, std::move(write))
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
        const VelThreads::Lock lock(_mutex);
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
        const VelThreads::Lock lock(_mutex);
        gathered->missing -= count;
        if (gathered->missing > 0) return {};
        _gathered.erase(chunk);
    }
    return encode(chunk, gathered->records.data());
}

Status LazPointWriter::encode(uint64_t chunk, const uint8_t* records)
{
    std::vector<uint8_t> bytes;
    _encoders.encode(records, pointsOf(chunk), bytes);
    return _chunks.add(chunk, pointsOf(chunk), std::move(bytes));
}

Status LazPointWriter::finish(uint64_t& end)
{
    return _chunks.finish(false, end);
}

} // namespace VelBrx
