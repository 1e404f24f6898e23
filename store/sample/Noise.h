#pragma once

#include <cmath>
#include <cstdint>

namespace VelBrx::Sample {

/// Mixes the bits of a number.
inline uint64_t mixBits(uint64_t value)
{
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
    value = (value ^ value >> 27) * 0x94D049BB133111EB;
    return value ^ value >> 31;
}

/// A number in [0, 1) that belongs to a lattice point.
inline double latticeValue(int64_t x, int64_t y, uint64_t seed)
{
    const uint64_t key =
        static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15 ^ static_cast<uint64_t>(y) * 0xC2B2AE3D27D4EB4F;
    return static_cast<double>(mixBits(key + seed) >> 11) * 0x1p-53;
}

inline double smoothStep(double from, double to, double value)
{
    const double part = (value - from) / (to - from);
    const double clamped = part < 0 ? 0 : part > 1 ? 1 : part;
    return clamped * clamped * (3 - 2 * clamped);
}

inline double mix(double a, double b, double part)
{
    return a + (b - a) * part;
}

/// Smooth noise in [-1, 1] with features of size 1.
inline double noise(double x, double y, uint64_t seed)
{
    const double column = std::floor(x);
    const double row = std::floor(y);
    const auto i = static_cast<int64_t>(column);
    const auto j = static_cast<int64_t>(row);
    const double a = smoothStep(0, 1, x - column);
    const double b = smoothStep(0, 1, y - row);
    const double low = mix(latticeValue(i, j, seed), latticeValue(i + 1, j, seed), a);
    const double high = mix(latticeValue(i, j + 1, seed), latticeValue(i + 1, j + 1, seed), a);
    return 2 * mix(low, high, b) - 1;
}

/// A stream of random numbers that its seed determines.
class Random
{
public:
    explicit Random(uint64_t seed) : _state(mixBits(seed + 0x9E3779B97F4A7C15)) {}

    uint64_t bits() { return mixBits(_state += 0x9E3779B97F4A7C15); }

    /// In [0, 1).
    double uniform() { return static_cast<double>(bits() >> 11) * 0x1p-53; }
    double between(double low, double high) { return mix(low, high, uniform()); }
    bool chance(double probability) { return uniform() < probability; }

    /// Mean 0, standard deviation 1, never beyond 3.
    double normal() { return 2 * (uniform() + uniform() + uniform() - 1.5); }

private:
    uint64_t _state;
};

} // namespace VelBrx::Sample
