#include "store/part/PointThinning.h"

#include "store/io/ByteIo.h"
#include "store/part/CellBox.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint64_t kBlockPoints = 1 << 16;
constexpr size_t kColumns = 4096; ///< slabs are made of these
constexpr double kMostCubes =
    1e18; ///< from the origin of the coordinates to any point; they are counted in 64 bits

} // namespace

/// A point and the cube that it is in.
struct PointThinning::Candidate
{
    std::array<int64_t, 3> cube;
    double distance; ///< from the cube's centre, squared
    uint64_t place;  ///< in the store

    bool operator<(const Candidate& other) const
    {
        return std::tie(cube, distance, place) < std::tie(other.cube, other.distance, other.place);
    }
};

/// Columns of cubes that are thinned together.
struct PointThinning::Slab
{
    size_t firstColumn;
    size_t endColumn;
    uint64_t points;
};

class PointThinning::Chooser
{
public:
    Chooser(const StoreFile& store, const StoreIndex& index, double spacing,
            const std::function<bool(const uint8_t*)>& isWanted, ParallelRun& run,
            std::atomic<uint64_t>* kept)
        : _store(store), _index(index), _spacing(spacing), _isWanted(isWanted), _run(run), _kept(kept)
    {
        const double first = std::floor(store.head.header.min[0] / spacing);
        const double last = std::floor(store.head.header.max[0] / spacing);
        _firstCube = first;
        _columnsPerCube = kColumns / (last - first + 1);
    }

    Status count(std::vector<std::atomic<uint64_t>>& columns) const
    {
        const uint64_t all = _store.head.header.pointCount;
        return _run.forEach((all + kBlockPoints - 1) / kBlockPoints, [&](size_t i) -> Status {
            const uint64_t first = i * kBlockPoints;
            const uint64_t number = std::min(kBlockPoints, all - first);
            std::vector<uint64_t> found(kColumns);
            Status status = visit(first, number, [&](uint64_t, const uint8_t* record) {
                ++found[columnOf(coordinate(record, 0))];
            });
            for (size_t column = 0; column < kColumns; ++column)
                if (found[column] > 0) columns[column] += found[column];
            _run.done(number);
            return status;
        });
    }

    /// Marks the chosen points of a slab.
    Status choose(const Slab& slab) const
    {
        std::vector<Candidate> candidates;
        candidates.reserve(slab.points);
        for (const IndexCell& cell : _index.cells) {
            const CellBox box(_index, _store.head.header, cell);
            if (columnOf(box.high[0]) < slab.firstColumn || columnOf(box.low[0]) >= slab.endColumn) continue;
            for (const Segment& segment : cell.segments)
                if (Status status = gather(segment, slab, candidates); !status) return status;
        }
        std::sort(candidates.begin(), candidates.end());
        for (size_t i = 0; i < candidates.size(); ++i)
            if (i == 0 || candidates[i].cube != candidates[i - 1].cube)
                _kept[candidates[i].place / 64] |= uint64_t{1} << candidates[i].place % 64;
        _run.done(candidates.size());
        return {};
    }

private:
    Status gather(const Segment& segment, const Slab& slab, std::vector<Candidate>& candidates) const
    {
        const auto end = static_cast<uint64_t>(segment.first + segment.count);
        for (auto first = static_cast<uint64_t>(segment.first); first < end; first += kBlockPoints) {
            Status status =
                visit(first, std::min(kBlockPoints, end - first), [&](uint64_t place, const uint8_t* record) {
                    const size_t column = columnOf(coordinate(record, 0));
                    if (column >= slab.firstColumn && column < slab.endColumn)
                        candidates.push_back(candidateOf(place, record));
                });
            if (status) status = _run.step(0);
            if (!status) return status;
        }
        return {};
    }

    /// Calls `visitor` with each point of a range that is wanted.
    template <typename Visitor>
    Status visit(uint64_t first, uint64_t number, const Visitor& visitor) const
    {
        std::vector<uint8_t> records(number * kPointSize);
        if (!_store.file.read(_store.head.header.pointDataStart + static_cast<int64_t>(first * kPointSize),
                              records.data(), records.size()))
            return Status::failure("its points cannot be read; the disk fails or the file is being cut");
        for (uint64_t i = 0; i < number; ++i)
            if (const uint8_t* const record = &records[i * kPointSize]; _isWanted(record))
                visitor(first + i, record);
        return {};
    }

    double coordinate(const uint8_t* record, size_t axis) const
    {
        const BrxHeader& header = _store.head.header;
        return loadLe<int32_t>(record + kX + 4 * axis) * header.scale[axis] + header.offset[axis];
    }

    /// The column of the cubes at `x`; the first or last one beyond the store's bounds.
    size_t columnOf(double x) const
    {
        const double column = (std::floor(x / _spacing) - _firstCube) * _columnsPerCube;
        return static_cast<size_t>(std::clamp(column, 0.0, kColumns - 1.0));
    }

    Candidate candidateOf(uint64_t place, const uint8_t* record) const
    {
        Candidate candidate{{}, 0, place};
        for (size_t axis = 0; axis < 3; ++axis) {
            const double at = coordinate(record, axis) / _spacing;
            const double cube = std::floor(at);
            candidate.cube[axis] = static_cast<int64_t>(cube);
            candidate.distance += (at - cube - 0.5) * (at - cube - 0.5);
        }
        return candidate;
    }

    const StoreFile& _store;
    const StoreIndex& _index;
    const double _spacing;
    const std::function<bool(const uint8_t*)>& _isWanted;
    ParallelRun& _run;
    std::atomic<uint64_t>* const _kept;
    double _firstCube;      ///< along x
    double _columnsPerCube; ///< at most kColumns
};

Status PointThinning::choose(const StoreFile& store, const StoreIndex& index, double spacing,
                             const std::function<bool(const uint8_t*)>& isWanted, uint64_t memory,
                             ParallelRun& run)
{
    const BrxHeader& header = store.head.header;
    for (size_t axis = 0; axis < 3; ++axis)
        if (!((std::ldexp(header.scale[axis], 31) + std::abs(header.offset[axis])) / spacing < kMostCubes))
            return Status::failure("is too large to be thinned to such a small spacing");
    const uint64_t all = header.pointCount;
    _kept.reset(new std::atomic<uint64_t>[all / 64 + 1]());
    const Chooser chooser(store, index, spacing, isWanted, run, _kept.get());
    std::vector<std::atomic<uint64_t>> columns(kColumns);
    if (Status status = chooser.count(columns); !status) return status;

    const uint64_t room = memory / run.threads() / sizeof(Candidate);
    std::vector<Slab> slabs;
    uint64_t wanted = 0;
    for (size_t column = 0; column < kColumns; ++column) {
        const uint64_t points = columns[column];
        wanted += points;
        if (points > room)
            return Status::failure("has too many points in a row to thin them in the memory allowed; allow " +
                                   std::to_string((points * sizeof(Candidate) * run.threads() >> 20) + 1) +
                                   " MiB more");
        if (slabs.empty() || slabs.back().points + points > room) slabs.push_back({column, column, 0});
        slabs.back().endColumn = column + 1;
        slabs.back().points += points;
    }
    Status status = run.forEach(slabs.size(), [&](size_t i) { return chooser.choose(slabs[i]); });
    run.done(all - wanted);
    return status;
}

} // namespace VelBrx
