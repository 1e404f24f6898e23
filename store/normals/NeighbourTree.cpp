#include "store/normals/NeighbourTree.h"

#include "store/MortonBits.h"

#include <algorithm>
#include <array>
#include <utility>

namespace VelBrx {

namespace {

constexpr uint32_t kLeafPoints = 32;
constexpr unsigned kAxisBits = 13;  ///< of a code, along each axis
constexpr unsigned kDigitBits = 10; ///< that a pass of the sort goes by
constexpr unsigned kPasses = (3 * kAxisBits + kDigitBits - 1) / kDigitBits;
constexpr size_t kFewEntries = 256;

} // namespace

NeighbourTree::NeighbourTree(std::vector<SpacePoint> points) : _points(std::move(points))
{
    const auto count = static_cast<uint32_t>(_points.size());
    std::vector<Entry> entries(count);
    std::vector<Entry> scratch(count);
    for (uint32_t i = 0; i < count; ++i)
        entries[i] = {0, i};
    _nodes.reserve(count / 4);
    if (count > 0) addNode(entries.data(), scratch.data(), 0, count);

    std::vector<SpacePoint> ordered(count);
    for (uint32_t i = 0; i < count; ++i)
        ordered[i] = _points[entries[i].point];
    _points = std::move(ordered);
    for (size_t i = _nodes.size(); i-- > 0;)
        bound(_nodes[i]);
}

/// Adds the node of [first, last) and those below it. Entries of one code have not been told apart yet.
void NeighbourTree::addNode(Entry* entries, Entry* scratch, uint32_t first, uint32_t last)
{
    const size_t node = _nodes.size();
    _nodes.push_back({{}, {}, first, last, 0, true});
    if (last - first > kLeafPoints) {
        if (entries[first].code == entries[last - 1].code) order(entries + first, scratch, last - first);
        const uint64_t different = entries[first].code ^ entries[last - 1].code;
        if (different != 0) { // else all are in one place
            const uint64_t half = uint64_t{1} << (63 - __builtin_clzll(different));
            const Entry* const middle =
                std::partition_point(entries + first, entries + last,
                                     [half](const Entry& entry) { return (entry.code & half) == 0; });
            const auto split = static_cast<uint32_t>(middle - entries);
            _nodes[node].isLeaf = false;
            addNode(entries, scratch, first, split);
            addNode(entries, scratch, split, last);
        }
    }
    _nodes[node].next = static_cast<uint32_t>(_nodes.size());
}

/// Gives entries the Morton codes of their points in the cube around all of these, and sorts by them.
void NeighbourTree::order(Entry* entries, Entry* scratch, size_t count) const
{
    Position min = _points[entries[0].point].position;
    Position max = min;
    for (size_t i = 1; i < count; ++i)
        for (size_t axis = 0; axis < 3; ++axis) {
            min[axis] = std::min(min[axis], _points[entries[i].point].position[axis]);
            max[axis] = std::max(max[axis], _points[entries[i].point].position[axis]);
        }
    const double edge = std::max({max[0] - min[0], max[1] - min[1], max[2] - min[2]});
    if (!(edge > 0)) return;
    constexpr uint64_t kLast = (1 << kAxisBits) - 1;
    for (size_t i = 0; i < count; ++i) {
        const Position& place = _points[entries[i].point].position;
        entries[i].code = 0;
        for (size_t axis = 0; axis < 3; ++axis)
            entries[i].code |= spreadBits(static_cast<uint64_t>((place[axis] - min[axis]) / edge * kLast))
                               << axis;
    }
    sort(entries, scratch, count);
}

void NeighbourTree::sort(Entry* entries, Entry* scratch, size_t count)
{
    if (count <= kFewEntries) {
        std::sort(entries, entries + count, [](const Entry& a, const Entry& b) { return a.code < b.code; });
        return;
    }
    static_assert(kPasses % 2 == 0, "the last pass ends where the first begins");
    constexpr size_t kDigits = 1 << kDigitBits;
    for (unsigned shift = 0; shift < kPasses * kDigitBits; shift += kDigitBits) {
        std::array<uint32_t, kDigits> starts{};
        for (size_t i = 0; i < count; ++i)
            ++starts[entries[i].code >> shift & (kDigits - 1)];
        uint32_t start = 0;
        for (uint32_t& entry : starts)
            start += std::exchange(entry, start);
        for (size_t i = 0; i < count; ++i)
            scratch[starts[entries[i].code >> shift & (kDigits - 1)]++] = entries[i];
        std::swap(entries, scratch);
    }
}

/// Sets the box of a node; those of the nodes below it are set.
void NeighbourTree::bound(Node& node) const
{
    const auto take = [&node](const Position& min, const Position& max) {
        for (size_t axis = 0; axis < 3; ++axis) {
            node.min[axis] = std::min(node.min[axis], min[axis]);
            node.max[axis] = std::max(node.max[axis], max[axis]);
        }
    };
    node.min = node.max = _points[node.first].position;
    if (node.isLeaf) {
        for (uint32_t i = node.first + 1; i < node.last; ++i)
            take(_points[i].position, _points[i].position);
        return;
    }
    const Node* const left = &node + 1;
    const Node& right = _nodes[left->next];
    take(left->min, left->max);
    take(right.min, right.max);
}

void NeighbourTree::search(uint32_t number, const Position& place, NeighbourSet& found) const
{
    const Node& node = _nodes[number];
    if (node.isLeaf) {
        for (uint32_t i = node.first; i < node.last; ++i)
            if (const double distance = squaredDistance(_points[i].position, place);
                distance <= found.reach())
                found.offer(distance, _points[i]);
        return;
    }
    std::pair<double, uint32_t> near{_nodes[number + 1].squaredDistance(place), number + 1};
    const uint32_t right = _nodes[number + 1].next;
    std::pair<double, uint32_t> far{_nodes[right].squaredDistance(place), right};
    if (far < near) std::swap(near, far);
    if (near.first <= found.reach()) search(near.second, place, found);
    if (far.first <= found.reach()) search(far.second, place, found);
}

} // namespace VelBrx
