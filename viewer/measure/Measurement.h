#pragma once

#include "viewer/scene/Units.h"

#include <osg/Vec3d>

#include <optional>
#include <string>
#include <vector>

/// What can be measured.
enum class MeasureKind
{
    POINT,    ///< one point
    DISTANCE, ///< along two points or more
    AREA,     ///< of the polygon of three points or more
    ANGLE,    ///< of three points, at the second
    HEIGHT    ///< of one point above the ground
};

/// In scripts and files: "point", "distance", "area", "angle", "height"; in the order of the kinds.
const std::vector<std::string>& namesOfMeasureKinds();
std::string nameOf(MeasureKind kind);

/// Fewest and most points of a kind.
struct PointRange
{
    size_t fewest;
    size_t most;
};
PointRange pointsOf(MeasureKind kind);

/// Points that were measured, world coordinates.
struct Measurement
{
    MeasureKind kind = MeasureKind::POINT;
    std::vector<osg::Vec3d> points;
    std::optional<double> ground; ///< z of the ground below the point, of a HEIGHT
};

/// A number that was measured.
struct Figure
{
    std::string name; ///< "length", "level", "height", "area", "perimeter", ...
    double value = 0;
    std::string unit; ///< "m", "m²", "°"; empty where nobody states it
    int decimals = 3;

    /// "12.345 m".
    std::string text() const;
};

/// What comes of a measurement; no lengths and areas of geographic coordinates. Distances along slopes are in
/// the unit of x and y, heights in that of z.
///
/// - point: x, y, z
/// - distance: length along the slopes, level length, height of the last point above the first; of two points
///   also the direction, degrees clockwise from grid north
/// - area: of the polygon seen from above, and its perimeter seen so; no area where its outline crosses
/// itself
/// - angle: in space, and as seen from above
/// - height: above the ground, and the ground's z
std::vector<Figure> figuresOf(const Measurement& measurement, const Units& units);

/// Why some of the figures are not there; empty where all are.
std::string remarkOn(const Measurement& measurement, const Units& units);
