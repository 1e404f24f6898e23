#include "store/sample/Landscape.h"

#include "store/sample/Noise.h"

#include <algorithm>
#include <cmath>

namespace VelBrx::Sample {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kMargin = 80; ///< the ground goes on this far outside the square, for slanted rays
constexpr double kBankWidth = 26;

constexpr Ground kGrounds[] = {
    {0x213C42, 0.8, 0.03, 0, 0, 0, 0, 0, 0, 0, 0},              // water
    {0x807954, 1, 0.4, 0.4, 0.45, 5, 1, 0.1, 0.45, 7, 15},      // bank
    {0x718849, 1, 0.55, 0.22, 0.35, 14, 0.3, -0.1, 0.1, 6, 13}, // meadow
    {0, 1, 0.42, 0.16, 0.45, 0, 0, 0, 0, 0, 0},                 // field
    {0x668042, 1, 0.5, 0.3, 0.45, 1.6, 1, -1, 0.96, 9, 15},     // hedge
    {0x4F452D, 1, 0.34, 0.2, 0.48, 5.4, 0.9, -1, 0, 13, 25},    // forest
    {0, 1, 0.55, 0.08, 0.2, 9, 0.45, -1, 0.4, 5, 11},           // garden
    {0x5B5C5E, 0.5, 0.15, 0, 0, 0, 0, 0, 0, 0, 0},              // asphalt
    {0xEDEDE8, 0, 0.75, 0, 0, 0, 0, 0, 0, 0, 0},                // marking
    {0x99958F, 0.5, 0.36, 0, 0, 0, 0, 0, 0, 0, 0},              // pavement
};

/// Pieces of land with a colour each, in rows along the road.
struct Plots
{
    double width;
    double length;
    double skew;
    uint32_t colors[6];
};

constexpr Plots kFields = {62, 130, 0.22, {0xA18C54, 0x7D8F42, 0xC7B238, 0x806345, 0x598238, 0xB2A16B}};
constexpr Plots kGardens = {12.25, 14, 0, {0x668045, 0x70824A, 0x7A874F, 0x5C753D, 0x736E4A, 0x9E968A}};

} // namespace

Landscape::Landscape(double size, uint64_t seed)
    : _size(size), _seed(seed), _rasterWidth(static_cast<int64_t>(size + 2 * kMargin) + 3)
{
    Random random(seed ^ 0xA5A5);
    for (double& phase : _phase)
        phase = random.between(0, 2 * kPi);
    for (int64_t row = 0; row < _rasterWidth; ++row)
        for (int64_t column = 0; column < _rasterWidth; ++column)
            _raster.push_back(static_cast<float>(
                shape(static_cast<double>(column) - kMargin, static_cast<double>(row) - kMargin)));
}

const Ground& Landscape::ground(Cover cover)
{
    return kGrounds[static_cast<size_t>(cover)];
}

double Landscape::roadY(double x) const
{
    return 0.45 * _size + 0.035 * _size * std::sin(1.7 * kPi * x / _size + _phase[3]);
}

double Landscape::powerLineX(double y) const
{
    return mix(0.9, 0.66, y / _size) * _size;
}

double Landscape::insideVillage(double x, double across) const
{
    const double depth = across > 0 ? std::min(0.24 * _size, 106 + 26 * noise(x / 130, 7, _seed + 15))
                                    : std::min(0.16 * _size, 62 + 16 * noise(x / 110, 9, _seed + 16));
    return std::min({depth - std::abs(across), x - 0.14 * _size, 0.8 * _size - x});
}

/// Metres from the water's edge; negative in the river.
double Landscape::beyondBank(double x, double y) const
{
    const double middle = 0.2 * _size + 0.045 * _size * std::sin(2.4 * kPi * x / _size + _phase[0]) +
                          std::min(9.0, 0.01 * _size) * std::sin(x / 61 + _phase[1]);
    const double halfWidth = 10 + 2.5 * std::sin(x / 83 + _phase[2]) + 1.2 * noise(x / 9, 0, _seed + 11);
    return std::abs(y - middle) - halfWidth;
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
    const double fromRoad = std::abs(y - roadY(x));
    const double roadBed = baseShape(x, roadY(x)) + 0.25 - 0.02 * fromRoad;
    const double dry = mix(roadBed, baseShape(x, y) + small, smoothStep(5.5, 17, fromRoad));

    const double water = 108 - 0.0015 * x;
    const double fromRiver = beyondBank(x, y);
    const double bank = water + std::clamp(0.45 * fromRiver, 0.0, 1.6);
    return mix(bank, dry, smoothStep(2, kBankWidth, fromRiver));
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
    return Vec3(elevation(x - 0.7, y) - elevation(x + 0.7, y), elevation(x, y - 0.7) - elevation(x, y + 0.7),
                1.4)
        .normalized();
}

Cover Landscape::cover(double x, double y) const
{
    const double fromRiver = beyondBank(x, y);
    if (fromRiver <= 0) return Cover::Water;
    if (fromRiver < 6) return Cover::Bank;
    const double across = y - roadY(x);
    const double fromRoad = std::abs(across);
    if (fromRoad < 3.75) {
        const bool isEdgeLine = fromRoad > 3.2 && fromRoad < 3.45;
        const bool isCenterLine = fromRoad < 0.13 && std::fmod(x + 1200, 12) < 6;
        return isEdgeLine || isCenterLine ? Cover::Marking : Cover::Asphalt;
    }
    if (insideVillage(x, across) > 0) {
        const double fromStreet = std::abs(std::remainder(x - 0.5 * _size, kStreetSpacing));
        if (fromStreet < 2.6 && fromRoad > 6) return Cover::Asphalt;
        return fromStreet < 3.9 || fromRoad < 6 ? Cover::Pavement : Cover::Garden;
    }
    const double forestEdge =
        0.74 * _size + 0.035 * _size * noise(x / 140, 3, _seed + 12) + 6 * noise(x / 22, 5, _seed + 13);
    if (y > forestEdge) {
        const bool isClearing = noise(x / 75, y / 75, _seed + 14) > 0.55 || std::abs(x - powerLineX(y)) < 19;
        return isClearing ? Cover::Meadow : Cover::Forest;
    }
    if (across > 0.17 * _size || fromRiver < kBankWidth) return Cover::Meadow;
    const bool isRowEnd =
        fromRoad < 11 ? fromRoad > 7 : std::abs(std::remainder(across, kFields.length)) < 1.5;
    const double row = std::round(across / kFields.length);
    return isRowEnd && noise(x / 120, row * 7.3, _seed + 32) > -0.1 ? Cover::Hedge : Cover::Field;
}

Color Landscape::color(double x, double y, Cover cover) const
{
    const double shade = 1 + ground(cover).variation * (0.09 * noise(x / 13, y / 13, _seed + 21) +
                                                        0.08 * noise(x / 0.9, y / 0.9, _seed + 22));
    if (cover != Cover::Field && cover != Cover::Garden) return rgb(ground(cover).color) * shade;
    const Plots& plots = cover == Cover::Field ? kFields : kGardens;
    const double across = y - roadY(x);
    const double along = x + plots.skew * across;
    const auto column = static_cast<int64_t>(std::floor(along / plots.width));
    const auto row = static_cast<int64_t>(std::floor(across / plots.length));
    const auto kind = static_cast<size_t>(latticeValue(column, row, _seed + 25) * std::size(plots.colors));
    const double furrows = 0.035 * std::sin(along * 2 * kPi / 2.4);
    return rgb(plots.colors[kind]) * (shade + furrows);
}

} // namespace VelBrx::Sample
