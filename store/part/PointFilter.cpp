#include "store/part/PointFilter.h"

#include "store/io/ByteIo.h"
#include "store/part/CellBox.h"

#include <algorithm>
#include <cmath>

namespace VelBrx {

using namespace LasLayout;

Status PointFilter::check(const StorePart& part)
{
    for (size_t axis = 0; axis < 3; ++axis)
        if (!(part.low[axis] <= part.high[axis]))
            return Status::failure("the bounds to export are not in order: the lowest values come first");
    for (const MapPolygon& polygon : part.polygons)
        for (const auto& ring : polygon) {
            if (ring.size() < 3)
                return Status::failure("a polygon to export has a ring of fewer than three vertices");
            for (const auto& vertex : ring)
                if (!std::isfinite(vertex[0]) || !std::isfinite(vertex[1]))
                    return Status::failure("a polygon to export has a vertex that is no number");
        }
    if (part.classes.none()) return Status::failure("there is no class to export");
    if (!(part.spacing >= 0) || std::isinf(part.spacing))
        return Status::failure("the spacing to thin to is no positive number");
    return {};
}

PointFilter::PointFilter(const StorePart& part, const StoreFile& store, const StoreIndex& index)
    : _part(part), _store(store), _areas(part.polygons.begin(), part.polygons.end())
{
    const StorePart all;
    _hasPlace = part.low != all.low || part.high != all.high || !part.polygons.empty();
    _takesAll = !_hasPlace && !part.visibleOnly && part.classes.all() && part.spacing <= 0;
    if (_hasPlace) findRanges(index);
}

void PointFilter::findRanges(const StoreIndex& index)
{
    for (const IndexCell& cell : index.cells) {
        if (!meets(index, cell)) continue;
        for (const Segment& segment : cell.segments)
            _ranges.emplace_back(segment.first, segment.first + segment.count);
    }
    std::sort(_ranges.begin(), _ranges.end());
}

bool PointFilter::meets(const StoreIndex& index, const IndexCell& cell) const
{
    const CellBox box(index, _store.head.header, cell);
    for (size_t axis = 0; axis < 3; ++axis)
        if (box.low[axis] > _part.high[axis] || box.high[axis] < _part.low[axis]) return false;
    return _areas.empty() || std::any_of(_areas.begin(), _areas.end(), [&](const MapArea& area) {
               return area.mayMeet(box.low, box.high);
           });
}

Status PointFilter::choose(const StoreIndex& index, uint64_t memory, ParallelRun& run)
{
    if (_part.spacing <= 0) return {};
    return _thinning.choose(
        _store, index, _part.spacing, [this](const uint8_t* record) { return isWanted(record); }, memory,
        run);
}

bool PointFilter::isInPlace(const uint8_t* record) const
{
    const BrxHeader& header = _store.head.header;
    std::array<double, 3> place;
    for (size_t axis = 0; axis < 3; ++axis) {
        place[axis] = loadLe<int32_t>(record + kX + 4 * axis) * header.scale[axis] + header.offset[axis];
        if (place[axis] < _part.low[axis] || place[axis] > _part.high[axis]) return false;
    }
    return _areas.empty() || std::any_of(_areas.begin(), _areas.end(), [&](const MapArea& area) {
               return area.contains(place[0], place[1]);
           });
}

bool PointFilter::mayTakeAnyOf(uint64_t first, uint64_t count) const
{
    if (!_hasPlace) return true;
    // Segments of a store are disjoint, so that their ends are in order, too.
    const auto next = std::upper_bound(
        _ranges.begin(), _ranges.end(), first,
        [](uint64_t place, const std::pair<uint64_t, uint64_t>& range) { return place < range.second; });
    return next != _ranges.end() && next->first < first + count;
}

} // namespace VelBrx
