#include "store/sample/Scene.h"

#include "store/sample/Noise.h"

#include <algorithm>
#include <array>
#include <limits>

namespace VelBrx::Sample {

namespace {

constexpr double kSquare = 8;   ///< edge of a square of the place tables
constexpr double kOutside = 64; ///< the tables reach this far outside the landscape
constexpr double kReach = 0.45; ///< metres that a slanted beam moves sideways for each metre of height
constexpr double kShadeDensity = 0.45;
constexpr double kLeastSunlight = 0.22; ///< that a crown lets through

} // namespace

Vec3 Scene::sun()
{
    return normalized({-0.52, -0.5, 0.8});
}

Scene::PlaceTable::PlaceTable(double size) : _width(static_cast<int64_t>((size + 2 * kOutside) / kSquare) + 1)
{
}

int64_t Scene::PlaceTable::cellOf(double coordinate) const
{
    return std::clamp<int64_t>(static_cast<int64_t>((coordinate + kOutside) / kSquare), 0, _width - 1);
}

void Scene::PlaceTable::add(uint32_t index, double minX, double minY, double maxX, double maxY)
{
    for (int64_t row = cellOf(minY); row <= cellOf(maxY); ++row)
        for (int64_t column = cellOf(minX); column <= cellOf(maxX); ++column)
            _entries.emplace_back(static_cast<uint32_t>(row * _width + column), index);
}

void Scene::PlaceTable::finish()
{
    std::sort(_entries.begin(), _entries.end());
    _starts.assign(static_cast<size_t>(_width * _width) + 1, 0);
    for (const auto& [square, index] : _entries) {
        ++_starts[square + 1];
        _indices.push_back(index);
    }
    for (size_t i = 1; i < _starts.size(); ++i)
        _starts[i] += _starts[i - 1];
    _entries = {};
}

Scene::Range<uint32_t> Scene::PlaceTable::at(double x, double y) const
{
    const auto square = static_cast<size_t>(cellOf(y) * _width + cellOf(x));
    return {_indices.data() + _starts[square], _indices.data() + _starts[square + 1]};
}

Scene::Scene(const Landscape& landscape)
    : _landscape(landscape), _solidsInSight(landscape.size()), _plantsInSight(landscape.size()),
      _rodsInSight(landscape.size()), _solidsInShade(landscape.size()), _plantsInShade(landscape.size())
{
}

void Scene::addFace(const Vec3& normal, const Vec3& point, const Color& color, double reflectance)
{
    const Vec3 unit = normalized(normal);
    _faces.push_back({unit, dot(unit, point), color, reflectance});
}

void Scene::addHouse(const House& house)
{
    const double ground = _landscape.elevation(house.x, house.y);
    const Vec3 along{std::cos(house.angle), std::sin(house.angle), 0};
    const Vec3 across{-along.y, along.x, 0};
    const Vec3 middle{house.x, house.y, ground};
    const double halfLength = house.length / 2;
    const double halfWidth = house.width / 2;
    const Vec3 eaves = middle + Vec3{0, 0, house.eaves};
    const double top = house.roof == House::Roof::Flat ? 0 : house.rise;

    const size_t first = _faces.size();
    constexpr double kWall = 0.42;
    constexpr double kTiles = 0.34;
    for (double side : {-1.0, 1.0}) {
        addFace(along * side, middle + along * (side * halfLength), house.wallColor, kWall);
        addFace(across * side, middle + across * (side * halfWidth), house.wallColor * (side > 0 ? 1 : 0.97),
                kWall);
        if (house.roof == House::Roof::Flat) continue;
        addFace(across * (side * house.rise) + Vec3{0, 0, halfWidth}, eaves + across * (side * halfWidth),
                house.roofColor, kTiles);
        if (house.roof == House::Roof::Hip)
            addFace(along * (side * house.rise) + Vec3{0, 0, std::min(halfWidth, halfLength)},
                    eaves + along * (side * halfLength), house.roofColor, kTiles);
    }
    if (house.roof == House::Roof::Flat) addFace({0, 0, 1}, eaves, house.roofColor, kTiles);
    const double halfHeight = (house.eaves + top) / 2;
    _solids.push_back({middle + Vec3{0, 0, halfHeight},
                       std::sqrt(halfLength * halfLength + halfWidth * halfWidth + halfHeight * halfHeight),
                       first, _faces.size(), house.pointClass});
}

void Scene::addBox(const Vec3& base, double angle, const Vec3& size, const Color& color, uint8_t pointClass)
{
    const Vec3 along{std::cos(angle), std::sin(angle), 0};
    const Vec3 across{-along.y, along.x, 0};
    const size_t first = _faces.size();
    constexpr double kReflectance = 0.3;
    for (double side : {-0.5, 0.5}) {
        addFace(along * side, base + along * (side * size.x), color, kReflectance);
        addFace(across * side, base + across * (side * size.y), color, kReflectance);
        addFace({0, 0, side}, base + Vec3{0, 0, (0.5 + side) * size.z}, color, kReflectance);
    }
    _solids.push_back(
        {base + Vec3{0, 0, size.z / 2}, std::sqrt(dot(size, size)) / 2, first, _faces.size(), pointClass});
}

void Scene::addPlant(size_t firstCrown, const Vec3& base, double height, double radius)
{
    const double half = height / 2;
    _plants.push_back(
        {base + Vec3{0, 0, half}, std::sqrt(half * half + radius * radius), firstCrown, _crowns.size()});
}

void Scene::addBroadleaf(double x, double y, double height, const Color& color, uint64_t shapeSeed)
{
    constexpr double kDensity = 0.3;
    Random random(shapeSeed);
    const Vec3 base{x, y, _landscape.elevation(x, y)};
    const double radius = height * random.between(0.22, 0.31);
    const size_t first = _crowns.size();
    _crowns.push_back({base + Vec3{0, 0, 0.62 * height}, radius * 0.86, 0.36 * height, color, kDensity});
    for (int limb = 0; limb < 4; ++limb) {
        const double angle = 1.57 * limb + random.between(-0.6, 0.6);
        const Vec3 place{0.5 * radius * std::cos(angle), 0.5 * radius * std::sin(angle),
                         height * random.between(0.45, 0.72)};
        const double size = radius * random.between(0.5, 0.68);
        _crowns.push_back({base + place, size, size * 0.9, color * random.between(0.92, 1.08), kDensity});
    }
    addPlant(first, base, height, radius * 1.2);
    addTrunk(base, 0.5 * height);
}

void Scene::addConifer(double x, double y, double height, const Color& color)
{
    constexpr double kDensity = 0.42;
    const Vec3 base{x, y, _landscape.elevation(x, y)};
    const size_t first = _crowns.size();
    constexpr double kPlaces[][2] = {
        {0.25, 0.16}, {0.44, 0.135}, {0.62, 0.105}, {0.78, 0.072}, {0.91, 0.034}};
    for (const auto& [place, width] : kPlaces)
        _crowns.push_back(
            {base + Vec3{0, 0, place * height}, width * height, 0.13 * height, color, kDensity});
    addPlant(first, base, height * 1.04, 0.17 * height);
    addTrunk(base, 0.5 * height);
}

void Scene::addShrub(double x, double y, double radius, double height, const Color& color)
{
    constexpr double kDensity = 1.1;
    const Vec3 base{x, y, _landscape.elevation(x, y)};
    const size_t first = _crowns.size();
    _crowns.push_back({base + Vec3{0, 0, 0.45 * height}, radius, 0.55 * height, color, kDensity});
    addPlant(first, base, height, radius);
}

void Scene::addTrunk(const Vec3& base, double height)
{
    addRod({base, base + Vec3{0, 0, height}, 0.22, 0.6, {0.36, 0.29, 0.22}, kHighVegetation});
}

/// Enters a body where slanted beams that meet it would meet the ground.
void Scene::enterInSight(PlaceTable& table, uint32_t index, const Vec3& center, double radius) const
{
    const double top = center.z + radius - _landscape.elevation(center.x, center.y);
    const double reach = radius + std::max(0.0, top) * kReach;
    table.add(index, center.x - reach, center.y - reach, center.x + reach, center.y + reach);
}

/// Enters a body where its shadow falls on level ground.
void Scene::enterInShade(PlaceTable& table, uint32_t index, const Vec3& center, double radius) const
{
    const Vec3 light = sun();
    const double height = center.z - _landscape.elevation(center.x, center.y);
    const double x = center.x - light.x / light.z * height;
    const double y = center.y - light.y / light.z * height;
    const double reach = radius / light.z + 3;
    table.add(index, x - reach, y - reach, x + reach, y + reach);
}

void Scene::finish()
{
    for (uint32_t i = 0; i < _solids.size(); ++i) {
        enterInSight(_solidsInSight, i, _solids[i].center, _solids[i].radius);
        enterInShade(_solidsInShade, i, _solids[i].center, _solids[i].radius);
    }
    for (uint32_t i = 0; i < _plants.size(); ++i) {
        enterInSight(_plantsInSight, i, _plants[i].center, _plants[i].radius);
        enterInShade(_plantsInShade, i, _plants[i].center, _plants[i].radius);
    }
    for (uint32_t i = 0; i < _rods.size(); ++i) {
        const Vec3 span = _rods[i].to - _rods[i].from;
        enterInSight(_rodsInSight, i, _rods[i].from + span * 0.5,
                     std::sqrt(dot(span, span)) / 2 + _rods[i].radius);
    }
    for (PlaceTable* table :
         {&_solidsInSight, &_plantsInSight, &_rodsInSight, &_solidsInShade, &_plantsInShade})
        table->finish();
}

double Scene::sunlight(const Vec3& point) const
{
    const Ray ray{point, sun()};
    const double height = point.z - _landscape.elevation(point.x, point.y);
    const double x = point.x - ray.direction.x / ray.direction.z * height;
    const double y = point.y - ray.direction.y / ray.direction.z * height;
    for (uint32_t index : _solidsInShade.at(x, y)) {
        const Solid& body = solid(index);
        size_t face = 0;
        if (meetsSphere(ray, body.center, body.radius) && passSolid(ray, *this, body, face).leave > 0.1)
            return 0;
    }
    double leaves = 0;
    for (uint32_t index : _plantsInShade.at(x, y)) {
        const Plant& shade = plant(index);
        if (!meetsSphere(ray, shade.center, shade.radius)) continue;
        for (size_t i = shade.firstCrown; i < shade.endCrown; ++i) {
            const Passage passage = passCrown(ray, crown(i));
            if (passage.hits()) leaves += std::max(0.0, passage.leave - std::max(0.0, passage.enter));
        }
    }
    return std::max(kLeastSunlight, std::exp(-kShadeDensity * leaves));
}

bool meetsSphere(const Ray& ray, const Vec3& center, double radius)
{
    const Vec3 to = center - ray.origin;
    const double along = dot(to, ray.direction);
    return dot(to, to) - along * along < radius * radius;
}

Passage passCrown(const Ray& ray, const Crown& crown)
{
    const double flatten = crown.radius / crown.halfHeight;
    const Vec3 from = ray.origin - crown.center;
    const Vec3 origin{from.x, from.y, from.z * flatten};
    const Vec3 direction{ray.direction.x, ray.direction.y, ray.direction.z * flatten};
    const double a = dot(direction, direction);
    const double b = dot(origin, direction);
    const double c = dot(origin, origin) - crown.radius * crown.radius;
    const double root = b * b - a * c;
    if (root <= 0) return {};
    const double half = std::sqrt(root);
    return {(-b - half) / a, (-b + half) / a};
}

Passage passSolid(const Ray& ray, const Scene& scene, const Solid& solid, size_t& face)
{
    Passage passage{-std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    for (size_t i = solid.firstFace; i < solid.endFace; ++i) {
        const Face& side = scene.face(i);
        const double slope = dot(side.normal, ray.direction);
        const double distance = side.offset - dot(side.normal, ray.origin);
        if (slope < 0 && distance / slope > passage.enter) {
            passage.enter = distance / slope;
            face = i;
        }
        if (slope > 0) passage.leave = std::min(passage.leave, distance / slope);
        if (slope == 0 && distance < 0) return {};
    }
    return passage.hits() ? passage : Passage{};
}

bool meetsRod(const Ray& ray, const Rod& rod, double& distance)
{
    const Vec3 axis = rod.to - rod.from;
    const Vec3 between = ray.origin - rod.from;
    const double axisAxis = dot(axis, axis);
    const double axisRay = dot(axis, ray.direction);
    const double bottom = axisAxis - axisRay * axisRay;
    if (bottom < 1e-9 * axisAxis) return false;
    const double along = (dot(axis, between) - dot(ray.direction, between) * axisRay) / bottom;
    const double place = std::clamp(along, 0.0, 1.0);
    const Vec3 onRod = rod.from + axis * place;
    distance = dot(onRod - ray.origin, ray.direction);
    const Vec3 gap = ray.at(distance) - onRod;
    return dot(gap, gap) < rod.radius * rod.radius;
}

} // namespace VelBrx::Sample
