#include "store/las/laz/LazItems.h"

#include "store/ByteIo.h"

#include <algorithm>
#include <string>

namespace VelBrx {

namespace {

constexpr size_t kFixedSize = 34;
constexpr size_t kItemSize = 6;
constexpr uint32_t kCompatibilityMode = 1; ///< of the options
constexpr uint32_t kVariableChunks = 0xFFFFFFFFu;

/// What an item may be. `size` 0 stands for any; `place` grows along the record; `layers` 0 stands for none
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

} // namespace VelBrx
