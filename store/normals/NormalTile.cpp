#include "store/normals/NormalTile.h"

#include <nanoflann.hpp>

#include <algorithm>
#include <cmath>

namespace VelBrx {

namespace {

constexpr size_t kLeafPoints = 12;
constexpr size_t kStepPoints = 4096;
/// Radius that holds a point's neighbours on an even surface, times this, is loaded around a tile.
constexpr double kMarginFactor = 3;
constexpr size_t kMostCellPoints = 1 << 20; ///< that are kept for later searches
constexpr double kInfinity = std::numeric_limits<double>::infinity();

const SpaceBox kEverywhere{{-kInfinity, -kInfinity, -kInfinity}, {kInfinity, kInfinity, kInfinity}};

Status cannotRead()
{
    return Status::failure("its points cannot be read; the disk fails or the file is being cut");
}

double squaredDistance(const Position& a, const Position& b)
{
    double sum = 0;
    for (size_t axis = 0; axis < 3; ++axis)
        sum += (a[axis] - b[axis]) * (a[axis] - b[axis]);
    return sum;
}

/// Points as nanoflann wants them.
struct Cloud
{
    const std::vector<SpacePoint>& points;

    size_t kdtree_get_point_count() const { return points.size(); }
    double kdtree_get_pt(size_t index, size_t axis) const { return points[index].position[axis]; }
    template <class Bounds>
    bool kdtree_get_bbox(Bounds&) const
    {
        return false;
    }
};

/// Takes what nanoflann finds. It offers points nearer than `worstDist` only; a little more than the reach
/// lets points at equal distance through.
struct FoundPoints
{
    NeighbourSet& found;
    const std::vector<SpacePoint>& points;

    size_t size() const { return found.size(); }
    bool full() const { return found.isFull(); }
    double worstDist() const { return found.reach() * (1 + std::numeric_limits<double>::epsilon()); }
    bool addPoint(double squaredDistance, uint32_t index)
    {
        found.offer(squaredDistance, points[index]);
        return true;
    }
};

} // namespace

class NormalTile::Tree
{
public:
    explicit Tree(const std::vector<SpacePoint>& points)
        : _cloud{points}, _index(3, _cloud, nanoflann::KDTreeSingleIndexAdaptorParams(kLeafPoints))
    {
        _index.buildIndex();
    }

    void search(const Position& place, NeighbourSet& found) const
    {
        FoundPoints result{found, _cloud.points};
        _index.findNeighbors(result, place.data(), nanoflann::SearchParams());
    }

private:
    const Cloud _cloud;
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, Cloud>, Cloud, 3, uint32_t>
        _index;
};

NormalTile::NormalTile(const CellSpace& space, const SpaceBox& box, size_t neighbours)
    : _space(space), _box(box), _found(neighbours)
{
}

Status NormalTile::compute(std::vector<PointNormal>& normals, const Step& step)
{
    normals.clear();
    if (!load(_box)) return cannotRead();
    if (_points.empty()) return {};
    const SpaceBox loaded = _box.grown(margin(_points.size()));
    if (!load(loaded)) return cannotRead();

    const Tree tree(_points);
    std::vector<const Position*> positions;
    uint64_t told = 0;
    for (const SpacePoint& point : _points) {
        if (!_box.contains(point.position)) continue;
        _found.clear();
        tree.search(point.position, _found);
        const double depth = loaded.depth(point.position);
        if (!(_found.reach() < depth * depth)) {
            _found.clear();
            forgetCells();
            if (Status status = searchStore(0, point.position); !status) return status;
        }
        _found.positions(positions);
        normals.push_back({point.index, planeNormal(positions.data(), positions.size())});
        if (normals.size() - told == kStepPoints) {
            if (Status status = step(normals.size() - told); !status) return status;
            told = normals.size();
        }
    }
    std::sort(normals.begin(), normals.end(),
              [](const PointNormal& a, const PointNormal& b) { return a.index < b.index; });
    return step(normals.size() - told);
}

bool NormalTile::load(const SpaceBox& box)
{
    _points.clear();
    return loadCells(0, box);
}

bool NormalTile::loadCells(size_t cell, const SpaceBox& box)
{
    if (!_space.reach(cell).touches(box)) return true;
    if (!_space.readCell(cell, box, _points)) return false;
    for (auto [child, end] = _space.children(cell); child < end; ++child)
        if (!loadCells(child, box)) return false;
    return true;
}

/// Points of a scan lie on surfaces: their spacing follows from their number on the tile's largest side.
double NormalTile::margin(size_t ownPoints) const
{
    Position min = _points.front().position;
    Position max = min;
    for (const SpacePoint& point : _points)
        for (size_t axis = 0; axis < 3; ++axis) {
            min[axis] = std::min(min[axis], point.position[axis]);
            max[axis] = std::max(max[axis], point.position[axis]);
        }
    Position extent = {max[0] - min[0], max[1] - min[1], max[2] - min[2]};
    std::sort(extent.begin(), extent.end());
    const double area = std::max(extent[1], 1.0) * std::max(extent[2], 1.0);
    constexpr double kPi = 3.14159265358979323846;
    return kMarginFactor *
           std::sqrt(area / static_cast<double>(ownPoints) * static_cast<double>(_found.capacity()) / kPi);
}

/// Offers the points of a cell and of those below it, as far as they are near enough.
Status NormalTile::searchStore(size_t cell, const Position& place)
{
    if (_space.reach(cell).squaredDistance(place) > _found.reach()) return {};
    if (Status status = searchCell(cell, place); !status) return status;
    const auto [first, end] = _space.children(cell);
    std::array<std::pair<double, size_t>, 8> children; // nearest first: the others may then be out of reach
    const size_t count = end - first;
    for (size_t i = 0; i < count; ++i)
        children[i] = {_space.reach(first + i).squaredDistance(place), first + i};
    std::sort(children.begin(), children.begin() + static_cast<std::ptrdiff_t>(count));
    for (size_t i = 0; i < count; ++i)
        if (Status status = searchStore(children[i].second, place); !status) return status;
    return {};
}

void NormalTile::forgetCells()
{
    if (_cellPoints <= kMostCellPoints) return;
    _cells.clear();
    _cellPoints = 0;
}

Status NormalTile::searchCell(size_t cell, const Position& place)
{
    auto known = _cells.find(cell);
    if (known == _cells.end()) {
        std::vector<SpacePoint> points;
        if (!_space.readCell(cell, kEverywhere, points)) return cannotRead();
        known = _cells.emplace(cell, std::move(points)).first;
        _cellPoints += known->second.size();
    }
    for (const SpacePoint& point : known->second)
        if (const double distance = squaredDistance(point.position, place); distance <= _found.reach())
            _found.offer(distance, point);
    return {};
}

} // namespace VelBrx
