#include "tests/support/RestoreSources.h"

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/StoreHead.h"
#include "store/io/ByteIo.h"
#include "store/las/RecordFormat.h"

#include <cstring>
#include <stdexcept>

using namespace VelBrx;

namespace {

void require(const Status& status)
{
    if (!status) throw std::runtime_error(status.message());
}

/// A store's bytes and its decoded records.
struct OpenStore
{
    std::vector<uint8_t> bytes;
    StoreHead head;
    StoreIndex index;
    OriginRecord origin;
    FlagsRecord flags;

    explicit OpenStore(const std::string& path) : bytes(readFile(path))
    {
        FileReader reader;
        require(readStore(path, reader, head, index));
        const uint64_t count = head.header.pointCount;
        require(decodeOrigin(originBytes(), originHeadLength(originBytes()), uint64_t(head.origin.length),
                             count, origin));
        require(decodeFlags(flagBytes(), flagsHeadLength(flagBytes()), uint64_t(head.flags.length), count,
                            flags));
    }

    const uint8_t* originBytes() const { return &bytes[size_t(head.origin.start)]; }
    const uint8_t* flagBytes() const { return &bytes[size_t(head.flags.start)]; }

    uint64_t ordinal(uint64_t place) const
    {
        const uint8_t* at = originBytes() + origin.ordinalStart + place * origin.ordinalSize;
        return origin.ordinalSize == 4 ? loadLe<uint32_t>(at) : loadLe<uint64_t>(at);
    }

    uint8_t flagsOf(uint64_t ordinal) const
    {
        return flagBytes()[flags.flagsStart + ordinal / 2] >> (ordinal % 2 ? 4 : 0) & 0x0F;
    }
};

/// Puts the source record of a store record to `out`.
void restoreRecord(const OriginSource& source, const uint8_t* storeRecord, uint8_t flags, const uint8_t* rest,
                   uint8_t* out)
{
    uint8_t record[LasLayout::kPointSize];
    std::memcpy(record, storeRecord, sizeof record);
    const uint8_t hidden = record[LasLayout::kFlags] & 0x0F;
    if (hidden != (flags & kWithheld ? kWithheldHidden : 0)) throw std::runtime_error("wrong hidden bits");
    if (source.coordinatesKept) {
        std::memcpy(record, rest, 12);
        rest += 12;
    } else
        for (size_t axis = 0; axis < 3; ++axis) {
            const int64_t shifted = loadLe<int32_t>(record + 4 * axis) - source.axes[axis].shift;
            if (shifted % source.axes[axis].factor != 0)
                throw std::runtime_error("a coordinate is off its grid");
            storeLe(record + 4 * axis, static_cast<int32_t>(shifted / source.axes[axis].factor));
        }
    for (size_t color = LasLayout::kRed; source.colorsWidened && color < LasLayout::kPointSize; color += 2)
        storeLe(record + color, static_cast<uint16_t>(loadLe<uint16_t>(record + color) / 257));
    RecordFormat(source.pointFormat, source.recordLength).encode(record, flags, rest, out);
}

} // namespace

std::vector<std::vector<uint8_t>> restoreSources(const std::string& storePath)
{
    const OpenStore store(storePath);
    std::vector<std::vector<uint8_t>> files;
    std::vector<uint64_t> firsts;
    uint64_t first = 0;
    for (const OriginSource& source : store.origin.sources) {
        files.push_back(source.head);
        files.back().resize(source.head.size() + source.pointCount * source.recordLength);
        const uint8_t* tail = store.originBytes() + source.tailStart;
        files.back().insert(files.back().end(), tail, tail + source.tailLength);
        firsts.push_back(first);
        first += source.pointCount;
    }
    std::vector<bool> seen(store.origin.pointCount);
    for (uint64_t place = 0; place < store.origin.pointCount; ++place) {
        const uint64_t ordinal = store.ordinal(place);
        if (ordinal >= seen.size() || seen[ordinal])
            throw std::runtime_error("a point is not in the store once");
        seen[ordinal] = true;
        size_t i = firsts.size() - 1;
        while (firsts[i] > ordinal)
            --i;
        const OriginSource& source = store.origin.sources[i];
        const FlagsSource& kept = store.flags.sources[i];
        const uint64_t index = ordinal - firsts[i];
        restoreRecord(source,
                      &store.bytes[size_t(store.head.header.pointDataStart) + place * LasLayout::kPointSize],
                      store.flagsOf(ordinal), store.flagBytes() + kept.restStart + index * kept.restLength,
                      &files[i][source.head.size() + index * source.recordLength]);
    }
    return files;
}
