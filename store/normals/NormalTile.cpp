#include "store/normals/NormalTile.h"

#include "store/normals/LeafNeighbours.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

namespace VelBrx {

namespace {

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

} // namespace

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

    const NeighbourTree tree(std::move(_points));
    const auto near = std::make_unique<LeafNeighbours>(tree, _found.capacity());
    std::vector<const Position*> positions;
    uint64_t told = 0;
    for (const NeighbourTree::Node& leaf : tree.nodes()) {
        if (!leaf.isLeaf || !leaf.touches(_box)) continue;
        near->begin(leaf);
        for (uint32_t i = leaf.first; i < leaf.last; ++i) {
            const SpacePoint& point = tree.points()[i];
            if (!_box.contains(point.position)) continue;
            double reach = near->find(point.position, positions);
            if (reach == kInfinity) {
                _found.clear();
                tree.search(point.position, _found);
                _found.positions(positions);
                reach = _found.reach();
                near->note(reach);
            }
            const double depth = loaded.depth(point.position);
            if (!(reach < depth * depth)) {
                _found.clear();
                forgetCells();
                if (Status status = searchStore(0, point.position); !status) return status;
                _found.positions(positions);
            }
            normals.push_back({point.index, planeNormal(positions.data(), positions.size())});
        }
        if (normals.size() - told >= kStepPoints) {
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
        known = _cells.emplace(cell, NeighbourTree(std::move(points))).first;
        _cellPoints += known->second.points().size();
    }
    known->second.search(place, _found);
    return {};
}

} // namespace VelBrx
