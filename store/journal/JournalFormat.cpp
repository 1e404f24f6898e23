#include "store/journal/JournalFormat.h"

#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <cstring>

namespace VelBrx::Journal {

namespace {

constexpr char kMagic[] = "VELBRXED";
constexpr char kEntryMagic[] = "EDIT";
constexpr uint32_t kVersion = 1;
constexpr size_t kHeaderChecksum = 12;
constexpr size_t kHeadChecksum = 4;
constexpr uint8_t kDeferred = 1;
constexpr uint64_t kMostRuns = uint64_t{1} << 60; ///< bytes; sums of positions do not overflow

uint32_t checksumBehind(const Unit& bytes, size_t place)
{
    return crc32c(bytes.data() + place + 4, kUnit - place - 4);
}

Status damaged(const char* what)
{
    return Status::failure(what, Status::Kind::DAMAGED);
}

/// Only the hidden bits and the class are ever edited.
bool isEditable(uint8_t field, uint8_t mask)
{
    if (mask == 0) return false;
    return field == PointRecord::kClass ||
           (field == PointRecord::kFlags && (mask & ~PointRecord::kHiddenBits) == 0);
}

bool isSane(const EntryHead& head)
{
    if (head.kind < Kind::CHANGE || head.kind > Kind::MARK || head.authorLength > kMostAuthor ||
        head.operationLength > kMostOperation || head.runsLength > kMostRuns)
        return false;
    if (head.kind == Kind::CHANGE)
        return isEditable(head.field, head.mask) && head.other < head.number && head.points > 0;
    return head.field == 0 && head.mask == 0 && !head.deferred && head.runsLength == 0 && head.points == 0;
}

} // namespace

Unit encodeHeader(const FileHeader& header)
{
    Unit bytes{};
    std::memcpy(bytes.data(), kMagic, 8);
    storeLe(&bytes[8], kVersion);
    storeLe(&bytes[16], header.storeId);
    storeLe(&bytes[24], header.pointCount);
    storeLe(&bytes[32], header.forgotten);
    storeLe(&bytes[40], header.base);
    storeLe(&bytes[kHeaderChecksum], checksumBehind(bytes, kHeaderChecksum));
    return bytes;
}

Status decodeHeader(const Unit& bytes, FileHeader& header)
{
    if (std::memcmp(bytes.data(), kMagic, 8) != 0)
        return damaged("is not a journal of edits; move it away to edit the store");
    if (const uint32_t version = loadLe<uint32_t>(&bytes[8]); version != kVersion)
        return damaged("has a version that this program does not know; use the program that wrote it");
    if (loadLe<uint32_t>(&bytes[kHeaderChecksum]) != checksumBehind(bytes, kHeaderChecksum))
        return damaged("has a damaged header; restore it from a copy, or move it away to edit without it");
    header.storeId = loadLe<uint64_t>(&bytes[16]);
    header.pointCount = loadLe<uint64_t>(&bytes[24]);
    header.forgotten = loadLe<uint64_t>(&bytes[32]);
    header.base = loadLe<uint64_t>(&bytes[40]);
    if (header.base > header.forgotten) return damaged("has a header that cannot be; restore it from a copy");
    return {};
}

Unit encodeHead(const EntryHead& head)
{
    Unit bytes{};
    std::memcpy(bytes.data(), kEntryMagic, 4);
    storeLe(&bytes[8], head.number);
    storeLe(&bytes[16], head.time);
    bytes[24] = static_cast<uint8_t>(head.kind);
    bytes[25] = head.field;
    bytes[26] = head.mask;
    bytes[27] = head.deferred ? kDeferred : 0;
    storeLe(&bytes[28], head.authorLength);
    storeLe(&bytes[32], head.operationLength);
    storeLe(&bytes[36], head.textChecksum);
    storeLe(&bytes[40], head.runsLength);
    storeLe(&bytes[48], head.points);
    storeLe(&bytes[56], head.other);
    storeLe(&bytes[kHeadChecksum], checksumBehind(bytes, kHeadChecksum));
    return bytes;
}

bool isBlank(const Unit& bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

bool isHead(const Unit& bytes)
{
    return std::memcmp(bytes.data(), kEntryMagic, 4) == 0 &&
           loadLe<uint32_t>(&bytes[kHeadChecksum]) == checksumBehind(bytes, kHeadChecksum);
}

Status decodeHead(const Unit& bytes, EntryHead& head)
{
    if (!isHead(bytes)) return damaged("the head of an entry has a wrong checksum");
    head.number = loadLe<uint64_t>(&bytes[8]);
    head.time = loadLe<int64_t>(&bytes[16]);
    head.kind = static_cast<Kind>(bytes[24]);
    head.field = bytes[25];
    head.mask = bytes[26];
    head.deferred = (bytes[27] & kDeferred) != 0;
    head.authorLength = loadLe<uint32_t>(&bytes[28]);
    head.operationLength = loadLe<uint32_t>(&bytes[32]);
    head.textChecksum = loadLe<uint32_t>(&bytes[36]);
    head.runsLength = loadLe<uint64_t>(&bytes[40]);
    head.points = loadLe<uint64_t>(&bytes[48]);
    head.other = loadLe<uint64_t>(&bytes[56]);
    return isSane(head) ? Status() : damaged("the head of an entry says what cannot be");
}

} // namespace VelBrx::Journal
