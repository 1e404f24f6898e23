#pragma once

#include "store/sample/Noise.h"
#include "store/sample/Scene.h"

#include <array>
#include <cstdint>

namespace VelBrx::Sample {

/// A point as the laser finds it.
struct Echo
{
    Vec3 position;
    Color color; ///< as the sun lights it
    uint16_t intensity;
    PointClass pointClass;
};

/// The echoes of one pulse, nearest first; none where water swallows it.
struct Echoes
{
    std::array<Echo, 5> echo;
    size_t count = 0;
};

/// Sends a pulse into the scene from high above. `random` decides what leaves it meets and how exact it
/// measures. Any thread may call it.
Echoes sendPulse(const Scene& scene, const Ray& ray, Random& random);

} // namespace VelBrx::Sample
