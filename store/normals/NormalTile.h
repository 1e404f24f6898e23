#pragma once

#include <VelBrx/Status.h>

#include "store/normals/CellSpace.h"
#include "store/normals/NeighbourTree.h"

#include <array>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

namespace VelBrx {

/// A point's normal.
struct PointNormal
{
    uint64_t index; ///< of the point, in the order of the store
    std::array<float, 3> normal;
};

/// Computes the normals of the points in one cube. Used by one thread.
///
/// The points of the cube and of a margin around it are loaded, from cells of all levels. A point whose
/// neighbours lie farther than the faces of what is loaded asks the cells of the whole store: there are few
/// of those.
class NormalTile
{
public:
    NormalTile(const CellSpace& space, const SpaceBox& box, size_t neighbours);

    /// Told of points that are done; a failure ends the work.
    using Step = std::function<Status(uint64_t points)>;

    /// The normals come in the order of the store.
    Status compute(std::vector<PointNormal>& normals, const Step& step);

private:
    bool load(const SpaceBox& box);
    bool loadCells(size_t cell, const SpaceBox& box);
    double margin(size_t ownPoints) const;
    Status searchStore(size_t cell, const Position& place);
    Status searchCell(size_t cell, const Position& place);
    void forgetCells();

    const CellSpace& _space;
    const SpaceBox _box;
    NeighbourSet _found;
    std::vector<SpacePoint> _points;                  ///< loaded
    std::unordered_map<size_t, NeighbourTree> _cells; ///< read by `searchCell`, whole
    size_t _cellPoints = 0;                           ///< in _cells
};

} // namespace VelBrx
