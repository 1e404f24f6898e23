#pragma once

#include <array>
#include <cstddef>

namespace VelBrx {

using Position = std::array<double, 3>;

/// Unit normal of the plane through `count` positions by least squares, upwards; see `writeNormals` for
/// positions that have no plane.
std::array<float, 3> planeNormal(const Position* const* positions, size_t count);

} // namespace VelBrx
