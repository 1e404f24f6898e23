#include "store/export/SourceOrder.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <cstring>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint64_t kBlockPoints = 1 << 16;
constexpr uint64_t kEntrySize = 4 + kPointSize; ///< index in the window, record
constexpr uint64_t kThreadMemory = 12 << 20;    ///< more than the buffers of a thread
constexpr uint64_t kLeastMemory = 4 << 20;
constexpr uint64_t kMostWindowPoints = 0xFFFFFFFF;
constexpr uint8_t kLastNarrowClass = 31;

uint64_t roundedUp(uint64_t value, uint64_t divisor)
{
    return (value + divisor - 1) / divisor;
}

} // namespace

/// Consecutive points of the store.
struct SourceOrder::Block
{
    uint64_t count = 0;
    std::vector<uint8_t> records;
    std::vector<uint64_t> ordinals;
};

SourceOrder::SourceOrder(const FileReader& store, const StoreHead& head, const OriginRecord& origin,
                         uint64_t memory, unsigned threads)
    : _store(store), _head(head), _origin(origin), _tallies(origin.sources.size())
{
    const uint64_t buffers = std::min(memory / 2, threads * kThreadMemory);
    const uint64_t room = std::max(memory - buffers, kLeastMemory) / kPointSize;
    _windowCount = roundedUp(origin.pointCount, std::min(room, kMostWindowPoints));
    _windowPoints = roundedUp(origin.pointCount, _windowCount);
    uint64_t first = 0;
    for (const OriginSource& source : origin.sources) {
        _sourceFirsts.push_back(first);
        first += source.pointCount;
    }
}

uint64_t SourceOrder::windowFirst(size_t window) const
{
    return std::min(window * _windowPoints, _origin.pointCount);
}

uint64_t SourceOrder::temporarySize() const
{
    return _windowCount == 1 ? 0 : _origin.pointCount * kEntrySize;
}

const uint8_t* SourceOrder::record(uint64_t ordinal) const
{
    return &_records[(ordinal - _loadedFirst) * kPointSize];
}

Status SourceOrder::distribute(const std::string& folder, ParallelRun& run)
{
    if (_windowCount == 1)
        _records.reset(new uint8_t[_origin.pointCount * kPointSize]);
    else if (Status status = _temporary.create(folder, temporarySize()); !status)
        return status;
    _filled = std::make_unique<std::atomic<uint64_t>[]>(_windowCount);
    return run.forEach(roundedUp(_origin.pointCount, kBlockPoints), [&](size_t i) -> Status {
        Block block;
        if (Status status = readBlock(i * kBlockPoints, block); !status) return status;
        tally(block);
        if (_windowCount == 1)
            place(block);
        else if (Status status = spread(block); !status)
            return status;
        run.done(block.count);
        return {};
    });
}

Status SourceOrder::readBlock(uint64_t first, Block& block) const
{
    block.count = std::min(kBlockPoints, _origin.pointCount - first);
    const size_t ordinalSize = _origin.ordinalSize;
    std::vector<uint8_t> packed(block.count * ordinalSize);
    block.records.resize(block.count * kPointSize);
    block.ordinals.resize(block.count);
    const auto recordsAt = _head.header.pointDataStart + static_cast<int64_t>(first * kPointSize);
    const auto ordinalsAt =
        _head.origin.start + static_cast<int64_t>(_origin.ordinalStart + first * ordinalSize);
    if (!_store.read(recordsAt, block.records.data(), block.records.size()) ||
        !_store.read(ordinalsAt, packed.data(), packed.size()))
        return Status::failure("its points cannot be read; the disk fails or the file is being cut");
    for (size_t i = 0; i < block.count; ++i) {
        const uint8_t* const place = &packed[i * ordinalSize];
        block.ordinals[i] = ordinalSize == 4 ? loadLe<uint32_t>(place) : loadLe<uint64_t>(place);
        if (block.ordinals[i] >= _origin.pointCount)
            return Status::failure("was changed while it was read; export it again");
    }
    return {};
}

void SourceOrder::place(const Block& block)
{
    for (size_t i = 0; i < block.count; ++i)
        std::memcpy(&_records[block.ordinals[i] * kPointSize], &block.records[i * kPointSize], kPointSize);
}

/// Appends the block's records to the windows' parts of the temporary file, one write a window.
Status SourceOrder::spread(const Block& block)
{
    std::vector<uint64_t> starts(_windowCount + 1);
    for (uint64_t ordinal : block.ordinals)
        ++starts[ordinal / _windowPoints + 1];
    for (size_t window = 0; window < _windowCount; ++window)
        starts[window + 1] += starts[window];
    std::vector<uint64_t> next = starts;
    std::vector<uint8_t> entries(block.count * kEntrySize);
    for (size_t i = 0; i < block.count; ++i) {
        const uint64_t window = block.ordinals[i] / _windowPoints;
        uint8_t* const entry = &entries[next[window]++ * kEntrySize];
        storeLe(entry, static_cast<uint32_t>(block.ordinals[i] - window * _windowPoints));
        std::memcpy(entry + 4, &block.records[i * kPointSize], kPointSize);
    }
    for (size_t window = 0; window < _windowCount; ++window) {
        const uint64_t count = starts[window + 1] - starts[window];
        if (count == 0) continue;
        const uint64_t at = _filled[window].fetch_add(count);
        if (at + count > windowFirst(window + 1) - windowFirst(window))
            return Status::failure("was changed while it was read; export it again");
        if (Status status = _temporary.write((windowFirst(window) + at) * kEntrySize,
                                             &entries[starts[window] * kEntrySize], count * kEntrySize);
            !status)
            return status;
    }
    return {};
}

void SourceOrder::tally(const Block& block)
{
    std::vector<SourceTally> found(_sourceFirsts.size());
    for (size_t i = 0; i < block.count; ++i) {
        const uint8_t* const record = &block.records[i * kPointSize];
        const bool isHidden = record[kFlags] & kHiddenBits;
        const bool isWide = record[kClass] > kLastNarrowClass;
        if (!isHidden && !isWide) continue;
        const auto next = std::upper_bound(_sourceFirsts.begin(), _sourceFirsts.end(), block.ordinals[i]);
        SourceTally& source = found[static_cast<size_t>(next - _sourceFirsts.begin()) - 1];
        source.hidden += isHidden;
        source.wideClass += isWide;
        source.visibleWideClass += isWide && !isHidden;
    }
    const VelThreads::Lock lock(_mutex);
    for (size_t i = 0; i < found.size(); ++i) {
        _tallies[i].hidden += found[i].hidden;
        _tallies[i].wideClass += found[i].wideClass;
        _tallies[i].visibleWideClass += found[i].visibleWideClass;
    }
}

std::vector<SourceTally> SourceOrder::tallies() const
{
    const VelThreads::Lock lock(_mutex);
    return _tallies;
}

Status SourceOrder::load(size_t window, ParallelRun& run)
{
    if (_windowCount == 1) return {};
    _loadedFirst = windowFirst(window);
    const uint64_t count = windowFirst(window + 1) - _loadedFirst;
    if (_filled[window] != count) return Status::failure("was changed while it was read; export it again");
    if (!_records) _records.reset(new uint8_t[_windowPoints * kPointSize]);
    return run.forEach(roundedUp(count, kBlockPoints), [&](size_t i) -> Status {
        const uint64_t first = i * kBlockPoints;
        std::vector<uint8_t> entries(std::min(kBlockPoints, count - first) * kEntrySize);
        if (Status status =
                _temporary.read((_loadedFirst + first) * kEntrySize, entries.data(), entries.size());
            !status)
            return status;
        for (size_t at = 0; at < entries.size(); at += kEntrySize)
            std::memcpy(&_records[loadLe<uint32_t>(&entries[at]) * uint64_t{kPointSize}], &entries[at + 4],
                        kPointSize);
        run.done(entries.size() / kEntrySize);
        return {};
    });
}

} // namespace VelBrx
