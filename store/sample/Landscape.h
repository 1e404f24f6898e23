#pragma once

#include "store/sample/Geometry.h"

#include <cstdint>
#include <vector>

namespace VelBrx::Sample {

/// What covers the ground.
enum class Cover
{
    Water,
    Bank,
    Meadow,
    Field,
    Hedge, ///< between fields and beside the road
    Forest,
    Garden,
    Asphalt,
    Marking,
    Pavement
};

/// What a cover is like, and what grows on it.
struct Ground
{
    uint32_t color;           ///< where there are no plots
    double variation;         ///< how strongly it varies, about 1
    double reflectance;       ///< 0 to 1
    double lowPlants;         ///< share of the pulses that end in low plants
    double lowPlantHeight;    ///< at most, metres
    double spacing;           ///< of higher plants, metres; 0: none
    double chance;            ///< that such a place has a plant
    double clusters;          ///< noise below which there is none
    double shrubs;            ///< share of the plants
    double shortest, tallest; ///< trees, metres
};

/// Shape and cover of the ground of a square of `size` metres with its south-west corner at the origin: from
/// south to north fields, a river, more fields, a road with a village, meadows, a wooded hillside; a power
/// line crosses them. Immutable once made; any thread may use it.
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
    static const Ground& ground(Cover cover);

    /// Colour of the ground in even light.
    Color color(double x, double y, Cover cover) const;

    double roadY(double x) const;
    double powerLineX(double y) const;

    /// Metres to the edge of the village from a place `across` metres north of the road; negative outside.
    double insideVillage(double x, double across) const;

    static constexpr double kStreetSpacing = 104; ///< of side streets, from the middle of the landscape

private:
    double shape(double x, double y) const;
    double baseShape(double x, double y) const;
    double beyondBank(double x, double y) const;

    double _size;
    uint64_t _seed;
    double _phase[4]; ///< of the river's and the road's bends
    int64_t _rasterWidth;
    std::vector<float> _raster; ///< elevations every metre
};

} // namespace VelBrx::Sample
