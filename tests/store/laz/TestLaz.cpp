#include "tests/store/laz/TestLaz.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/laz/LazChunkEncoder.h"
#include "store/las/laz/LazChunkTable.h"
#include "store/las/laz/LazItems.h"
#include "tests/support/TestLas.h"

using namespace VelBrx;

namespace {

template <typename T>
void append(std::vector<uint8_t>& bytes, T value)
{
    bytes.resize(bytes.size() + sizeof value);
    storeLe(bytes.data() + bytes.size() - sizeof value, value);
}

void append(std::vector<uint8_t>& bytes, const std::vector<uint8_t>& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

std::vector<uint8_t> record(int32_t height)
{
    std::vector<uint8_t> bytes(TestLaz::kRecordLength);
    storeLe<int32_t>(bytes.data() + LasLayout::kX, 1000);
    storeLe<int32_t>(bytes.data() + LasLayout::kZ, height);
    bytes[14] = 1 | 1 << 3; // the only return of its pulse
    return bytes;
}

std::vector<uint8_t> compress(const std::vector<int32_t>& heights)
{
    std::vector<uint8_t> records;
    for (const int32_t height : heights)
        append(records, record(height));
    std::vector<uint8_t> chunk;
    LazChunkEncoder(makeLazItems(0, TestLaz::kRecordLength)).encode(records.data(), heights.size(), chunk);
    return chunk;
}

} // namespace

std::vector<uint8_t> lazRecord(uint16_t compressor, uint32_t chunkSize,
                               const std::vector<std::vector<uint16_t>>& items)
{
    std::vector<uint8_t> bytes;
    append(bytes, compressor);
    bytes.resize(12);
    append(bytes, chunkSize);
    bytes.resize(32);
    append(bytes, static_cast<uint16_t>(items.size()));
    for (const auto& item : items)
        for (const uint16_t number : item)
            append(bytes, number);
    return bytes;
}

size_t TestLaz::lazRecord()
{
    return 227 + LasLayout::kVlrHeaderSize;
}

size_t TestLaz::pointDataStart()
{
    return lazRecord() + 40;
}

size_t TestLaz::table() const
{
    size_t at = pointDataStart() + 8;
    for (const auto& heights : chunks)
        at += compress(heights).size();
    return at;
}

std::vector<uint8_t> TestLaz::points() const
{
    std::vector<uint8_t> bytes;
    append(bytes, tellsTableAtEnd ? ~uint64_t{0} : uint64_t{table()});
    std::vector<LazChunk> written;
    for (const auto& heights : chunks) {
        const std::vector<uint8_t> chunk = compress(heights);
        append(bytes, chunk);
        written.push_back({0, chunk.size(), 0, heights.size()});
    }
    if (!hasTable) return bytes;
    append(bytes, makeLazChunkTable(written, variableChunks));
    if (tellsTableAtEnd) append(bytes, uint64_t{table()});
    return bytes;
}

std::vector<uint8_t> TestLaz::bytes() const
{
    TestLas las;
    las.versionMinor = 2;
    las.pointFormat = 0;
    las.recordLength = kRecordLength;
    const auto chunkSize = variableChunks ? 0xFFFFFFFFu : static_cast<uint32_t>(chunks.front().size());
    las.vlrs.push_back({kLazUserId, kLazRecordId, ::lazRecord(2, chunkSize, {{6, 20, 2}})});
    std::vector<uint8_t> bytes = las.bytes();
    uint32_t count = 0;
    for (const auto& heights : chunks)
        count += static_cast<uint32_t>(heights.size());
    bytes[LasLayout::kPointFormat] |= kLazFormatBit;
    storeLe(bytes.data() + LasLayout::kLegacyPointCount, count);
    append(bytes, points());
    return bytes;
}

std::vector<uint8_t> TestLaz::records() const
{
    std::vector<uint8_t> bytes;
    for (const auto& heights : chunks)
        for (const int32_t height : heights)
            append(bytes, record(height));
    return bytes;
}
