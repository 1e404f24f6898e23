#pragma once

#include <Eigen/Geometry>

#include <cstdint>

namespace VelBrx::Sample {

using Vec3 = Eigen::Vector3d;                   ///< metres: x east, y north, z up
using Ray = Eigen::ParametrizedLine<double, 3>; ///< its direction has unit length
using Color = Eigen::Vector3d;                  ///< red, green, blue, 0 to 1

/// The colour 0xRRGGBB.
inline Color rgb(uint32_t value)
{
    return Color(value >> 16, value >> 8 & 0xFF, value & 0xFF) / 255;
}

} // namespace VelBrx::Sample
