#pragma once

#include "store/sample/Geometry.h"

#include <cstdint>
#include <vector>

namespace VelBrx::Sample {

/// What covers the ground.
enum class Cover
{
    Water,
    Asphalt,
    Marking,
    Pavement,
    Garden,
    Meadow,
    Field,
    Forest,
    Bank
};

/// Shape and cover of the ground of a square of `size` metres with its south-west corner at the origin: from
/// south to north fields, a river, more fields, a road with a village, meadows, a wooded hillside. Immutable
/// once made; any thread may use it.
class Landscape
{
public:
    Landscape(double size, uint64_t seed);

    double size() const { return _size; }
    uint64_t seed() const { return _seed; }

    /// Elevation of the ground, or of the water.
    double elevation(double x, double y) const;
    Vec3 normal(double x, double y) const;

    Cover cover(double x, double y) const;

    /// Colour of the ground in even light.
    Color color(double x, double y, Cover cover) const;

    /// \name Lines that the landscape follows
    /// @{
    double riverY(double x) const;
    double riverHalfWidth(double x) const;
    double roadY(double x) const;
    double roadSlope(double x) const; ///< dy / dx
    double forestEdgeY(double x) const;
    bool isVillage(double x) const;      ///< houses line the road here
    double villageNorth(double x) const; ///< where its gardens end, metres north of the road
    double villageSouth(double x) const; ///< likewise, negative
    bool isSettled(double x, double y) const;
    bool isClearing(double x, double y) const;

    /// Distance to the middle of the nearest side street, which leave the road northwards and southwards.
    double streetDistance(double x) const;
    /// @}

    /// \name The power line's course
    /// @{
    double powerLineX(double y) const;
    /// @}

    static constexpr double kRoadHalfWidth = 3.75;
    static constexpr double kStreetHalfWidth = 2.6;

private:
    double shape(double x, double y) const;
    double baseShape(double x, double y) const;
    double waterLevel(double x) const;
    Color gardenColor(double x, double y) const;
    Cover roadCover(double x, double across) const;

    double _size;
    uint64_t _seed;
    double _phase[4];
    int64_t _rasterWidth = 0;
    std::vector<float> _raster; ///< elevations every metre, from one metre outside the square
};

} // namespace VelBrx::Sample
