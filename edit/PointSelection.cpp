#include "edit/AttributeKeys.h"

#include <VelOsgDBBrx/PointSelection.h>

#include <cmath>
#include <string>

namespace VelOsgDBBrx {

namespace {

using VelBrx::Status;

constexpr double kLargestCoordinate = 1e15; ///< products of differences stay finite

template <class Vec>
bool isCoordinate(const Vec& v)
{
    for (int axis = 0; axis < static_cast<int>(Vec::num_components); ++axis)
        if (!(std::abs(v[axis]) <= kLargestCoordinate)) return false;
    return true;
}

/// `what` begins the message.
Status checkVertices(const std::string& what, const std::vector<osg::Vec2d>& polygon)
{
    if (polygon.size() < 3)
        return Status::failure(what + " has " + std::to_string(polygon.size()) +
                               " vertices; give three or more");
    for (size_t i = 0; i < polygon.size(); ++i)
        if (!isCoordinate(polygon[i]))
            return Status::failure(what + ": vertex " + std::to_string(i + 1) +
                                   " is no place; give two numbers of at most 1e15");
    return {};
}

Status checkMatrix(const std::string& what, const osg::Matrixd& matrix)
{
    for (int i = 0; i < 16; ++i)
        if (!std::isfinite(matrix.ptr()[i]))
            return Status::failure(what + ": its camera matrix is not finite; give that of the window");
    return {};
}

Status checkRange(const std::string& what, const ValueRange& range)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (range.low <= range.high && range.low < kInfinity && range.high > -kInfinity) return {};
    return Status::failure("the range \"" + what + "\" is empty; give the smaller number first");
}

Status check(const Everywhere&)
{
    return {};
}

/// Whether the matrix tells near from far.
bool hasDepth(const osg::Matrixd& vpw)
{
    return osg::Vec3d(vpw(0, 3), vpw(1, 3), vpw(2, 3)).length2() > 0 ||
           osg::Vec3d(vpw(0, 2), vpw(1, 2), vpw(2, 2)).length2() > 0;
}

Status checkFront(const ScreenPlace& place)
{
    constexpr double kLargestRadius = 1000;
    if (!place.frontTolerance) return {};
    if (!(*place.frontTolerance >= 0 && *place.frontTolerance <= kLargestCoordinate))
        return Status::failure("the front surface's tolerance is no length; give a number from 0 to 1e15");
    if (!(place.frontRadius >= 0 && place.frontRadius <= kLargestRadius))
        return Status::failure("the front surface's radius is out of range; give 0 to 1000 pixels");
    if (hasDepth(place.vpw)) return {};
    return Status::failure("the camera matrix has no depth, so that nothing is in front; give the window's");
}

Status check(const ScreenPlace& place)
{
    if (place.width < 1 || place.height < 1)
        return Status::failure("the screen polygon's window has no size; give width and height in pixels");
    const Status vertices = checkVertices("the screen polygon", place.polygon);
    const Status matrix = vertices ? checkMatrix("the screen polygon", place.vpw) : vertices;
    return matrix ? checkFront(place) : matrix;
}

Status check(const MapPlace& place)
{
    const Status vertices = checkVertices("the map polygon", place.polygon);
    return vertices ? checkRange("heights", place.heights) : vertices;
}

Status check(const BoxPlace& place)
{
    if (!isCoordinate(place.low) || !isCoordinate(place.high))
        return Status::failure("a corner of the box is no place; give three numbers of at most 1e15");
    for (int axis = 0; axis < 3; ++axis)
        if (place.low[axis] > place.high[axis])
            return Status::failure("the box is empty; give its lowest corner first");
    return {};
}

Status check(const SpherePlace& place)
{
    if (!isCoordinate(place.center))
        return Status::failure("the sphere's center is no place; give three numbers of at most 1e15");
    if (place.radius >= 0 && place.radius <= kLargestCoordinate) return {};
    return Status::failure("the sphere's radius is no length; give a number from 0 to 1e15");
}

Status check(const GrownPlace& place)
{
    constexpr double kShortest = 1e-6; // distances are counted in steps of it
    constexpr double kLongest = 1e6;
    constexpr double kRightAngle = 90;
    if (!isCoordinate(place.from))
        return Status::failure("growth begins at no place; give three numbers of at most 1e15");
    if (!(place.distance >= kShortest && place.distance <= kLongest))
        return Status::failure("the distance of neighbours is out of range; give 1e-6 to 1e6");
    if (place.angle && !(*place.angle > 0 && *place.angle <= kRightAngle))
        return Status::failure("the angle of planes is out of range; give above 0 to 90 degrees");
    if (place.limit < 1) return Status::failure("growth has a limit below 1 point; give 1 or more");
    return {};
}

Status check(const AttributeRanges& ranges)
{
    for (const auto& [key, range] : kAttributeKeys)
        if (const Status status = checkRange(key, ranges.*range); !status) return status;
    if (ranges.classes.none()) return Status::failure("no class is chosen; give one or more, or leave it");
    return {};
}

/// Polygons with fewer than three vertices contain nothing; a stack may have them.
Status check(const std::string& what, const std::vector<ScreenPolygon>& polygons)
{
    for (const ScreenPolygon& polygon : polygons) {
        for (const osg::Vec2d& vertex : polygon.vertices)
            if (!isCoordinate(vertex)) return Status::failure(what + " has a vertex that is no place");
        if (const Status status = checkMatrix(what, polygon.vpw); !status) return status;
    }
    return {};
}

Status check(const DrawnPoints& drawn)
{
    for (const auto* planes : {&drawn.clipPlanes, &drawn.sectionPlanes})
        for (const osg::Vec4d& plane : *planes)
            if (!plane.valid() || std::isinf(plane.length2()))
                return Status::failure("a clip plane is not finite; give four numbers a, b, c, d");
    if (drawn.planesPerSection > 0 &&
        drawn.sectionPlanes.size() % static_cast<size_t>(drawn.planesPerSection))
        return Status::failure("the last section has fewer planes than the others; give all of them");
    for (const ScreenSegment& segment : drawn.segments)
        if (const Status status = check("a segment's polygon", segment.polygons); !status) return status;
    return {};
}

} // namespace

Status checkSelection(const PointSelection& selection)
{
    if (selection.outside && std::holds_alternative<Everywhere>(selection.place))
        return Status::failure("there is nothing outside of everywhere; give a place or leave the outside");
    const auto* screen = std::get_if<ScreenPlace>(&selection.place);
    if (selection.outside && screen && screen->frontTolerance)
        return Status::failure(
            "outside of a polygon nothing is in front; leave the outside or the tolerance");
    for (const Status& status : {std::visit([](const auto& place) { return check(place); }, selection.place),
                                 check("a polygon of the selection", selection.selected),
                                 check(selection.attributes), check(selection.drawn)})
        if (!status) return status;
    return {};
}

} // namespace VelOsgDBBrx
