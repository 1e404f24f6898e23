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

/// Points of the store that follow on one another and are taken.
struct SourceOrder::Block
{
    std::vector<uint8_t> records;
    std::vector<uint64_t> ordinals;
    std::vector<SourceTally> tallies; ///< by source
};

SourceOrder::SourceOrder(const ExportedStore& store, const PointFilter& filter, uint64_t memory,
                         unsigned threads)
    : _store(store), _origin(store.records.origin), _filter(filter), _tallies(_origin.sources.size())
{
    const uint64_t buffers = std::min(memory / 2, threads * kThreadMemory);
    const uint64_t pointMemory = kPointSize + (filter.takesAll() ? 0 : 1);
    const uint64_t room = std::max(memory - buffers, kLeastMemory) / pointMemory;
    _windowCount = roundedUp(_origin.pointCount, std::min(room, kMostWindowPoints));
    _windowPoints = roundedUp(_origin.pointCount, _windowCount);
    uint64_t first = 0;
    for (const OriginSource& source : _origin.sources) {
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

const uint8_t* SourceOrder::taken(uint64_t ordinal) const
{
    return _taken ? &_taken[ordinal - _loadedFirst] : nullptr;
}

Status SourceOrder::distribute(const std::string& folder, ParallelRun& run)
{
    if (!_filter.takesAll()) _taken.reset(new uint8_t[_windowPoints]());
    if (_windowCount == 1)
        _records.reset(new uint8_t[_origin.pointCount * kPointSize]);
    else if (Status status = _temporary.create(folder, temporarySize()); !status)
        return status;
    _filled = std::make_unique<std::atomic<uint64_t>[]>(_windowCount);
    return run.forEach(roundedUp(_origin.pointCount, kBlockPoints), [&](size_t i) -> Status {
        const uint64_t first = i * kBlockPoints;
        const uint64_t count = std::min(kBlockPoints, _origin.pointCount - first);
        run.done(count);
        if (!_filter.mayTakeAnyOf(first, count)) return {};
        Block block;
        if (Status status = readBlock(first, count, block); !status) return status;
        addTallies(block);
        if (_windowCount > 1) return spread(block);
        place(block);
        return {};
    });
}

Status SourceOrder::readBlock(uint64_t first, uint64_t count, Block& block) const
{
    const size_t ordinalSize = _origin.ordinalSize;
    std::vector<uint8_t> packed(count * ordinalSize);
    block.records.resize(count * kPointSize);
    block.ordinals.resize(count);
    const auto recordsAt = _store.head.header.pointDataStart + static_cast<int64_t>(first * kPointSize);
    const auto ordinalsAt =
        _store.head.origin.start + static_cast<int64_t>(_origin.ordinalStart + first * ordinalSize);
    if (!_store.file.read(recordsAt, block.records.data(), block.records.size()) ||
        !_store.file.read(ordinalsAt, packed.data(), packed.size()))
        return Status::failure("its points cannot be read; the disk fails or the file is being cut");
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* const place = &packed[i * ordinalSize];
        block.ordinals[i] = ordinalSize == 4 ? loadLe<uint32_t>(place) : loadLe<uint64_t>(place);
        if (block.ordinals[i] >= _origin.pointCount)
            return Status::failure("was changed while it was read; export it again");
    }
    takeOf(first, block);
    return {};
}

/// Leaves in the block what is taken of it, and counts. `first` is its first point's place in the store.
void SourceOrder::takeOf(uint64_t first, Block& block) const
{
    block.tallies.resize(_sourceFirsts.size());
    size_t taken = 0;
    for (size_t i = 0; i < block.ordinals.size(); ++i) {
        const uint8_t* const record = &block.records[i * kPointSize];
        const auto next = std::upper_bound(_sourceFirsts.begin(), _sourceFirsts.end(), block.ordinals[i]);
        SourceTally& source = block.tallies[static_cast<size_t>(next - _sourceFirsts.begin()) - 1];
        source.leftOutAsHidden += _filter.leavesOutAsHidden(record);
        if (!_filter.takes(first + i, record)) continue;
        ++source.taken;
        source.wideClass += record[kClass] > kLastNarrowClass;
        block.ordinals[taken] = block.ordinals[i];
        if (taken < i) std::memcpy(&block.records[taken * kPointSize], record, kPointSize);
        ++taken;
    }
    block.ordinals.resize(taken);
}

void SourceOrder::place(const Block& block)
{
    for (size_t i = 0; i < block.ordinals.size(); ++i) {
        std::memcpy(&_records[block.ordinals[i] * kPointSize], &block.records[i * kPointSize], kPointSize);
        if (_taken) _taken[block.ordinals[i]] = 1;
    }
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
    std::vector<uint8_t> entries(block.ordinals.size() * kEntrySize);
    for (size_t i = 0; i < block.ordinals.size(); ++i) {
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

void SourceOrder::addTallies(const Block& block)
{
    const VelThreads::Lock lock(_mutex);
    for (size_t i = 0; i < _tallies.size(); ++i) {
        _tallies[i].taken += block.tallies[i].taken;
        _tallies[i].wideClass += block.tallies[i].wideClass;
        _tallies[i].leftOutAsHidden += block.tallies[i].leftOutAsHidden;
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
    const uint64_t room = windowFirst(window + 1) - _loadedFirst;
    const uint64_t count = _filled[window];
    if (_filter.takesAll() && count != room)
        return Status::failure("was changed while it was read; export it again");
    if (!_records) _records.reset(new uint8_t[_windowPoints * kPointSize]);
    if (_taken) std::fill_n(_taken.get(), room, uint8_t{0});
    return run.forEach(roundedUp(count, kBlockPoints), [&](size_t i) -> Status {
        const uint64_t first = i * kBlockPoints;
        std::vector<uint8_t> entries(std::min(kBlockPoints, count - first) * kEntrySize);
        if (Status status =
                _temporary.read((_loadedFirst + first) * kEntrySize, entries.data(), entries.size());
            !status)
            return status;
        for (size_t at = 0; at < entries.size(); at += kEntrySize) {
            const uint64_t place = loadLe<uint32_t>(&entries[at]);
            std::memcpy(&_records[place * kPointSize], &entries[at + 4], kPointSize);
            if (_taken) _taken[place] = 1;
        }
        run.done(entries.size() / kEntrySize);
        return {};
    });
}

} // namespace VelBrx
