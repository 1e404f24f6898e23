#include "store/sample/Furnish.h"

#include "store/sample/Noise.h"
#include "store/sample/Scene.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace VelBrx::Sample {

namespace {

using Eigen::Affine3d;

constexpr double kPi = 3.14159265358979323846;

constexpr Matter kMasonry = {kBuilding, 0.4, 0, 1};
constexpr Matter kCar = {kUnclassified, 0.3, 0, 1};
constexpr Matter kSteel = {kUnclassified, 0.3, 9, 0.5};
constexpr Matter kCable = {kWire, 0.3, 9, 0.3};
constexpr Matter kWood = {kPlant, 0.3, 6, 0.6};
constexpr Matter kLeaves = {kPlant, 0.55, 0.3, 0.5};
constexpr Matter kNeedles = {kPlant, 0.55, 0.5, 0.5};
constexpr Matter kTwigs = {kPlant, 0.55, 1.1, 0.5};

/// \name Solids, see `Scene::addSolid`
/// @{
using Faces = std::vector<std::array<double, 4>>;

Faces box()
{
    return {{1, 0, 0, 1}, {-1, 0, 0, 1}, {0, 1, 0, 1}, {0, -1, 0, 1}, {0, 0, 1, 1}, {0, 0, -1, 1}};
}

/// A roof with its ridge along x. The steeper its ends, the longer the ridge: 1 for none, 0 for gables.
Faces roof(double ends)
{
    return {{2, 0, ends, 2 - ends}, {-2, 0, ends, 2 - ends}, {0, 2, 1, 1}, {0, -2, 1, 1}, {0, 0, -1, 1}};
}

/// A frame that stands upright on `base`, its x axis `angle` from east.
Affine3d standing(const Vec3& base, double angle, const Vec3& size)
{
    return Eigen::Translation3d(base) * Eigen::AngleAxisd(angle, Vec3::UnitZ()) * Eigen::Scaling(size / 2) *
           Eigen::Translation3d(0, 0, 1);
}
/// @}

constexpr uint32_t kTiles[] = {0xA34F38, 0x8F4533, 0xB36142, 0x734036, 0x5C5C63, 0x4A4D54, 0x995945};
constexpr uint32_t kWalls[] = {0xE8E3D6, 0xE0D4B3, 0xD4CCC4, 0xC99E80, 0xEDE8E3, 0xB87D66};
constexpr uint32_t kCars[] = {0xD9DBE0, 0x212429, 0x9EA3AB, 0x9E1F1F, 0x243D80, 0x4D545C};

/// A plant: a column of balls of leaves, the lowest first. Lengths are parts of its height.
struct Species
{
    const Matter* leaves;
    uint32_t color;
    double warmth; ///< that its leaves vary by
    int balls;
    double low, high;    ///< middles of the lowest and the highest ball
    double wide, narrow; ///< their radii
    double spread;       ///< of the balls to the sides, at the bottom
};

constexpr Species kBroadleaf = {&kLeaves, 0x577938, 0.058, 6, 0.42, 0.83, 0.2, 0.15, 0.13};
constexpr Species kConifer = {&kNeedles, 0x3C5C38, 0, 6, 0.2, 0.92, 0.15, 0.04, 0};
constexpr Species kShrub = {&kTwigs, 0x577938, 0.058, 1, 0.4, 0.4, 0.6, 0.6, 0};

/// Heights and half lengths of a pylon's arms; wires hang from their ends.
constexpr double kArms[][2] = {{19, 6.5}, {23.5, 8.5}, {28, 5.5}, {32.8, 0.8}};

class Furnisher
{
public:
    explicit Furnisher(Scene& scene)
        : _scene(scene), _land(scene.landscape()), _size(_land.size()), _random(_land.seed() ^ 0xF00D)
    {
    }

    void furnish()
    {
        raisePowerLine();
        buildVillage();
        driveCars();
        for (Cover cover : {Cover::Bank, Cover::Meadow, Cover::Hedge, Cover::Forest, Cover::Garden})
            plant(cover, Landscape::ground(cover));
    }

private:
    Scene& _scene;
    const Landscape& _land;
    const double _size;
    Random _random;

    template <size_t N>
    Color oneOf(const uint32_t (&colors)[N])
    {
        return rgb(colors[static_cast<size_t>(_random.uniform() * N)]);
    }

    Vec3 onGround(double x, double y) const { return {x, y, _land.elevation(x, y)}; }

    /// A place `across` metres north of the road.
    Vec3 besideRoad(double x, double across) const { return onGround(x, _land.roadY(x) + across); }

    double roadAngle(double x) const { return std::atan((_land.roadY(x + 1) - _land.roadY(x - 1)) / 2); }

    /// A house whose walls have `size`.
    void build(const Vec3& base, double angle, const Vec3& size, double roofEnds, double rise,
               const Color& walls, const Color& tiles)
    {
        _scene.addSolid(standing(base, angle, size), box(), kMasonry, walls, tiles);
        const Vec3 eaves = base + Vec3(0, 0, size.z());
        _scene.addSolid(standing(eaves, angle, {size.x(), size.y(), rise}), roof(roofEnds), kMasonry, walls,
                        tiles);
    }

    void buildVillage()
    {
        const Vec3 church = besideRoad(0.5 * _size + 52, 38);
        build(church, 0, {27, 12, 8.5}, 0, 8, rgb(kWalls[0]), rgb(0x5E616B));
        build(church - Vec3(16.5, 0, 0), 0, {7.2, 7.2, 21}, 1, 15, rgb(kWalls[0]), rgb(0x54786B));
        constexpr double kLot = Landscape::kStreetSpacing / 4; // none is on a street
        for (double row : {-53, -23, 23, 53, 83, 113})
            for (double lot = std::fmod(0.5 * _size + kLot / 2, kLot); lot < _size; lot += kLot) {
                const double x = lot + _random.between(-1.5, 1.5);
                const Vec3 place = besideRoad(x, row + _random.between(-2, 2));
                const bool isChurchyard = (place - church).norm() < 32;
                if (_land.insideVillage(x, row) > 11 && !isChurchyard &&
                    !_scene.isBuiltUp(place.x(), place.y()) && _random.chance(0.93))
                    settle(place);
            }
        for (double x = 0.85 * _size; x < _size - 14; x += 34) // workshops
            build(besideRoad(x, -34), roadAngle(x), {22, 32, _random.between(6, 9)}, 0, 2, rgb(0xC2C7CC),
                  oneOf(kWalls) * 0.85);
    }

    void settle(const Vec3& place)
    {
        const double turn = _random.chance(0.3) ? kPi / 2 : 0;
        const double angle = roadAngle(place.x()) + turn + _random.between(-0.05, 0.05);
        const Vec3 size(_random.between(10.5, 14.5), _random.between(8, 10.5), _random.between(3, 6));
        const double rise = size.y() * _random.between(0.3, 0.55);
        const Color walls = oneOf(kWalls);
        build(place, angle, size, _random.chance(0.2) ? 0.5 : 0, rise, walls, oneOf(kTiles));
    }

    void driveCars()
    {
        for (double x = _random.between(10, 60); x < _size; x += _random.between(20, 90)) {
            const double lane = _random.chance(0.5) ? 1.75 : -1.75;
            const Vec3 place = besideRoad(x, lane) + Vec3(0, 0, 0.25);
            const Color color = oneOf(kCars);
            _scene.addSolid(standing(place, roadAngle(x), {4.5, 1.8, 0.65}), box(), kCar, color, color);
            _scene.addSolid(standing(place, roadAngle(x), {2.3, 1.6, 1.2}), box(), kCar, color * 0.55,
                            color * 0.55);
        }
    }

    void plant(Cover cover, const Ground& ground)
    {
        for (double row = 0; row < _size; row += ground.spacing)
            for (double column = 0; column < _size; column += ground.spacing) {
                const double x = column + ground.spacing * _random.between(0.1, 0.9);
                const double y = row + ground.spacing * _random.between(0.1, 0.9);
                if (_land.cover(x, y) != cover || !_random.chance(ground.chance) ||
                    noise(x / 45, y / 45, _land.seed() + 31) < ground.clusters || _scene.isBuiltUp(x, y))
                    continue;
                const double stand = noise(x / 90, y / 90, _land.seed() + 33) + _random.between(-0.27, 0.23);
                const Species& tree = cover == Cover::Forest && stand > 0.08 ? kConifer : kBroadleaf;
                if (_random.chance(ground.shrubs))
                    grow(kShrub, x, y, _random.between(1.2, 3));
                else
                    grow(tree, x, y, _random.between(ground.shortest, ground.tallest));
            }
    }

    void grow(const Species& species, double x, double y, double height)
    {
        const Vec3 base = onGround(x, y);
        const Color warm = Color(1, 0.4, 0.2) * (species.warmth * _random.between(-1, 1));
        const Color color = (rgb(species.color) + warm) * _random.between(0.86, 1.13);
        const double turn = _random.between(0, 2 * kPi);
        const double girth = _random.between(0.85, 1.2) * height;
        for (int i = 0; i < species.balls; ++i) {
            const double part = i / std::max(1.0, species.balls - 1.0);
            const double aside = girth * species.spread * (1 - part);
            const double angle = turn + 2.4 * i;
            const Vec3 middle(aside * std::cos(angle), aside * std::sin(angle),
                              mix(species.low, species.high, part) * height);
            _scene.addBall(base + middle, girth * mix(species.wide, species.narrow, part), *species.leaves,
                           color * _random.between(0.92, 1.08));
        }
        addBar(base, base + Vec3(0, 0, 0.5 * height), 0.4, kWood, rgb(0x5C4A38));
    }

    void addBar(const Vec3& from, const Vec3& to, double thickness, const Matter& matter, const Color& color)
    {
        const Vec3 half = (to - from) / 2;
        const Affine3d frame = Eigen::Translation3d(from + half) *
                               Eigen::Quaterniond::FromTwoVectors(Vec3::UnitX(), half) *
                               Eigen::Scaling(half.norm(), thickness / 2, thickness / 2);
        _scene.addSolid(frame, box(), matter, color, color);
    }

    void raisePowerLine()
    {
        const double spans = std::ceil((_size + 40) / 165);
        const auto foot = [&](double i) {
            const double y = -20 + i * (_size + 40) / spans;
            return onGround(_land.powerLineX(y), y);
        };
        for (double i = 0; i <= spans; ++i) {
            buildPylon(foot(i));
            for (const auto& [height, length] : kArms)
                for (const Vec3& end : {Vec3(-length, 0, height), Vec3(length, 0, height)}) {
                    addBar(foot(i) + Vec3(0, 0, height + 1), foot(i) + end, 0.4, kSteel, rgb(0x858C8F));
                    if (i < spans) hangWire(foot(i) + end, foot(i + 1) + end);
                }
        }
    }

    void buildPylon(const Vec3& foot)
    {
        constexpr double kFloor = 4.1;
        const auto corner = [&](double i, double floor) -> Vec3 {
            const double aside = 3.4 - 0.4 * floor;
            return foot + Vec3(aside * std::cos(i * kPi / 2), aside * std::sin(i * kPi / 2), kFloor * floor);
        };
        for (double floor = 0; floor < 8; ++floor)
            for (double i = 0; i < 4; ++i)
                for (double across : {-1, 0, 1})
                    addBar(corner(i, floor), corner(i + across, floor + 1), 0.3, kSteel, rgb(0x858C8F));
    }

    void hangWire(const Vec3& from, const Vec3& to)
    {
        constexpr int kPieces = 28;
        constexpr double kSag = 5;
        const auto at = [&](int piece) -> Vec3 {
            const double part = static_cast<double>(piece) / kPieces;
            return from + part * (to - from) - Vec3(0, 0, 4 * kSag * part * (1 - part));
        };
        for (int piece = 0; piece < kPieces; ++piece)
            addBar(at(piece), at(piece + 1), 0.22, kCable, rgb(0x4D4F54));
    }
};

} // namespace

void furnish(Scene& scene)
{
    Furnisher(scene).furnish();
}

} // namespace VelBrx::Sample
