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
    uint16_t intensity = 0;
    uint8_t pointClass = kUnclassified;
};

constexpr size_t kMaxEchoes = 5;

/// The echoes of one pulse, nearest first; none where water swallows it.
struct Echoes
{
    std::array<Echo, kMaxEchoes> echo;
    size_t count = 0;
};

/// Sends laser pulses into a scene. Stateless; any thread may use it.
class Scanner
{
public:
    explicit Scanner(const Scene& scene) : _scene(scene), _land(scene.landscape()) {}

    /// A pulse from high above. `random` decides what leaves it meets and how exact it measures.
    Echoes send(const Ray& ray, Random& random) const;

private:
    struct Meeting;
    struct Meetings;

    double groundDistance(const Ray& ray) const;
    void meetThings(const Ray& ray, const Vec3& ground, Random& random, Meetings& meetings) const;
    void meetPlants(const Ray& ray, const Vec3& ground, Random& random, Meetings& meetings) const;
    void meetGround(const Ray& ray, const Vec3& ground, double distance, Random& random,
                    Meetings& meetings) const;
    Echo echoOf(const Ray& ray, const Meeting& meeting, double energy, Random& random) const;

    const Scene& _scene;
    const Landscape& _land;
};

} // namespace VelBrx::Sample
