#include "tests/store/laz/LazTestFile.h"

#include "store/ByteIo.h"
#include "store/las/laz/LazChunkDecoder.h"

#include <cstring>
#include <fstream>
#include <iterator>

using namespace VelBrx;

namespace {

Status readHead(const std::vector<uint8_t>& bytes, LasHead& head)
{
    if (bytes.size() < 227 || std::memcmp(bytes.data(), "LASF", 4) != 0)
        return Status::failure("no LAS header");
    head.pointDataStart = loadLe<uint32_t>(bytes.data() + 96);
    head.recordLength = loadLe<uint16_t>(bytes.data() + 105);
    head.pointCount = loadLe<uint32_t>(bytes.data() + 107);
    if (bytes[25] >= 4 && bytes.size() >= 375)
        if (const auto count = loadLe<uint64_t>(bytes.data() + 247); count != 0) head.pointCount = count;
    return {};
}

} // namespace

std::vector<uint8_t> readBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<uint8_t> lasRecords(const std::string& path)
{
    const std::vector<uint8_t> bytes = readBytes(path);
    LasHead head;
    if (!readHead(bytes, head)) return {};
    const uint64_t end = head.pointDataStart + head.pointCount * head.recordLength;
    if (end > bytes.size()) return {};
    return {bytes.begin() + static_cast<ptrdiff_t>(head.pointDataStart),
            bytes.begin() + static_cast<ptrdiff_t>(end)};
}

Status readLazHead(const std::vector<uint8_t>& bytes, LasHead& head, LazItems& items)
{
    if (Status status = readHead(bytes, head); !status) return status;
    size_t at = loadLe<uint16_t>(bytes.data() + 94);
    for (uint32_t k = 0; k < loadLe<uint32_t>(bytes.data() + 100) && at + 54 <= bytes.size(); ++k) {
        const uint8_t* vlr = bytes.data() + at;
        const size_t length = loadLe<uint16_t>(vlr + 20);
        if (at + 54 + length > bytes.size()) break;
        if (std::memcmp(vlr + 2, kLazUserId, sizeof kLazUserId) == 0 &&
            loadLe<uint16_t>(vlr + 18) == kLazRecordId)
            return parseLazItems(vlr + 54, length, head.recordLength, items);
        at += 54 + length;
    }
    return Status::failure("no LAZ record");
}

Status decodeLaz(const std::string& path, std::vector<uint8_t>& records, LazChunkTable& table)
{
    LasHead head;
    LazItems items;
    const std::vector<uint8_t> bytes = readBytes(path);
    if (Status status = readLazHead(bytes, head, items); !status) return status;
    FileReader file;
    if (Status status = file.open(path); !status) return status;
    if (Status status = readLazChunkTable(file, items, head.pointDataStart, head.pointCount, table); !status)
        return status;
    records.resize(table.pointCount * items.recordLength);
    LazChunkDecoder decoder(items);
    for (const LazChunk& chunk : table.chunks)
        if (Status status = decoder.decode(bytes.data() + chunk.position, chunk.size, chunk.pointCount,
                                           records.data() + chunk.firstPoint * items.recordLength);
            !status)
            return status;
    return {};
}
