#pragma once

#include <array>
#include <bitset>
#include <limits>
#include <vector>

namespace VelBrx {

/// A polygon on the map: rings of x and y, each closed implicitly. A place is inside where an odd number of
/// rings is around it, so that rings within the first are holes. A place on an edge belongs to the side with
/// larger x, or with larger y where the edge runs along x: of two polygons that share an edge exactly one has
/// it.
using MapPolygon = std::vector<std::vector<std::array<double, 2>>>;

/// Some points of a store: those that all of this takes. All points at first. Coordinates are
/// those of the store.
struct StorePart
{
    bool visibleOnly = false;                                            ///< leave hidden points out
    std::array<double, 3> low = {-kUnbounded, -kUnbounded, -kUnbounded}; ///< corners of a box, its faces
    std::array<double, 3> high = {kUnbounded, kUnbounded, kUnbounded};   ///< included
    std::vector<MapPolygon> polygons;                                    ///< not empty: points in any of them
    std::bitset<256> classes = std::bitset<256>().set();
    /// Above 0: of each cube of this edge length, on a grid through the origin of the coordinates, one
    /// point: that nearest to its centre.
    double spacing = 0;

    static constexpr double kUnbounded = std::numeric_limits<double>::infinity();
};

} // namespace VelBrx
