#include "store/sample/Landscape.h"

#include "store/sample/Noise.h"

#include <algorithm>
#include <cmath>

namespace VelBrx::Sample {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kStreetSpacing = 104;
constexpr double kMargin = 80; ///< the ground goes on this far outside the square, for slanted rays
constexpr double kBankWidth = 26;
constexpr double kFieldLength = 130;
constexpr double kFieldWidth = 62;

double distanceToMultiple(double value, double step)
{
    return std::abs(value - std::round(value / step) * step);
}

} // namespace

Landscape::Landscape(double size, uint64_t seed) : _size(size), _seed(seed)
{
    Random random(seed ^ 0xA5A5);
    for (double& phase : _phase)
        phase = random.between(0, 2 * kPi);
    _rasterWidth = static_cast<int64_t>(size + 2 * kMargin) + 3;
    _raster.resize(static_cast<size_t>(_rasterWidth * _rasterWidth));
    for (int64_t row = 0; row < _rasterWidth; ++row)
        for (int64_t column = 0; column < _rasterWidth; ++column)
            _raster[static_cast<size_t>(row * _rasterWidth + column)] = static_cast<float>(
                shape(static_cast<double>(column) - kMargin, static_cast<double>(row) - kMargin));
}

double Landscape::riverY(double x) const
{
    return 0.2 * _size + 0.045 * _size * std::sin(2.4 * kPi * x / _size + _phase[0]) +
           std::min(9.0, 0.01 * _size) * std::sin(x / 61 + _phase[1]);
}

double Landscape::riverHalfWidth(double x) const
{
    return 10 + 2.5 * std::sin(x / 83 + _phase[2]) + 1.2 * noise(x / 9, 0, _seed + 11);
}

double Landscape::roadY(double x) const
{
    return 0.45 * _size + 0.035 * _size * std::sin(1.7 * kPi * x / _size + _phase[3]);
}

double Landscape::roadSlope(double x) const
{
    return 0.035 * 1.7 * kPi * std::cos(1.7 * kPi * x / _size + _phase[3]);
}

double Landscape::forestEdgeY(double x) const
{
    return 0.74 * _size + 0.035 * _size * noise(x / 140, 3, _seed + 12) + 6 * noise(x / 22, 5, _seed + 13);
}

bool Landscape::isVillage(double x) const
{
    return x > 0.14 * _size && x < 0.8 * _size;
}

double Landscape::villageNorth(double x) const
{
    return std::min(0.24 * _size, 106 + 26 * noise(x / 130, 7, _seed + 15));
}

double Landscape::villageSouth(double x) const
{
    return -std::min(0.16 * _size, 62 + 16 * noise(x / 110, 9, _seed + 16));
}

bool Landscape::isSettled(double x, double y) const
{
    const double across = y - roadY(x);
    return isVillage(x) && across < villageNorth(x) && across > villageSouth(x);
}

bool Landscape::isClearing(double x, double y) const
{
    return noise(x / 75, y / 75, _seed + 14) > 0.55 || std::abs(x - powerLineX(y)) < 19;
}

double Landscape::streetDistance(double x) const
{
    return distanceToMultiple(x - 0.5 * _size, kStreetSpacing);
}

double Landscape::powerLineX(double y) const
{
    return mix(0.9, 0.66, y / _size) * _size;
}

double Landscape::waterLevel(double x) const
{
    return 108 - 0.0015 * x;
}

double Landscape::baseShape(double x, double y) const
{
    const double north = smoothStep(0.42, 1.02, y / _size);
    const double south = smoothStep(0.2, -0.1, y / _size);
    return 112 + north * std::min(55.0, 0.06 * _size) + south * 7 +
           (2.5 + 5 * north) * noise(x / 210, y / 210, _seed + 1) + 1.2 * noise(x / 70, y / 70, _seed + 2);
}

double Landscape::shape(double x, double y) const
{
    const double small = 0.35 * noise(x / 19, y / 19, _seed + 3) + 0.1 * noise(x / 5, y / 5, _seed + 4);
    double elevation = baseShape(x, y) + small;

    const double roadCenter = roadY(x);
    const double across = std::abs(y - roadCenter);
    const double roadBed = baseShape(x, roadCenter) + 0.25 - 0.02 * across;
    elevation = mix(roadBed, elevation, smoothStep(5.5, 17, across));

    const double fromRiver = std::abs(y - riverY(x)) - riverHalfWidth(x);
    if (fromRiver <= 0) return waterLevel(x);
    const double bank = waterLevel(x) + std::min(1.6, 0.45 * fromRiver);
    return mix(bank, elevation, smoothStep(2, kBankWidth, fromRiver));
}

double Landscape::elevation(double x, double y) const
{
    const double limit = static_cast<double>(_rasterWidth) - 2.001;
    const double column = std::clamp(x + kMargin, 0.0, limit);
    const double row = std::clamp(y + kMargin, 0.0, limit);
    const auto i = static_cast<int64_t>(column);
    const auto j = static_cast<int64_t>(row);
    const float* corner = &_raster[static_cast<size_t>(j * _rasterWidth + i)];
    const double a = column - static_cast<double>(i);
    const double b = row - static_cast<double>(j);
    return mix(mix(corner[0], corner[1], a), mix(corner[_rasterWidth], corner[_rasterWidth + 1], a), b);
}

Vec3 Landscape::normal(double x, double y) const
{
    return normalized(
        {elevation(x - 0.7, y) - elevation(x + 0.7, y), elevation(x, y - 0.7) - elevation(x, y + 0.7), 1.4});
}

Cover Landscape::roadCover(double x, double across) const
{
    const double side = std::abs(across);
    const bool isEdgeLine = side > 3.2 && side < 3.45;
    const bool isCenterLine = side < 0.13 && std::fmod(x + 1200, 12) < 6;
    // A crossing in the middle of the village: bars along the road, half a metre apart.
    const bool isCrossing =
        std::abs(x - 0.5 * _size - 14) < 2 && std::fmod(across + 40.25, 1) < 0.5 && side < 3.1;
    return isEdgeLine || isCenterLine || isCrossing ? Cover::Marking : Cover::Asphalt;
}

Cover Landscape::cover(double x, double y) const
{
    const double fromRiver = std::abs(y - riverY(x)) - riverHalfWidth(x);
    if (fromRiver <= 0) return Cover::Water;
    if (fromRiver < 6) return Cover::Bank;
    const double across = y - roadY(x);
    if (std::abs(across) < kRoadHalfWidth) return roadCover(x, across);
    if (isVillage(x)) {
        if (std::abs(across) < 6) return Cover::Pavement;
        if (isSettled(x, y)) {
            const double street = streetDistance(x);
            if (street < kStreetHalfWidth) return Cover::Asphalt;
            return street < kStreetHalfWidth + 1.3 ? Cover::Pavement : Cover::Garden;
        }
    }
    if (y > forestEdgeY(x)) return isClearing(x, y) ? Cover::Meadow : Cover::Forest;
    return y > roadY(x) + 0.17 * _size || fromRiver < kBankWidth ? Cover::Meadow : Cover::Field;
}

/// Lawns, beds and yards, a lot for each house.
Color Landscape::gardenColor(double x, double y) const
{
    const double lot = (x + 1.5 * noise(x / 9, y / 9, _seed + 26)) / 12.25;
    const double depth = (y - roadY(x)) / 14;
    const double kind = latticeValue(static_cast<int64_t>(std::floor(lot)),
                                     static_cast<int64_t>(std::floor(depth)), _seed + 27);
    const Color lawn = mix(Color{0.4, 0.5, 0.27}, Color{0.49, 0.53, 0.31}, kind * 1.6);
    if (kind < 0.7) return lawn;
    if (kind < 0.85) return mix(lawn, {0.47, 0.4, 0.3}, 0.6 + 0.3 * std::sin(lot * 40));
    return kind < 0.93 ? Color{0.62, 0.59, 0.54} : Color{0.36, 0.46, 0.24};
}

Color Landscape::color(double x, double y, Cover cover) const
{
    const double patch = noise(x / 13, y / 13, _seed + 21);
    const double grain = noise(x / 0.9, y / 0.9, _seed + 22);
    const double shade = 1 + 0.09 * patch + 0.08 * grain;
    switch (cover) {
    case Cover::Water:
        return Color{0.13, 0.235, 0.26} * (1 + 0.12 * noise(x / 6, y / 2.2, _seed + 23));
    case Cover::Asphalt:
        return Color{0.355, 0.36, 0.37} * (1 + 0.05 * patch + 0.04 * grain);
    case Cover::Marking:
        return Color{0.93, 0.93, 0.91};
    case Cover::Pavement:
        return Color{0.6, 0.585, 0.56} * (1 + 0.05 * grain);
    case Cover::Garden:
        return gardenColor(x, y) * shade;
    case Cover::Meadow:
        return Color{0.445 + 0.05 * patch, 0.535, 0.285} * shade;
    case Cover::Forest:
        return Color{0.31, 0.27, 0.175} * shade;
    case Cover::Bank:
        return Color{0.5, 0.475, 0.33} * shade;
    case Cover::Field:
        break;
    }
    // Fields lie across the slope, each with its crop and the rows of its sowing.
    constexpr Color kCrops[] = {{0.63, 0.55, 0.33}, {0.49, 0.56, 0.26}, {0.78, 0.7, 0.22},
                                {0.5, 0.39, 0.27},  {0.35, 0.51, 0.22}, {0.7, 0.63, 0.42}};
    const double along = x + 0.22 * y;
    const double across = y - 0.1 * x + 9 * noise(x / 300, y / 300, _seed + 24);
    const auto column = static_cast<int64_t>(std::floor(along / kFieldWidth));
    const auto row = static_cast<int64_t>(std::floor(across / kFieldLength));
    const auto crop = static_cast<size_t>(latticeValue(column, row, _seed + 25) * 6);
    const double rows = 0.035 * std::sin(along * 2 * kPi / 2.4);
    return kCrops[crop] * (shade + rows);
}

} // namespace VelBrx::Sample
