#include "store/sample/Scanner.h"

#include <algorithm>
#include <cmath>

namespace VelBrx::Sample {

namespace {

constexpr double kLeastEnergy = 0.07; ///< weaker echoes are not heard
constexpr double kLeastGap = 0.6;     ///< metres between two echoes of a pulse
constexpr double kFullIntensity = 46000;
constexpr double kRangeNoise = 0.012; ///< metres
constexpr double kAmbient = 0.5;
constexpr double kDirect = 0.66;
constexpr double kTallest = 50;         ///< metres above ground, where nothing is any more
constexpr double kShade = 3;            ///< how much darker plants make than their pieces alone
constexpr double kLeastSunlight = 0.22; ///< that plants let through

/// Something on the way of a pulse.
struct Meeting
{
    double distance;
    double share; ///< of the light that arrives, what is thrown back; 1: nothing goes on
    double reflectance;
    PointClass pointClass;
    Vec3 normal;
    Color color;
};

struct Meetings
{
    std::array<Meeting, 64> meeting; ///< more are left out
    size_t count = 0;
    double end; ///< distance of the nearest surface

    void add(const Meeting& what)
    {
        if (what.share == 1) end = what.distance;
        if (count < meeting.size()) meeting[count++] = what;
    }
};

/// The ground is so flat against the ray that the search converges.
double groundDistance(const Landscape& land, const Ray& ray)
{
    double distance = (ray.origin().z() - 130) / -ray.direction().z();
    for (int step = 0; step < 6; ++step) {
        const Vec3 place = ray.pointAt(distance);
        distance += (place.z() - land.elevation(place.x(), place.y())) / -ray.direction().z();
    }
    return distance;
}

void meetBodies(const Scene& scene, const Ray& ray, double ground, Random& random, Meetings& meetings)
{
    scene.meet(
        ray, ground + kTallest / ray.direction().z(), ground, [&](const Body& body, const Passage& passage) {
            const auto& [pointClass, reflectance, pieces, share] = *body.matter;
            if (share == 1) {
                if (passage.enter < meetings.end)
                    meetings.add({passage.enter, 1, reflectance, pointClass, passage.normal,
                                  passage.normal.z() > 0.1 ? body.top : body.color});
                return;
            }
            for (double t = passage.enter; (t -= std::log(1 - random.uniform()) / pieces) < passage.leave;) {
                const Vec3 outwards = ray.pointAt(t) - body.center + Vec3(0, 0, 0.35 * body.radius);
                meetings.add({t, share * random.between(0.5, 1.5), reflectance, pointClass,
                              pointClass == kPlant ? outwards.normalized() : Vec3::UnitZ(),
                              body.color * random.between(0.82, 1.18)});
            }
        });
}

void meetGround(const Landscape& land, const Ray& ray, double distance, Random& random, Meetings& meetings)
{
    const Vec3 place = ray.pointAt(distance);
    const Cover cover = land.cover(place.x(), place.y());
    const Ground& ground = Landscape::ground(cover);
    const Color color = land.color(place.x(), place.y(), cover) * random.between(0.94, 1.06);
    if (cover == Cover::Water) {
        // Still water throws back what falls on it from above, and little else.
        const double slant = 1 + ray.direction().z();
        const double glint = ground.reflectance + 0.5 * std::exp(-slant / 0.002);
        if (random.chance(0.45 + 0.5 * std::exp(-slant / 0.006)))
            meetings.add({distance, 1, glint, kWater, Vec3::UnitZ(), color});
        return;
    }
    const bool isLow = random.chance(ground.lowPlants);
    const double height = isLow ? ground.lowPlantHeight * random.between(0.25, 1) : 0;
    meetings.add({distance - height, 1, isLow ? 0.55 : ground.reflectance, isLow ? kLowVegetation : kGround,
                  land.normal(place.x(), place.y()), color});
}

/// Light of the sky and the sun on a surface.
double lightOn(const Scene& scene, const Vec3& point, const Vec3& normal, bool isPlant)
{
    constexpr double kSkin = 0.25; // metres in which a thing gives itself no shade
    static const Vec3 sun = Vec3(-0.52, -0.5, 0.8).normalized();
    const double facing = std::max(0.0, normal.dot(sun));
    const double height = point.z() - scene.landscape().elevation(point.x(), point.y());
    double shade = 0;
    bool isHidden = false;
    scene.meet({point, sun}, 0, (kTallest - height) / sun.z(), [&](const Body& body, const Passage& passage) {
        const double length = std::max(0.0, passage.leave - std::max(kSkin, passage.enter));
        shade += kShade * body.matter->pieces * body.matter->share * length;
        isHidden = isHidden || (body.matter->share == 1 && length > 0);
    });
    const double sunlight = isHidden ? 0 : std::max(kLeastSunlight, std::exp(-shade));
    return kAmbient + kDirect * sunlight * (isPlant ? 0.35 + 0.65 * facing : facing);
}

Echo echoOf(const Scene& scene, const Ray& ray, const Meeting& meeting, double energy, Random& random)
{
    const Vec3 exact = ray.pointAt(meeting.distance);
    const bool isPlant = meeting.pointClass == kPlant;
    const double light = lightOn(scene, exact + meeting.normal * 0.06, meeting.normal, isPlant);
    const double incidence = std::sqrt(std::max(0.05, -meeting.normal.dot(ray.direction())));
    const double intensity =
        kFullIntensity * meeting.reflectance * energy * incidence * (1 + 0.09 * random.normal()) + 120;
    PointClass pointClass = meeting.pointClass;
    if (isPlant) {
        const double height = exact.z() - scene.landscape().elevation(exact.x(), exact.y());
        pointClass = height < 0.5 ? kLowVegetation : height < 2.5 ? kMediumVegetation : kHighVegetation;
    }
    return {exact + ray.direction() * (kRangeNoise * random.normal()),
            meeting.color * (light * (1 + 0.02 * random.normal())),
            static_cast<uint16_t>(std::clamp(intensity, 0.0, 65535.0)), pointClass};
}

} // namespace

Echoes sendPulse(const Scene& scene, const Ray& ray, Random& random)
{
    Meetings meetings;
    const double ground = groundDistance(scene.landscape(), ray);
    meetings.end = ground + 1;
    meetBodies(scene, ray, ground, random, meetings);
    if (meetings.end > ground) meetGround(scene.landscape(), ray, ground, random, meetings);
    Meeting* const first = meetings.meeting.data();
    std::sort(first, first + meetings.count,
              [](const Meeting& a, const Meeting& b) { return a.distance < b.distance; });

    Echoes echoes;
    double energy = 1;
    double last = -1;
    for (size_t i = 0; i < meetings.count && echoes.count < echoes.echo.size(); ++i) {
        const Meeting& meeting = first[i];
        const double thrownBack = energy * meeting.share;
        if (meeting.distance > meetings.end || thrownBack < kLeastEnergy) break;
        if (meeting.distance - last < kLeastGap) continue;
        echoes.echo[echoes.count++] = echoOf(scene, ray, meeting, thrownBack, random);
        energy -= thrownBack;
        last = meeting.distance;
    }
    return echoes;
}

} // namespace VelBrx::Sample
