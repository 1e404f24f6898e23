#pragma once

#include <VelBrx/Export.h>

#include <array>
#include <cstddef>

namespace VelBrx {

using Position = std::array<double, 3>;

/// Unit normal of the plane through `count` positions, one at least, by least squares, upwards; see
/// `writeNormals` for positions that have no plane. Any thread may call it.
VEL_BRX_EXPORT std::array<float, 3> planeNormal(const Position* const* positions, size_t count);

} // namespace VelBrx
