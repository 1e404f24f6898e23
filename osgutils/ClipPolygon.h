#pragma once

#include <cstddef>
#include <vector>

namespace VelOsgUtils {

/// The part of a polygon where `side`, a linear function of the vertex, is not negative (Sutherland and
/// Hodgman, "Reentrant polygon clipping", 1974). What the even-odd rule says of that part stays the same,
/// also for a polygon that crosses itself.
template <typename Vertex, typename Side>
std::vector<Vertex> clipPolygon(const std::vector<Vertex>& polygon, const Side& side)
{
    std::vector<Vertex> kept;
    for (size_t i = 0; i < polygon.size(); ++i) {
        const Vertex& from = polygon[i];
        const Vertex& to = polygon[(i + 1) % polygon.size()];
        const double fromSide = side(from);
        const double toSide = side(to);
        if (fromSide >= 0) kept.push_back(from);
        if ((fromSide >= 0) != (toSide >= 0))
            kept.push_back(from + (to - from) * (fromSide / (fromSide - toSide)));
    }
    return kept;
}

} // namespace VelOsgUtils
