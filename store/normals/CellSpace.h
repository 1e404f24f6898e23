#pragma once

#include <VelBrx/BrxHeader.h>

#include "store/StoreIndex.h"
#include "store/io/FileReader.h"
#include <VelBrx/PlaneFit.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace VelBrx {

/// A point as neighbours are sought: its place in the store and in space.
struct SpacePoint
{
    Position position;
    uint64_t index; ///< in the order of the store
};

inline double squaredDistance(const Position& a, const Position& b)
{
    double sum = 0;
    for (size_t axis = 0; axis < 3; ++axis)
        sum += (a[axis] - b[axis]) * (a[axis] - b[axis]);
    return sum;
}

/// A box, open at its upper faces.
struct SpaceBox
{
    Position min;
    Position max;

    bool contains(const Position& p) const
    {
        for (size_t axis = 0; axis < 3; ++axis)
            if (!(p[axis] >= min[axis] && p[axis] < max[axis])) return false;
        return true;
    }

    bool touches(const SpaceBox& other) const
    {
        for (size_t axis = 0; axis < 3; ++axis)
            if (!(min[axis] <= other.max[axis] && max[axis] >= other.min[axis])) return false;
        return true;
    }

    double squaredDistance(const Position& p) const
    {
        double sum = 0;
        for (size_t axis = 0; axis < 3; ++axis) {
            const double outside = p[axis] < min[axis]   ? min[axis] - p[axis]
                                   : p[axis] > max[axis] ? p[axis] - max[axis]
                                                         : 0;
            sum += outside * outside;
        }
        return sum;
    }

    /// Distance of a position inside from the nearest face.
    double depth(const Position& p) const
    {
        double depth = std::numeric_limits<double>::infinity();
        for (size_t axis = 0; axis < 3; ++axis)
            depth = std::min({depth, p[axis] - min[axis], max[axis] - p[axis]});
        return depth;
    }

    SpaceBox grown(double margin) const
    {
        SpaceBox box = *this;
        for (size_t axis = 0; axis < 3; ++axis) {
            box.min[axis] -= margin;
            box.max[axis] += margin;
        }
        return box;
    }
};

/// The cells of a store in space. Unit of length is the finest of the three scales, and the origin is the
/// origin of the records' integers, so that coordinates and their distances are whole numbers, exact in a
/// double, where the scales are equal. Immutable; any thread may use it.
class CellSpace
{
public:
    CellSpace(const FileReader& file, const BrxHeader& header, const StoreIndex& index);

    const StoreIndex& index() const { return _index; }

    /// Children of a cell: those from the first to before the second.
    std::pair<size_t, size_t> children(size_t cell) const
    {
        return {_firstChildren[cell], _firstChildren[cell] + _childCounts[cell]};
    }

    /// Points of a cell and of all cells below it.
    uint64_t subtreePoints(size_t cell) const { return _subtreePoints[cell]; }

    /// The cube with grid coordinates `grid` in a level. Faces that are the root's lie at infinity.
    SpaceBox cube(unsigned level, const std::array<uint32_t, 3>& grid) const;

    /// Bounds of the points that a cell may have, which lie up to a step outside its cube.
    SpaceBox reach(size_t cell) const;

    /// Appends the points of a cell that lie in `box`. False where they cannot be read.
    bool readCell(size_t cell, const SpaceBox& box, std::vector<SpacePoint>& points) const;

private:
    const FileReader& _file;
    const BrxHeader& _header;
    const StoreIndex& _index;
    double _unit;      ///< file units
    Position _steps;   ///< of the records' integers along the axes, in units
    Position _cubeMin; ///< of the root
    double _cubeSize;  ///< of the root
    std::vector<size_t> _firstChildren;
    std::vector<uint8_t> _childCounts;
    std::vector<uint64_t> _subtreePoints;
};

} // namespace VelBrx
