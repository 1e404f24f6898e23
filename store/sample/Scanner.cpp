#include "store/sample/Scanner.h"

#include <algorithm>

namespace VelBrx::Sample {

/// Something on the way of a pulse.
struct Scanner::Meeting
{
    double distance;
    double share; ///< of the light that arrives, what is thrown back; 1: nothing goes on
    double reflectance;
    Vec3 normal;
    Color color;
    uint8_t pointClass;
    bool isLeaf;
};

struct Scanner::Meetings
{
    static constexpr size_t kRoom = 64;
    std::array<Meeting, kRoom> meeting;
    size_t count = 0;
    double end = 0; ///< distance of the nearest opaque thing

    void add(const Meeting& what)
    {
        if (count < kRoom) meeting[count++] = what;
    }

    void addOpaque(const Meeting& what)
    {
        end = what.distance;
        add(what);
    }
};

namespace {

constexpr double kLeastEnergy = 0.07; ///< weaker echoes are not heard
constexpr double kLeastGap = 0.6;     ///< metres between two echoes of a pulse
constexpr double kFullIntensity = 46000;

uint16_t to16Bit(double value)
{
    return static_cast<uint16_t>(std::clamp(value, 0.0, 65535.0));
}

uint8_t vegetationClass(double height)
{
    return height < 0.5 ? kLowVegetation : height < 2.5 ? kMediumVegetation : kHighVegetation;
}

double reflectanceOf(Cover cover)
{
    switch (cover) {
    case Cover::Water:
        return 0.03;
    case Cover::Asphalt:
        return 0.15;
    case Cover::Marking:
        return 0.75;
    case Cover::Pavement:
        return 0.36;
    case Cover::Garden:
    case Cover::Meadow:
        return 0.55;
    case Cover::Field:
        return 0.42;
    case Cover::Forest:
        return 0.34;
    case Cover::Bank:
        return 0.4;
    }
    return 0.3;
}

/// How often a pulse stays in the low plants of a cover, and how high they are.
struct LowPlants
{
    double frequency;
    double height;
};

LowPlants lowPlantsOf(Cover cover)
{
    switch (cover) {
    case Cover::Garden:
        return {0.08, 0.2};
    case Cover::Meadow:
        return {0.22, 0.35};
    case Cover::Field:
        return {0.16, 0.45};
    case Cover::Forest:
        return {0.2, 0.48};
    case Cover::Bank:
        return {0.4, 0.45};
    default:
        return {0, 0};
    }
}

} // namespace

/// The ground is so flat against the ray that the search converges.
double Scanner::groundDistance(const Ray& ray) const
{
    double distance = (ray.origin.z - 130) / -ray.direction.z;
    for (int step = 0; step < 6; ++step) {
        const Vec3 place = ray.at(distance);
        distance += (place.z - _land.elevation(place.x, place.y)) / -ray.direction.z;
    }
    return distance;
}

void Scanner::meetThings(const Ray& ray, const Vec3& ground, Random& random, Meetings& meetings) const
{
    for (uint32_t index : _scene.solidsAt(ground.x, ground.y)) {
        const Solid& solid = _scene.solid(index);
        if (!meetsSphere(ray, solid.center, solid.radius)) continue;
        size_t side = 0;
        const Passage passage = passSolid(ray, _scene, solid, side);
        if (!passage.hits() || passage.enter >= meetings.end) continue;
        const Face& face = _scene.face(side);
        meetings.addOpaque(
            {passage.enter, 1, face.reflectance, face.normal, face.color, solid.pointClass, false});
    }
    for (uint32_t index : _scene.rodsAt(ground.x, ground.y)) {
        const Rod& rod = _scene.rod(index);
        double distance = 0;
        if (!meetsRod(ray, rod, distance) || !random.chance(0.8)) continue;
        meetings.add({distance, rod.share, 0.3, {0, 0, 1}, rod.color, rod.pointClass, false});
    }
}

void Scanner::meetPlants(const Ray& ray, const Vec3& ground, Random& random, Meetings& meetings) const
{
    for (uint32_t index : _scene.plantsAt(ground.x, ground.y)) {
        const Plant& plant = _scene.plant(index);
        if (!meetsSphere(ray, plant.center, plant.radius)) continue;
        for (size_t i = plant.firstCrown; i < plant.endCrown; ++i) {
            const Crown& crown = _scene.crown(i);
            const Passage passage = passCrown(ray, crown);
            if (!passage.hits()) continue;
            for (double t = passage.enter;
                 (t -= std::log(1 - random.uniform()) / crown.density) < passage.leave;) {
                const Vec3 out = ray.at(t) - crown.center;
                const double flatten = crown.radius / crown.halfHeight;
                const Vec3 normal{out.x, out.y, out.z * flatten * flatten + 0.35 * crown.radius};
                meetings.add({t, random.between(0.25, 0.75), 0.55, normalized(normal),
                              crown.color * random.between(0.82, 1.18), 0, true});
            }
        }
    }
}

void Scanner::meetGround(const Ray& ray, const Vec3& ground, double distance, Random& random,
                         Meetings& meetings) const
{
    const Cover cover = _land.cover(ground.x, ground.y);
    if (cover == Cover::Water) {
        // Still water throws back what falls on it from above, and little else.
        const double slant = 1 + ray.direction.z;
        const double heard = 0.45 + 0.5 * std::exp(-slant / 0.006);
        const double glint = 0.03 + 0.5 * std::exp(-slant / 0.002);
        if (random.chance(heard))
            meetings.addOpaque(
                {distance, 1, glint, {0, 0, 1}, _land.color(ground.x, ground.y, cover), kWater, false});
        return;
    }
    const Color color = _land.color(ground.x, ground.y, cover) * random.between(0.94, 1.06);
    const Vec3 normal = _land.normal(ground.x, ground.y);
    const LowPlants plants = lowPlantsOf(cover);
    if (random.chance(plants.frequency)) {
        const double height = plants.height * random.between(0.25, 1);
        meetings.addOpaque({distance - height, 1, 0.55, normal, color * 0.97, kLowVegetation, false});
        return;
    }
    meetings.addOpaque({distance, 1, reflectanceOf(cover), normal, color, kGround, false});
}

Echo Scanner::echoOf(const Ray& ray, const Meeting& meeting, double energy, Random& random) const
{
    constexpr double kRangeNoise = 0.012;
    constexpr double kAmbient = 0.5;
    constexpr double kDirect = 0.66;
    Echo echo;
    const Vec3 exact = ray.at(meeting.distance);
    const double sunlight = _scene.sunlight(exact + meeting.normal * 0.06);
    const double facing = std::max(0.0, dot(meeting.normal, Scene::sun()));
    const double light = kAmbient + kDirect * sunlight * (meeting.isLeaf ? 0.35 + 0.65 * facing : facing);
    echo.color = meeting.color * (light * (1 + 0.02 * random.normal()));
    echo.position = exact + ray.direction * (kRangeNoise * random.normal());
    echo.pointClass =
        meeting.isLeaf ? vegetationClass(exact.z - _land.elevation(exact.x, exact.y)) : meeting.pointClass;
    const double incidence = std::sqrt(std::max(0.05, -dot(meeting.normal, ray.direction)));
    echo.intensity = to16Bit(
        kFullIntensity * meeting.reflectance * energy * incidence * (1 + 0.09 * random.normal()) + 120);
    return echo;
}

Echoes Scanner::send(const Ray& ray, Random& random) const
{
    Meetings meetings;
    const double distance = groundDistance(ray);
    const Vec3 ground = ray.at(distance);
    meetings.end = distance + 1;
    meetThings(ray, ground, random, meetings);
    if (meetings.end > distance) meetGround(ray, ground, distance, random, meetings);
    meetPlants(ray, ground, random, meetings);
    Meeting* const first = meetings.meeting.data();
    std::sort(first, first + meetings.count,
              [](const Meeting& a, const Meeting& b) { return a.distance < b.distance; });

    Echoes echoes;
    double energy = 1;
    double last = -1;
    for (size_t i = 0; i < meetings.count && echoes.count < kMaxEchoes; ++i) {
        const Meeting& meeting = first[i];
        if (meeting.distance > meetings.end) break;
        const double thrownBack = energy * meeting.share;
        if (thrownBack < kLeastEnergy) break;
        if (meeting.distance - last < kLeastGap) continue;
        echoes.echo[echoes.count++] = echoOf(ray, meeting, thrownBack, random);
        energy -= thrownBack;
        last = meeting.distance;
    }
    return echoes;
}

} // namespace VelBrx::Sample
