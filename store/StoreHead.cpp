#include "store/StoreHead.h"

#include "store/CellIdentifiers.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "store/las/Projection.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace VelBrx {

namespace {

using namespace LasLayout;

Status notAStore(const std::string& what)
{
    return Status::failure(what + "; build a store with 'brx build'");
}

Status damaged(const std::string& what)
{
    return Status::failure(what + "; restore the store from a copy or build it anew", Status::Kind::DAMAGED);
}

/// Characters up to the first NUL.
std::string text(const uint8_t* bytes, size_t size)
{
    return std::string(bytes, std::find(bytes, bytes + size, uint8_t(0)));
}

bool hasUserId(const uint8_t* recordHeader, const char* userId)
{
    return text(recordHeader + kVlrUserId, kUserIdSize) == userId;
}

/// Walks the VLRs in `bytes`, the file up to its first point, for the coordinate system.
Status readVlrs(const std::vector<uint8_t>& bytes, ProjectionRecords& projection)
{
    const uint32_t count = loadLe<uint32_t>(bytes.data() + kVlrCount);
    size_t position = kHeaderSize;
    for (uint32_t i = 0; i < count; ++i) {
        if (bytes.size() - position < kVlrHeaderSize) return damaged("a VLR reaches into the points");
        const uint8_t* const record = bytes.data() + position;
        const size_t length = loadLe<uint16_t>(record + kVlrLength);
        position += kVlrHeaderSize;
        if (bytes.size() - position < length) return damaged("a VLR reaches into the points");
        position += length;
        if (hasUserId(record, kProjectionUserId))
            addProjectionRecord(loadLe<uint16_t>(record + kVlrRecordId), record + kVlrHeaderSize, length,
                                projection);
    }
    return {};
}

/// Numbers of the header that the coordinates of all points depend on.
Status checkCoordinates(const BrxHeader& header)
{
    constexpr double kLargestStep = 2147483648.0; // magnitude of a record's integer coordinate
    for (size_t axis = 0; axis < 3; ++axis) {
        const double reach = header.scale[axis] * kLargestStep;
        if (!(header.scale[axis] > 0) || !std::isfinite(reach) || !std::isfinite(header.offset[axis]) ||
            !std::isfinite(std::abs(header.offset[axis]) + reach))
            return damaged("the LAS header's scale or offset is no usable number");
        if (!std::isfinite(header.min[axis]) || !std::isfinite(header.max[axis]) ||
            header.min[axis] > header.max[axis])
            return damaged("the LAS header's bounds are not a box");
    }
    return {};
}

/// Recognises the fixed part of a store's LAS header.
Status checkKind(const uint8_t* bytes)
{
    if (std::memcmp(bytes + kSignature, "LASF", 4) != 0) return notAStore("is not an octree store");
    if (bytes[kVersionMajor] != 1 || bytes[kVersionMinor] != 4 ||
        loadLe<uint16_t>(bytes + kHeaderSizeField) != kHeaderSize)
        return notAStore("is not an octree store: not a LAS 1.4 header of 375 bytes");
    if (bytes[kPointFormat] != kStorePointFormat || loadLe<uint16_t>(bytes + kRecordLength) != kPointSize)
        return notAStore("is not an octree store: its points are not uncompressed records of format 7");
    return {};
}

void readNumbers(const uint8_t* bytes, BrxHeader& header)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        header.scale[axis] = loadLe<double>(bytes + kScale + 8 * axis);
        header.offset[axis] = loadLe<double>(bytes + kOffset + 8 * axis);
        header.max[axis] = loadLe<double>(bytes + kBounds + 16 * axis);
        header.min[axis] = loadLe<double>(bytes + kBounds + 16 * axis + 8);
    }
    header.pointDataStart = loadLe<uint32_t>(bytes + kPointDataStart);
    header.pointCount = loadLe<uint64_t>(bytes + kPointCount);
    for (size_t i = 0; i < 15; ++i)
        header.pointsByReturn[i] = loadLe<uint64_t>(bytes + kPointsByReturn + 8 * i);
}

/// Reads LAS header and VLRs, which are all bytes in front of the points.
Status readHeader(const FileReader& file, StoreHead& head, std::vector<uint8_t>& bytes)
{
    bytes.resize(kHeaderSize);
    if (!file.read(0, bytes.data(), bytes.size()))
        return notAStore("is not an octree store: it is shorter than a LAS header");
    if (Status kind = checkKind(bytes.data()); !kind) return kind;
    BrxHeader& header = head.header;
    readNumbers(bytes.data(), header);
    if (Status numbers = checkCoordinates(header); !numbers) return numbers;

    const int64_t start = header.pointDataStart;
    if (start < static_cast<int64_t>(kHeaderSize) || start > kMaxHeadSize || !file.contains(0, start))
        return damaged("the LAS header's start of the points is wrong");
    if (header.pointCount == 0) return notAStore("holds no points");
    if (header.pointCount > static_cast<uint64_t>(file.size() - start) / kPointSize)
        return damaged("is too short for the " + std::to_string(header.pointCount) + " points of its header");
    head.pointDataEnd = start + static_cast<int64_t>(header.pointCount * kPointSize);

    bytes.resize(static_cast<size_t>(start));
    if (!file.read(0, bytes.data(), bytes.size())) return damaged("cannot be read up to its points");
    head.headerChecksum = crc32c(bytes.data(), bytes.size());
    return readVlrs(bytes, header.projection);
}

StoreRecord* recordSlot(StoreHead& head, uint16_t recordId)
{
    switch (recordId) {
    case kIndexRecordId:
        return &head.index;
    case kOriginRecordId:
        return &head.origin;
    case kFlagsRecordId:
        return &head.flags;
    default:
        return nullptr;
    }
}

/// Takes note of one EVLR, whose header is `bytes`.
Status noteEvlr(const FileReader& file, const uint8_t* bytes, const StoreRecord& record, StoreHead& head)
{
    const uint16_t id = loadLe<uint16_t>(bytes + kVlrRecordId);
    if (hasUserId(bytes, kProjectionUserId) && id == kWktId && record.length <= kMaxHeadSize) {
        std::vector<uint8_t> wkt(static_cast<size_t>(record.length));
        if (!file.read(record.start, wkt.data(), wkt.size())) return damaged("cannot be read to its end");
        addProjectionRecord(id, wkt.data(), wkt.size(), head.header.projection);
    }
    StoreRecord* const slot = hasUserId(bytes, kStoreUserId) ? recordSlot(head, id) : nullptr;
    if (!slot) return {};
    if (slot->start != 0) return damaged("has two store records with id " + std::to_string(id));
    *slot = record;
    return {};
}

Status readEvlrs(const FileReader& file, const std::vector<uint8_t>& headerBytes, StoreHead& head)
{
    const uint32_t count = loadLe<uint32_t>(headerBytes.data() + kEvlrCount);
    const uint64_t start = loadLe<uint64_t>(headerBytes.data() + kEvlrStart);
    if (count == 0) return notAStore("is a LAS file without an octree index");
    if (count > kMaxEvlrCount) return damaged("the LAS header's number of EVLRs is wrong");
    if (start < static_cast<uint64_t>(head.pointDataEnd) || start > static_cast<uint64_t>(file.size()))
        return damaged("the LAS header's start of the EVLRs is wrong");

    int64_t position = static_cast<int64_t>(start);
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t bytes[kEvlrHeaderSize];
        if (!file.read(position, bytes, sizeof bytes)) return damaged("ends inside its EVLRs");
        const uint64_t length = loadLe<uint64_t>(bytes + kEvlrLength);
        StoreRecord record{position, position + static_cast<int64_t>(kEvlrHeaderSize), 0};
        if (length > static_cast<uint64_t>(file.size() - record.start))
            return damaged("ends inside its EVLRs");
        record.length = static_cast<int64_t>(length);
        if (Status noted = noteEvlr(file, bytes, record, head); !noted) return noted;
        position = record.start + record.length;
    }
    head.lastRecordEnd = position;
    return head.index.start != 0 ? Status() : notAStore("is a LAS file without an octree index");
}

} // namespace

Status readStoreHead(const FileReader& file, StoreHead& head)
{
    std::vector<uint8_t> bytes;
    if (Status header = readHeader(file, head, bytes); !header) return header;
    if (Status evlrs = readEvlrs(file, bytes, head); !evlrs) return evlrs;
    head.header.coordinateSystem = systemOf(head.header.projection);
    return {};
}

Status readIndexBytes(const FileReader& file, const StoreHead& head, std::vector<uint8_t>& bytes)
{
    const auto expected =
        storeRecordHeader(kIndexRecordId, static_cast<uint64_t>(head.index.length), kIndexDescription);
    std::vector<uint8_t> found(kEvlrHeaderSize);
    if (!file.read(head.index.headerStart, found.data(), found.size()) || found != expected)
        return damaged("the header of the octree index was changed");
    bytes.resize(static_cast<size_t>(head.index.length));
    if (!file.read(head.index.start, bytes.data(), bytes.size()))
        return damaged("the octree index cannot be read");
    return {};
}

Status checkHeaderChecksum(const StoreHead& head, const StoreIndex& index)
{
    if (head.headerChecksum == index.headerChecksum) return {};
    return damaged("the LAS header or a VLR was changed after the store was built");
}

Status readStore(const std::string& path, FileReader& file, StoreHead& head, StoreIndex& index,
                 FileReader::Access access)
try {
    if (Status opened = file.open(path, access); !opened) return opened;
    if (Status read = readStoreHead(file, head); !read) return read;
    std::vector<uint8_t> bytes;
    if (Status read = readIndexBytes(file, head, bytes); !read) return read;
    if (Status decoded = decodeIndex(bytes.data(), bytes.size(), head.header.pointCount, index); !decoded)
        return decoded;
    head.header.formatVersion = kIndexVersion;
    head.header.storeId = index.storeId;
    head.header.cellCount = index.cells.size();
    head.header.fileKey = CellIdentifiers(file.identity(), index.storeId).fileKey();
    return checkHeaderChecksum(head, index);
} catch (const std::bad_alloc&) {
    return Status::failure("needs more memory than there is; close other programs or restore the store",
                           Status::Kind::NO_MEMORY);
}

} // namespace VelBrx
