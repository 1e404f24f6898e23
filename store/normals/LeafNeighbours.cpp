#include "store/normals/LeafNeighbours.h"

#include "simd/VectorClones.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace VelBrx {

namespace {

constexpr size_t kMostRanked = 64; ///< of more the order is found by sorting
constexpr size_t kBlock = 8;
constexpr double kMarginFactor = 1.1; ///< times the largest reach in the leaf before
constexpr double kBoundFactor = 1.3;  ///< times the squared reach of the point before
constexpr double kInfinity = std::numeric_limits<double>::infinity();

using Doubles [[gnu::vector_size(kBlock * sizeof(double))]] = double;
using Integers [[gnu::vector_size(kBlock * sizeof(int64_t))]] = int64_t;

VELBRX_VECTOR_CLONES
void measure(const double* x, const double* y, const double* z, size_t count, const double* place,
             double* distances)
{
    const double px = place[0], py = place[1], pz = place[2];
    for (size_t i = 0; i < count; ++i) {
        const double dx = x[i] - px, dy = y[i] - py, dz = z[i] - pz;
        distances[i] = dx * dx + dy * dy + dz * dz;
    }
}

/// How many of `count` values are less than each. Up to the end of the last block there are values, of any
/// size.
VELBRX_VECTOR_CLONES
void countLess(const double* values, size_t count, int64_t* ranks)
{
    for (size_t start = 0; start < count; start += kBlock) {
        Doubles block;
        std::memcpy(&block, values + start, sizeof block);
        Integers less{};
        for (size_t i = 0; i < count; ++i)
            less -= values[i] < block; // true is -1
        std::memcpy(ranks + start, &less, sizeof less);
    }
}

} // namespace

void LeafNeighbours::begin(const NeighbourTree::Node& leaf)
{
    _around = SpaceBox{leaf.min, leaf.max}.grown(kMarginFactor * std::sqrt(_reach));
    _reach = 0;
    _count = 0;
    _tree.forLeaves(_around, [this](const NeighbourTree::Node& near) {
        if (_count + (near.last - near.first) > kMostAround) {
            _count = 0;
            return false;
        }
        for (uint32_t i = near.first; i < near.last; ++i) {
            const Position& place = _tree.points()[i].position;
            _x[_count] = place[0];
            _y[_count] = place[1];
            _z[_count] = place[2];
            _points[_count] = i;
            _count += _around.contains(place);
        }
        return true;
    });
}

double LeafNeighbours::find(const Position& place, std::vector<const Position*>& nearest)
{
    if (_count < _wanted) return kInfinity;
    measure(_x.data(), _y.data(), _z.data(), _count, place.data(), _distances.data());
    const double depth = _around.depth(place);
    const double safe = depth * depth; // points that are not in the copy are as far, or farther
    size_t count = pick(std::min(_bound, safe));
    for (; count < _wanted; count = pick(std::min(_bound, safe))) {
        if (!(_bound < safe)) return kInfinity;
        _bound *= 2;
    }
    if (count <= kMostRanked)
        rank(count);
    else
        sort(count);
    const double reach = _near[_wanted - 1].squaredDistance;
    if (!(reach < safe)) return kInfinity;
    nearest.resize(_wanted);
    for (size_t i = 0; i < _wanted; ++i)
        nearest[i] = &_tree.points()[_near[i].point].position;
    note(reach);
    return reach;
}

void LeafNeighbours::note(double reach)
{
    _reach = std::max(_reach, reach);
    _bound = std::max(1.0, kBoundFactor * reach);
}

/// Picks the points within a squared distance, and returns how many there are.
size_t LeafNeighbours::pick(double bound)
{
    size_t count = 0;
    for (size_t i = 0; i < _count; ++i) {
        _picked[count] = static_cast<uint32_t>(i);
        count += _distances[i] <= bound;
    }
    return count;
}

/// Puts few picked points in order.
void LeafNeighbours::rank(size_t count)
{
    std::array<double, kMostRanked> distances;
    std::array<int64_t, kMostRanked> ranks;
    distances.fill(kInfinity);
    for (size_t i = 0; i < count; ++i)
        distances[i] = _distances[_picked[i]];
    countLess(distances.data(), count, ranks.data());
    size_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        const auto place = static_cast<size_t>(ranks[i]);
        sum += place;
        _near[place] = {distances[i], _points[_picked[i]]};
    }
    if (sum != count * (count - 1) / 2) sort(count); // some are at equal distance
}

void LeafNeighbours::sort(size_t count)
{
    for (size_t i = 0; i < count; ++i)
        _near[i] = {_distances[_picked[i]], _points[_picked[i]]};
    const auto begin = _near.begin();
    std::partial_sort(begin, begin + static_cast<std::ptrdiff_t>(_wanted),
                      begin + static_cast<std::ptrdiff_t>(count), [this](const Near& a, const Near& b) {
                          return a.squaredDistance != b.squaredDistance
                                     ? a.squaredDistance < b.squaredDistance
                                     : _tree.points()[a.point].index < _tree.points()[b.point].index;
                      });
}

} // namespace VelBrx
