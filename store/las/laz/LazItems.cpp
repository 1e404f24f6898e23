#include "store/las/laz/LazItems.h"

#include "store/io/ByteIo.h"

#include <algorithm>
#include <string>

namespace VelBrx {

namespace {

constexpr size_t kFixedSize = 34;
constexpr size_t kItemSize = 6;
constexpr uint32_t kCompatibilityMode = 1; ///< of the options
constexpr uint32_t kVariableChunks = 0xFFFFFFFFu;
constexpr uint32_t kChunkSize = 50000;        ///< what every reader knows best
constexpr uint32_t kMaxChunkBytes = 8u << 20; ///< of records

/// What an item may be. `size` 0 means any; `place` grows along the record; `layers` 0 means none
/// in a pointwise item and for one a byte in a layered one.
struct KnownItem
{
    LazItemType type;
    bool layered;
    uint16_t size;
    uint16_t minVersion;
    uint16_t maxVersion;
    unsigned place;
    unsigned layers;
};

constexpr KnownItem kKnownItems[] = {
    {LazItemType::Point10, false, 20, 1, 2, 0, 0},     {LazItemType::GpsTime11, false, 8, 1, 2, 1, 0},
    {LazItemType::Rgb12, false, 6, 1, 2, 2, 0},        {LazItemType::WavePacket13, false, 29, 1, 1, 3, 0},
    {LazItemType::Byte, false, 0, 1, 2, 4, 0},         {LazItemType::Point14, true, 30, 2, 4, 0, 9},
    {LazItemType::Rgb14, true, 6, 2, 4, 1, 1},         {LazItemType::RgbNir14, true, 8, 2, 4, 1, 2},
    {LazItemType::WavePacket14, true, 29, 2, 4, 2, 1}, {LazItemType::Byte14, true, 0, 2, 4, 3, 0}};

const KnownItem* findKnown(LazItemType type)
{
    const auto known = std::find_if(std::begin(kKnownItems), std::end(kKnownItems),
                                    [&](const KnownItem& k) { return k.type == type; });
    return known == std::end(kKnownItems) ? nullptr : known;
}

Status unsupported(const std::string& what)
{
    return Status::failure("its LAZ compression is not known: " + what +
                           "; the file is damaged or newer than this program");
}

Status checkItem(const LazItem& item, bool layered, unsigned& nextPlace)
{
    const KnownItem* known = findKnown(item.type);
    const std::string name = "item type " + std::to_string(static_cast<unsigned>(item.type));
    if (!known) return unsupported(name);
    if (known->layered != layered) return unsupported(name + " under the other kind of compressor");
    if (item.version < known->minVersion || item.version > known->maxVersion)
        return unsupported(name + " of version " + std::to_string(item.version));
    if (item.size == 0 || (known->size != 0 && item.size != known->size))
        return unsupported(name + " of " + std::to_string(item.size) + " bytes");
    if (known->place < nextPlace || (nextPlace == 0 && known->place != 0))
        return unsupported(name + " in the wrong place of the record");
    nextPlace = known->place + 1;
    return {};
}

} // namespace

size_t LazItems::layerCount() const
{
    size_t count = 0;
    for (const LazItem& item : items) {
        const KnownItem& known = *findKnown(item.type);
        if (known.layered) count += known.layers != 0 ? known.layers : item.size;
    }
    return count;
}

Status parseLazItems(const uint8_t* payload, size_t size, uint16_t recordLength, LazItems& items)
{
    if (size < kFixedSize) return Status::failure("its LAZ record is cut short");
    const auto compressor = loadLe<uint16_t>(payload);
    const auto coder = loadLe<uint16_t>(payload + 2);
    if (compressor < 1 || compressor > 3) return unsupported("compressor " + std::to_string(compressor));
    if (coder != 0) return unsupported("coder " + std::to_string(coder));
    const auto chunkSize = loadLe<uint32_t>(payload + 12);
    const auto count = loadLe<uint16_t>(payload + 32);
    if (size < kFixedSize + kItemSize * count) return Status::failure("its LAZ record is cut short");

    LazItems result;
    result.compressor = static_cast<LazCompressor>(compressor);
    result.chunkSize = chunkSize == kVariableChunks ? 0 : chunkSize;
    result.isCompatibilityMode = loadLe<uint32_t>(payload + 8) & kCompatibilityMode;
    result.recordLength = recordLength;
    unsigned nextPlace = 0;
    size_t total = 0;
    for (size_t k = 0; k < count; ++k) {
        const uint8_t* bytes = payload + kFixedSize + kItemSize * k;
        const LazItem item{static_cast<LazItemType>(loadLe<uint16_t>(bytes)), loadLe<uint16_t>(bytes + 2),
                           loadLe<uint16_t>(bytes + 4)};
        if (const Status status = checkItem(item, result.compressor == LazCompressor::Layered, nextPlace);
            !status)
            return status;
        if (item.type != LazItemType::WavePacket13 && !result.items.empty() &&
            (item.version == 1) != (result.items.front().version == 1))
            return unsupported("items of version 1 beside later ones");
        total += item.size;
        result.items.push_back(item);
    }
    if (result.items.empty()) return unsupported("no items");
    if (total != recordLength)
        return Status::failure("its LAZ items make up " + std::to_string(total) +
                               " bytes, but a point record has " + std::to_string(recordLength));
    items = std::move(result);
    return {};
}

LazItems makeLazItems(uint8_t pointFormat, uint16_t recordLength)
{
    struct Format
    {
        uint16_t length; ///< of a record without extra bytes
        std::vector<LazItemType> types;
    };
    using Type = LazItemType;
    static const Format kFormats[] = {{20, {Type::Point10}},
                                      {28, {Type::Point10, Type::GpsTime11}},
                                      {26, {Type::Point10, Type::Rgb12}},
                                      {34, {Type::Point10, Type::GpsTime11, Type::Rgb12}},
                                      {57, {Type::Point10, Type::GpsTime11, Type::WavePacket13}},
                                      {63, {Type::Point10, Type::GpsTime11, Type::Rgb12, Type::WavePacket13}},
                                      {30, {Type::Point14}},
                                      {36, {Type::Point14, Type::Rgb14}},
                                      {38, {Type::Point14, Type::RgbNir14}},
                                      {59, {Type::Point14, Type::WavePacket14}},
                                      {67, {Type::Point14, Type::RgbNir14, Type::WavePacket14}}};
    const Format& format = kFormats[pointFormat];
    const bool isLayered = pointFormat > 5;

    LazItems result;
    result.compressor = isLayered ? LazCompressor::Layered : LazCompressor::PointwiseChunked;
    result.chunkSize = std::min(kChunkSize, kMaxChunkBytes / recordLength);
    result.recordLength = recordLength;
    const auto add = [&](LazItemType type, uint16_t size) {
        const uint16_t version = isLayered ? 3 : type == Type::WavePacket13 ? 1 : 2;
        result.items.push_back({type, size, version});
    };
    for (const LazItemType type : format.types)
        add(type, findKnown(type)->size);
    if (recordLength > format.length)
        add(isLayered ? Type::Byte14 : Type::Byte, static_cast<uint16_t>(recordLength - format.length));
    return result;
}

std::vector<uint8_t> makeLazRecord(const LazItems& items)
{
    // The version of the writer says which decoders can be expected to know the items; nothing depends on it.
    constexpr uint8_t kMajor = 3, kMinor = 4, kRevision = 3;
    std::vector<uint8_t> bytes(kFixedSize + kItemSize * items.items.size());
    storeLe(bytes.data(), static_cast<uint16_t>(items.compressor));
    bytes[4] = kMajor;
    bytes[5] = kMinor;
    storeLe<uint16_t>(bytes.data() + 6, kRevision);
    storeLe(bytes.data() + 12, items.chunkSize == 0 ? kVariableChunks : items.chunkSize);
    storeLe<int64_t>(bytes.data() + 16, -1); // no EVLRs of special kinds: their number and
    storeLe<int64_t>(bytes.data() + 24, -1); // position
    storeLe(bytes.data() + 32, static_cast<uint16_t>(items.items.size()));
    uint8_t* next = bytes.data() + kFixedSize;
    for (const LazItem& item : items.items) {
        storeLe(next, static_cast<uint16_t>(item.type));
        storeLe(next + 2, item.size);
        storeLe(next + 4, item.version);
        next += kItemSize;
    }
    return bytes;
}

} // namespace VelBrx
