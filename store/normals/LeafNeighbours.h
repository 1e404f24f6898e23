#pragma once

#include "store/normals/NeighbourTree.h"

#include <array>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// Finds the nearest points of all points of a tree's leaf in one copy of what is around it, as neighbours of
/// close points are largely the same. Used by one thread; too large for its stack.
class LeafNeighbours
{
public:
    LeafNeighbours(const NeighbourTree& tree, size_t neighbours) : _tree(tree), _wanted(neighbours) {}

    /// Goes to a leaf. How far around it points are copied follows from the leaf before: leaves should come
    /// in order.
    void begin(const NeighbourTree::Node& leaf);

    /// Makes `nearest` the points nearest to `place`, which lies in the leaf, in order of distance, then of
    /// their place in the store. Returns the squared distance of the last, or infinity where what is around
    /// the leaf does not tell: then `nearest` is undefined, and `note` is to be called with what others find.
    double find(const Position& place, std::vector<const Position*>& nearest);

    /// Notes the squared distance of a point's last neighbour.
    void note(double reach);

private:
    static constexpr size_t kMostAround = 2048; ///< with more none is copied

    struct Near
    {
        double squaredDistance;
        uint32_t point; ///< of the tree
    };

    size_t pick(double bound);
    void rank(size_t count);
    void sort(size_t count);

    const NeighbourTree& _tree;
    const size_t _wanted;
    double _reach = 0;  ///< squared, the largest of the leaf
    double _bound = 1;  ///< squared, within which the next point's neighbours are likely to be
    SpaceBox _around{}; ///< what is copied
    size_t _count = 0;  ///< of points in it
    std::array<double, kMostAround> _x, _y, _z;
    std::array<uint32_t, kMostAround> _points;  ///< of the tree
    std::array<double, kMostAround> _distances; ///< squared, from the place
    std::array<uint32_t, kMostAround> _picked;  ///< places in the arrays above
    std::array<Near, kMostAround> _near;        ///< what was picked, nearest first
};

} // namespace VelBrx
