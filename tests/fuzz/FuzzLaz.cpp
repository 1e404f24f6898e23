// Chunks of compressed points of every format and version: bytes of an enemy end in a failure or in wrong
// points, and whatever points there are come back from their compression.

#include "store/las/RecordFormat.h"
#include "store/las/laz/LazChunkDecoder.h"
#include "store/las/laz/LazChunkEncoder.h"
#include "tests/fuzz/FuzzFile.h"

#include <algorithm>
#include <map>
#include <memory>

using namespace VelBrx;

namespace {

constexpr size_t kHead = 5;

/// What compresses the points of a format, kept from input to input as readers keep it from chunk to chunk.
struct Coders
{
    explicit Coders(const LazItems& wanted) : items(wanted), decoder(wanted), encoder(wanted) {}

    const LazItems items;
    LazChunkDecoder decoder;
    LazChunkEncoder encoder;
};

/// `older`: the items of the version before, which is read and not written.
Coders& codersOf(uint8_t format, uint16_t extraBytes, bool older)
{
    static std::map<std::tuple<uint8_t, uint16_t, bool>, std::unique_ptr<Coders>> all;
    std::unique_ptr<Coders>& coders = all[{format, extraBytes, older}];
    if (coders) return *coders;
    const auto length = static_cast<uint16_t>(coreRecordLength(format) + extraBytes);
    LazItems items = makeLazItems(format, length);
    if (older)
        for (LazItem& item : items.items)
            item.version = format < 6 ? 1 : 4;
    const std::vector<uint8_t> record = makeLazRecord(items);
    expect(reported(parseLazItems(record.data(), record.size(), length, items)), "unknown items");
    return *(coders = std::make_unique<Coders>(items));
}

void decode(Coders& coders, const uint8_t* data, size_t size, uint64_t count, RecordFields fields)
{
    const std::vector<uint8_t> chunk(data, data + size); // of which the sanitizer sees the end
    std::vector<uint8_t> records(count * coders.items.recordLength);
    if (!reported(coders.decoder.start(chunk.data(), chunk.size(), count, fields))) return;
    (void)reported(coders.decoder.read(records.data(), count));
    expect(coders.decoder.bytesRead() <= size, "more bytes read than there are");
}

void comeBack(Coders& coders, const uint8_t* data, size_t size)
{
    const uint64_t count = size / coders.items.recordLength;
    if (count == 0) return;
    const std::vector<uint8_t> records(data, data + count * coders.items.recordLength);
    std::vector<uint8_t> chunk;
    coders.encoder.encode(records.data(), count, chunk);
    std::vector<uint8_t> decoded(records.size());
    expect(reported(coders.decoder.decode(chunk.data(), chunk.size(), count, decoded.data())),
           "a chunk that was written is refused");
    expect(decoded == records, "points differ after their compression");
    expect(coders.decoder.endsExactly(), "a chunk that was written has bytes too many");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < kHead) return 0;
    const bool written = data[1] & 1;
    Coders& coders = codersOf(data[0] % 11, data[2] % 5, !written && data[1] & 2);
    if (written)
        comeBack(coders, data + kHead, size - kHead);
    else
        decode(coders, data + kHead, size - kHead, 1 + data[3] % 60, static_cast<RecordFields>(data[4] % 3));
    return 0;
}
