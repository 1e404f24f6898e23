#include "store/builder/ChunkLevels.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <mutex>

namespace VelBrx {

namespace {

/// Memory of a candidate in points of a chunk: candidates, and about as many octree nodes, stay in memory.
constexpr uint64_t kCandidateWeight = 16;

/// Items that are read together: few enough for the processor's cache.
constexpr uint64_t kItemsAtOnce = 4096;

/// The level that chunks of a shared column leave to the candidates, -1 where a chunk has whole columns.
int sharedLevelOf(const Chunk& chunk)
{
    return chunk.digits > kGridDigits ? static_cast<int>(chunk.digits - kGridDigits) : -1;
}

} // namespace

/// Reads the points of a chunk, sorts them by column code and decides all levels but the shared one.
Status ChunkLevels::sortByColumn(const Chunk& chunk, SortedPoints& sorted) const
{
    const size_t itemSize = _spool.itemSize();
    const auto items = uninitialised<uint8_t>(kItemsAtOnce * itemSize);
    for (uint64_t first = 0; first < chunk.pointCount; first += kItemsAtOnce) {
        const uint64_t count = std::min(kItemsAtOnce, chunk.pointCount - first);
        if (Status status = _spool.readItems(chunk, first, count, items.get()); !status) return status;
        const auto coordinate = [&](size_t i, size_t axis) {
            return loadLe<int32_t>(&items[i * itemSize + LasLayout::kX + 4 * axis]);
        };
        _places.forColumnCodes(count, 3, coordinate, [&](size_t i, uint64_t code) {
            sorted.ordinals[first + i] = _spool.ordinal(&items[i * itemSize]);
            sorted.points[first + i] = {code, static_cast<uint32_t>(first + i), 0};
        });
    }
    sorted.sort();
    assignLevels(sorted.points.get(), chunk.pointCount, sorted.ordinals.get(),
                 std::max(chunk.digits, kGridDigits));
    return {};
}

Status ChunkLevels::findCandidates(ParallelRun& run)
{
    std::mutex mutex;
    uint64_t count = 0; // guarded by mutex, as are the candidates; no more are kept than fit
    const Status status = run.forEach(_chunks.size(), [&](size_t i) -> Status {
        const Chunk& chunk = _chunks[i];
        if (sharedLevelOf(chunk) < 0) return {};
        const PointGate::Room room(_gate, chunk.pointCount);
        SortedPoints sorted(chunk.pointCount);
        if (Status read = sortByColumn(chunk, sorted); !read) return read;
        const std::lock_guard lock(mutex);
        for (uint64_t p = 0; p < chunk.pointCount; ++p) {
            const TreePoint& point = sorted.points[p];
            if (static_cast<int>(point.level) != sharedLevelOf(chunk)) continue;
            if (++count * kCandidateWeight <= _memory.pointsAtOnce)
                _candidates.push_back({point.code, sorted.ordinals[point.index], 0});
        }
        return {};
    });
    return status ? _memory.checkFits(count, kCandidateWeight) : status;
}

Status ChunkLevels::decideShared(ParallelRun& run)
{
    if (Status status = findCandidates(run); !status || _candidates.empty()) return status;
    std::sort(_candidates.begin(), _candidates.end(),
              [](const Candidate& a, const Candidate& b) { return a.ordinal < b.ordinal; });
    SortedPoints sorted(_candidates.size());
    for (size_t i = 0; i < _candidates.size(); ++i) {
        sorted.ordinals[i] = _candidates[i].ordinal;
        sorted.points[i] = {_candidates[i].code, static_cast<uint32_t>(i), 0};
    }
    sorted.sort();
    // A point that a grid wants is wanted by all finer grids too among fewer points, so that these change
    // nothing here.
    assignLevels(sorted.points.get(), _candidates.size(), sorted.ordinals.get());
    for (size_t i = 0; i < _candidates.size(); ++i)
        _candidates[sorted.points[i].index].level = sorted.points[i].level;
    return {};
}

uint32_t ChunkLevels::sharedLevel(uint64_t ordinal) const
{
    return std::lower_bound(_candidates.begin(), _candidates.end(), ordinal,
                            [](const Candidate& a, uint64_t value) { return a.ordinal < value; })
        ->level;
}

Status ChunkLevels::sort(const Chunk& chunk, SortedPoints& sorted) const
{
    if (Status status = sortByColumn(chunk, sorted); !status) return status;
    const int shared = sharedLevelOf(chunk);
    if (shared >= 0)
        for (TreePoint* point = sorted.points.get(); point < sorted.points.get() + chunk.pointCount; ++point)
            if (static_cast<int>(point->level) == shared)
                point->level = sharedLevel(sorted.ordinals[point->index]);
    makeMortonCodes(sorted.points.get(), chunk.pointCount);
    sorted.sort();
    return {};
}

} // namespace VelBrx
