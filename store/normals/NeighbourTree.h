#pragma once

#include "store/normals/CellSpace.h"
#include "store/normals/NeighbourSet.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// Points of a cloud in a binary tree of boxes. Immutable; any thread may use it.
class NeighbourTree
{
public:
    /// A box and its points; those of a leaf are in no other leaf. Nodes stand before those below them.
    struct Node
    {
        Position min;
        Position max;
        uint32_t first; ///< of its points, to before `last`
        uint32_t last;
        uint32_t next; ///< the node behind all that are below it
        bool isLeaf;

        bool touches(const SpaceBox& box) const
        {
            int isInside = 1; // all six without a branch, as none of them is likely
            for (size_t axis = 0; axis < 3; ++axis)
                isInside &= int(min[axis] <= box.max[axis]) & int(max[axis] >= box.min[axis]);
            return isInside != 0;
        }

        double squaredDistance(const Position& p) const { return SpaceBox{min, max}.squaredDistance(p); }
    };

    /// Takes the points and orders them so that those of a leaf stand together.
    explicit NeighbourTree(std::vector<SpacePoint> points);

    const std::vector<SpacePoint>& points() const { return _points; }
    const std::vector<Node>& nodes() const { return _nodes; }

    /// Offers `found` the points that are near enough.
    void search(const Position& place, NeighbourSet& found) const
    {
        if (!_nodes.empty()) search(0, place, found);
    }

    /// Calls `use` with each leaf that touches `box`, until it returns false.
    template <typename Use>
    void forLeaves(const SpaceBox& box, const Use& use) const
    {
        for (uint32_t node = 0; node < _nodes.size();) {
            if (!_nodes[node].touches(box)) {
                node = _nodes[node].next;
                continue;
            }
            if (_nodes[node].isLeaf && !use(_nodes[node])) return;
            ++node;
        }
    }

private:
    /// A point on its way to its place.
    struct Entry
    {
        uint64_t code;
        uint32_t point;
    };

    void addNode(Entry* entries, Entry* scratch, uint32_t first, uint32_t last);
    void order(Entry* entries, Entry* scratch, size_t count) const;
    static void sort(Entry* entries, Entry* scratch, size_t count);
    void bound(Node& node) const;
    void search(uint32_t node, const Position& place, NeighbourSet& found) const;

    std::vector<SpacePoint> _points;
    std::vector<Node> _nodes;
};

} // namespace VelBrx
