#pragma once

#include <cmath>

namespace VelBrx::Sample {

/// Metres: x east, y north, z up.
struct Vec3
{
    double x = 0;
    double y = 0;
    double z = 0;
};

inline Vec3 operator+(const Vec3& a, const Vec3& b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

inline Vec3 operator-(const Vec3& a, const Vec3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

inline Vec3 operator*(const Vec3& a, double s)
{
    return {a.x * s, a.y * s, a.z * s};
}

inline double dot(const Vec3& a, const Vec3& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

inline Vec3 normalized(const Vec3& a)
{
    return a * (1 / std::sqrt(dot(a, a)));
}

struct Ray
{
    Vec3 origin;
    Vec3 direction; ///< unit length

    Vec3 at(double t) const { return origin + direction * t; }
};

/// Red, green, blue, 0 to 1.
using Color = Vec3;

inline Color mix(const Color& a, const Color& b, double part)
{
    return a + (b - a) * part;
}

} // namespace VelBrx::Sample
