#pragma once

#include <VelBrx/StorePart.h>

#include <array>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// The inside of a `MapPolygon`, for many places. Constant once made; any thread may ask.
class MapArea
{
public:
    /// Coordinates are finite.
    explicit MapArea(const MapPolygon& polygon);

    bool contains(double x, double y) const;

    /// Whether the box between two corners, seen from above, meets the bounds of the polygon.
    bool mayMeet(const std::array<double, 3>& low, const std::array<double, 3>& high) const;

private:
    /// From its end with smaller y on.
    struct Edge
    {
        double lowX;
        double lowY;
        double highX;
        double highY;
    };

    size_t rowOf(double y) const;

    std::array<double, 2> _low;
    std::array<double, 2> _high;
    double _rowsPerUnit = 0;
    std::vector<std::vector<Edge>> _rows; ///< the edges that run through each of some strips along x
};

} // namespace VelBrx
