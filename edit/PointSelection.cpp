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

Status check(const ScreenPlace& place)
{
    if (place.width < 1 || place.height < 1)
        return Status::failure("the screen polygon's window has no size; give width and height in pixels");
    const Status vertices = checkVertices("the screen polygon", place.polygon);
    return vertices ? checkMatrix("the screen polygon", place.vpw) : vertices;
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
    for (const Status& status : {std::visit([](const auto& place) { return check(place); }, selection.place),
                                 check("a polygon of the selection", selection.selected),
                                 check(selection.attributes), check(selection.drawn)})
        if (!status) return status;
    return {};
}

} // namespace VelOsgDBBrx
