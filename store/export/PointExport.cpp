#include "store/export/PointExport.h"

#include "store/las/LasLayout.h"

#include <algorithm>
#include <numeric>

namespace VelBrx {

namespace {

constexpr size_t kMostOpenFiles = 64;
constexpr uint64_t kBlockPoints = 1 << 16;
constexpr uint64_t kBlockBytes = 4 << 20;

bool isHidden(const uint8_t* record)
{
    return record[LasLayout::kFlags] & LasLayout::kHiddenBits;
}

} // namespace

Status PointExport::write(SourceOrder& order)
{
    for (size_t window = 0; window < order.windowCount(); ++window) {
        if (Status status = order.load(window, _run); !status) return status.of(_plan.store().path);
        if (Status status = writeWindow(order, window); !status) return status;
    }
    return {};
}

/// Writes the window's points, a few files at a time; files whose last point comes are finished.
Status PointExport::writeWindow(const SourceOrder& order, size_t window)
{
    uint64_t first = order.windowFirst(window);
    const uint64_t end = order.windowFirst(window + 1);
    const bool isLast = window + 1 == order.windowCount();
    while (_nextOutput < _files.count() && (first < end || isLast)) {
        const size_t last = std::min(_nextOutput + kMostOpenFiles, _files.count());
        const uint64_t groupEnd = std::min(end, _files.endOfOutput(last - 1));
        if (Status status = writeRange(order, first, groupEnd); !status) return status;
        for (; _nextOutput < last && _files.endOfOutput(_nextOutput) <= groupEnd; ++_nextOutput)
            if (Status status = finish(_files.output(_nextOutput)); !status) return status;
        first = groupEnd;
    }
    return {};
}

Status PointExport::finish(ExportOutput& output)
{
    if (Status status = output.open(_plan.options().overwrite); !status) return status;
    return output.finish(_plan.store().file, _run);
}

Status PointExport::writeRange(const SourceOrder& order, uint64_t first, uint64_t end)
{
    std::vector<Block> blocks = blocksOf(first, end);
    for (const Block& block : blocks)
        if (Status status = _files.output(block.output).open(_plan.options().overwrite); !status)
            return status;
    if (Status status = placeBlocks(order, blocks); !status) return status;
    return _run.forEach(blocks.size(), [&](size_t i) -> Status {
        Status status = writeBlock(order, blocks[i]);
        if (status) _run.done(blocks[i].count);
        return status;
    });
}

std::vector<PointExport::Block> PointExport::blocksOf(uint64_t first, uint64_t end) const
{
    std::vector<Block> blocks;
    for (size_t source = _files.sourceOf(first); first < end; ++source) {
        const uint64_t pointSize = _plan.store().sources()[source].recordLength +
                                   _plan.store().records.flags.sources[source].restLength +
                                   LasLayout::kPointSize;
        const uint64_t most = std::clamp<uint64_t>(kBlockBytes / pointSize, 1, kBlockPoints);
        const uint64_t sourceEnd = std::min(end, _files.endOfSource(source));
        for (; first < sourceEnd; first += std::min(most, sourceEnd - first))
            blocks.push_back({_plan.outputOf(source), source, first, std::min(most, sourceEnd - first)});
    }
    return blocks;
}

/// Gives each block its place in its output.
Status PointExport::placeBlocks(const SourceOrder& order, std::vector<Block>& blocks)
{
    std::vector<uint64_t> counts(blocks.size());
    Status status = _run.forEach(blocks.size(), [&](size_t i) -> Status {
        counts[i] = blocks[i].count;
        if (const uint8_t* const taken = order.taken(blocks[i].first))
            counts[i] = std::accumulate(taken, taken + blocks[i].count, uint64_t{0});
        return {};
    });
    for (size_t i = 0; i < blocks.size(); ++i) {
        if (blocks[i].output != _placedOutput) _placed = 0;
        _placedOutput = blocks[i].output;
        blocks[i].place = _placed;
        blocks[i].taken = counts[i];
        _placed += counts[i];
    }
    return status;
}

Status PointExport::writeBlock(const SourceOrder& order, const Block& block) const
{
    const ExportedStore& store = _plan.store();
    if (block.taken == 0) return {};
    Kept kept;
    if (!readKept(block, kept)) return store.failure("its source flags cannot be read");
    const uint64_t changed = applyEdits(order, block, kept);
    const RecordEncoder& encoder = _files.encoder(block.source);
    std::vector<uint8_t> bytes;
    if (!encoder.encode({block.count, order.record(block.first), kept.flags.data(), kept.rests.data(),
                         order.taken(block.first)},
                        bytes))
        return store.failure("has points off the coordinates of " + store.sources()[block.source].name +
                             "; restore the store from a copy or build it anew");
    return _files.output(block.output).write(block.place, bytes, encoder.format(), changed);
}

/// Puts the withheld bit of each point into its flags; returns how many points that are written were edited.
uint64_t PointExport::applyEdits(const SourceOrder& order, const Block& block, Kept& kept) const
{
    const uint8_t* const taken = order.taken(block.first);
    uint64_t changed = 0;
    for (uint64_t i = 0; i < block.count; ++i) {
        if (taken && !taken[i]) continue;
        const uint8_t* const record = order.record(block.first + i);
        const bool hidden = isHidden(record);
        const auto now = static_cast<uint8_t>((kept.flags[i] & ~kWithheld) | (hidden ? kWithheld : 0));
        const bool isChanged = now != kept.flags[i] || record[LasLayout::kClass] != kept.classes[i];
        changed += isChanged;
        kept.flags[i] = now;
    }
    return changed;
}

bool PointExport::readKept(const Block& block, Kept& kept) const
{
    const ExportedStore& store = _plan.store();
    const FlagsRecord& record = store.records.flags;
    const FlagsSource& source = record.sources[block.source];
    const auto read = [&](uint64_t position, std::vector<uint8_t>& bytes) {
        return store.file.read(store.head.flags.start + static_cast<int64_t>(position), bytes.data(),
                               bytes.size());
    };
    std::vector<uint8_t> packed((block.first + block.count + 1) / 2 - block.first / 2);
    kept.classes.resize(block.count);
    kept.rests.resize(block.count * source.restLength);
    const uint64_t index =
        block.first - (_files.endOfSource(block.source) - store.sources()[block.source].pointCount);
    if (!read(record.flagsStart + block.first / 2, packed) ||
        !read(record.classesStart + block.first, kept.classes) ||
        !read(source.restStart + index * source.restLength, kept.rests))
        return false;
    kept.flags.resize(block.count);
    for (uint64_t i = 0; i < block.count; ++i) {
        const uint64_t ordinal = block.first + i;
        kept.flags[i] = packed[ordinal / 2 - block.first / 2] >> (ordinal % 2 ? 4 : 0) & 0x0F;
    }
    return true;
}

} // namespace VelBrx
