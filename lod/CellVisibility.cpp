#include "lod/CellVisibility.h"

#include "lod/PixelScale.h"

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/FrameStamp.h>

#include <osg/Polytope>

#include <algorithm>
#include <cmath>
#include <limits>

using VelBrx::kFieldOfViewDivisor;
using VelOsgDBBrx::FrameStamp;
using VelOsgUtils::CameraState;

namespace {

/// `osg::Plane::intersect` of the corners is negative: none lies strictly on the positive side.
bool rejects(const osg::Plane& plane, const std::array<osg::Vec3f, 8>& corners)
{
    for (const osg::Vec3f& corner : corners)
        if (plane.distance(corner) > 0.0f) return false;
    return true;
}

bool isAffine(const osg::Matrixd& matrix)
{
    return matrix(0, 3) == 0 && matrix(1, 3) == 0 && matrix(2, 3) == 0 && matrix(3, 3) == 1;
}

osg::Vec3d middleOf(const CellTable::Subtree& subtree)
{
    return (osg::Vec3d(subtree.min) + osg::Vec3d(subtree.max)) / 2;
}

/// How far a box reaches from its middle along a direction, which need not have unit length.
double reachAlong(const osg::Vec3d& direction, const CellTable::Subtree& subtree)
{
    const osg::Vec3d size = osg::Vec3d(subtree.max) - osg::Vec3d(subtree.min);
    return (std::abs(direction.x()) * size.x() + std::abs(direction.y()) * size.y() +
            std::abs(direction.z()) * size.z()) /
           2;
}

} // namespace

std::array<osg::Vec3f, 8> getBox(const osg::Vec3f& min, const osg::Vec3f& max)
{
    return {osg::Vec3f(min.x(), min.y(), min.z()), osg::Vec3f(max.x(), min.y(), min.z()),
            osg::Vec3f(max.x(), max.y(), min.z()), osg::Vec3f(min.x(), max.y(), min.z()),
            osg::Vec3f(min.x(), min.y(), max.z()), osg::Vec3f(max.x(), min.y(), max.z()),
            osg::Vec3f(max.x(), max.y(), max.z()), osg::Vec3f(min.x(), max.y(), max.z())};
}

RegionTest::RegionTest(const FrameStamp& frameStamp, const osg::Matrixd& localToWorld)
    : _localToWorld(localToWorld), _isAffine(isAffine(localToWorld)),
      _planesPerGroup(frameStamp.planesPerGroup)
{
    if (_planesPerGroup < 1) return;
    const size_t groups = frameStamp.planes.size() / static_cast<size_t>(_planesPerGroup);
    for (size_t i = 0; i < groups * static_cast<size_t>(_planesPerGroup); ++i)
        _planes.emplace_back(frameStamp.planes[i]);
}

bool RegionTest::isInside(const CellTable::Cell& cell) const
{
    if (_planes.empty()) return false;
    std::array<osg::Vec3f, 8> corners = getBox(cell.center - cell.halfSize, cell.center + cell.halfSize);
    for (osg::Vec3f& corner : corners)
        corner = _localToWorld.preMult(corner);

    const size_t groupSize = static_cast<size_t>(_planesPerGroup);
    for (size_t group = 0; group < _planes.size(); group += groupSize) {
        size_t i = 0;
        while (i < groupSize && !rejects(_planes[group + i], corners))
            ++i;
        if (i == groupSize) return true;
    }
    return false;
}

/// All corners of the subtree's box lie on the positive sides of a group, by more than single precision takes
/// from the world coordinates of a cell's corners.
bool RegionTest::includes(const CellTable::Subtree& subtree) const
{
    if (_planes.empty() || !_isAffine) return false;
    const osg::Vec3d middle = _localToWorld.preMult(middleOf(subtree));
    const auto isOnPositiveSide = [&](const osg::Plane& plane) {
        const osg::Vec3d normal(plane[0], plane[1], plane[2]);
        const double reach = reachAlong(osg::Matrixd::transform3x3(_localToWorld, normal), subtree);
        double terms = std::abs(plane[3]) + reach;
        for (int axis = 0; axis < 3; ++axis)
            terms += std::abs(normal[axis] * middle[axis]);
        return normal * middle + plane[3] - reach > 1e-6 * terms;
    };
    const auto groupSize = static_cast<std::ptrdiff_t>(_planesPerGroup);
    for (auto group = _planes.begin(); group != _planes.end(); group += groupSize)
        if (std::all_of(group, group + groupSize, isOnPositiveSide)) return true;
    return false;
}

RegionVisibility::RegionVisibility(const FrameStamp& frameStamp, const osg::Matrixd& localToWorld)
    : _region(frameStamp, localToWorld)
{
}

int RegionVisibility::checkCellIsVisiable(const CellTable::Cell& cell) const
{
    return _region.isInside(cell) ? 2 : 1;
}

FrustumSides::FrustumSides(const osg::Matrixd& localToClip, bool hasDepths)
{
    osg::Polytope frustum;
    frustum.setToUnitFrustum(hasDepths, hasDepths);
    _count = frustum.getPlaneList().size();
    frustum.transformProvidingInverse(localToClip);
    for (size_t i = 0; i < _count; ++i) {
        const osg::Plane& plane = frustum.getPlaneList()[i];
        _sides[i] = {plane[0], plane[1], plane[2], plane[3]};
    }
}

/// A plane rejects a box when no corner lies strictly on its positive side. One corner decides: the farthest
/// along the normal. Rounding is monotonic, so no other corner's distance comes out greater, and the answer
/// equals that of all eight to the last bit.
bool FrustumSides::exclude(const CellTable::Cell& cell) const
{
    const osg::Vec3f min = cell.center - cell.halfSize;
    const osg::Vec3f max = cell.center + cell.halfSize;
    for (size_t i = 0; i < _count; ++i) {
        const Side& side = _sides[i];
        const float x = side.a < 0 ? min.x() : max.x();
        const float y = side.b < 0 ? min.y() : max.y();
        const float z = side.c < 0 ? min.z() : max.z();
        if (!(side.distance(x, y, z) > 0.0f)) return true;
    }
    return false;
}

/// The nearest corner decides, for the same reason: no corner of a box in the subtree comes out nearer.
bool FrustumSides::include(const CellTable::Subtree& subtree) const
{
    for (size_t i = 0; i < _count; ++i) {
        const Side& side = _sides[i];
        const float x = side.a < 0 ? subtree.max.x() : subtree.min.x();
        const float y = side.b < 0 ? subtree.max.y() : subtree.min.y();
        const float z = side.c < 0 ? subtree.max.z() : subtree.min.z();
        if (!(side.distance(x, y, z) > 0.0f)) return false;
    }
    return true;
}

CameraGeometry::CameraGeometry(const CameraState& camera)
{
    double aspect = 0, near = 0, far = 0;
    perspective = camera.projection.getPerspective(fieldOfViewY, aspect, near, far);
    if (!perspective) {
        double left = 0, right = 0, bottom = 0, top = 0;
        camera.projection.getOrtho(left, right, bottom, top, near, far);
        orthoWidth = std::abs(right - left);
        orthoHeight = std::abs(top - bottom);
    }
    camera.view.getLookAt(eye, center, up, 1.0);
}

CameraVisibility::CameraVisibility(const CameraState& camera, const FrameStamp& frameStamp,
                                   const osg::Matrixd& localToWorld)
    : _sides(localToWorld * camera.view * camera.projection, camera.hasDepths), _localToWorld(localToWorld),
      _height(camera.height), _region(frameStamp, localToWorld)
{
    const CameraGeometry geometry(camera);
    _perspective = geometry.perspective;
    _tangent = std::tan(geometry.fieldOfViewY / kFieldOfViewDivisor);
    _eye = geometry.eye;
    _orthoScale = _height / geometry.orthoHeight;
    osg::Vec3d forward = geometry.center - geometry.eye;
    forward.normalize();
    _forward = forward;
    double squares = 0;
    for (int axis = 0; axis < 3; ++axis) {
        const osg::Vec3d row(localToWorld(axis, 0), localToWorld(axis, 1), localToWorld(axis, 2));
        _depthSlope[axis] = row * osg::Vec3d(_forward);
        squares += row.length2();
    }
    _greatestScale = isAffine(localToWorld) ? std::sqrt(squares) : std::numeric_limits<double>::infinity();
}

int CameraVisibility::checkCellIsVisiable(const CellTable::Cell& cell) const
{
    if (_sides.exclude(cell)) return 0;
    if (2 * projectedSize(cell) < 1.0) return 0;
    if (!_region.hasRegion()) return 2;
    return _region.isInside(cell) ? 2 : 1;
}

bool CameraVisibility::wantsAll(const CellTable::Subtree& subtree) const
{
    if (!_sides.include(subtree) || (_region.hasRegion() && !_region.includes(subtree))) return false;
    if (!_perspective) return 2 * (_orthoScale * subtree.shortest) >= 1.0;
    constexpr double kRounding = 1 + 1e-9;
    return 2 * _height * subtree.shortest >= std::abs(_tangent) * greatestDepth(subtree) * kRounding;
}

/// No centre of a cell in the subtree has a greater one, on either side of the eye, however it is rounded: of
/// a millionth of the distance from the eye single precision takes a third, of 1e-14 of coordinates double
/// precision.
double CameraVisibility::greatestDepth(const CellTable::Subtree& subtree) const
{
    const osg::Vec3d world = _localToWorld.preMult(middleOf(subtree));
    const osg::Vec3d toMiddle = world - _eye;
    const double distance = toMiddle.length() + _greatestScale * (subtree.max - subtree.min).length();
    const double rounding = 1e-6 * distance + 1e-14 * (world.length() + _eye.length());
    return std::abs(toMiddle * osg::Vec3d(_forward)) + reachAlong(_depthSlope, subtree) + rounding;
}

/// The depth is narrowed to single precision after the eye has been taken off, so that it is as exact at
/// coordinates of seven digits as near the origin.
double CameraVisibility::projectedSize(const CellTable::Cell& cell) const
{
    if (!_perspective) return _orthoScale * cell.resolutionLength;
    const osg::Vec3f toCenter = _localToWorld.preMult(osg::Vec3d(cell.center)) - _eye;
    const float depth = toCenter * _forward;
    return _height / std::abs(_tangent * depth) * cell.resolutionLength;
}

SpacingVisibility::SpacingVisibility(const CameraState& camera, const FrameStamp& frameStamp,
                                     const osg::Matrixd& localToWorld, double pixels)
    : _sides(localToWorld * camera.view * camera.projection, camera.hasDepths),
      _region(frameStamp, localToWorld)
{
    const osg::Matrixd localToClip = localToWorld * camera.view * camera.projection;
    _depthSlope.set(localToClip(0, 3), localToClip(1, 3), localToClip(2, 3));
    _depthAtOrigin = localToClip(3, 3);
    for (int axis = 0; axis < 3; ++axis)
        _depthReach[axis] = std::abs(_depthSlope[axis]);
    _depthOfLength =
        pixelsOfUnit(localToClip, camera.width, camera.height) * VelBrx::pointSpacing(1.0) / pixels;
}

int SpacingVisibility::checkCellIsVisiable(const CellTable::Cell& cell) const
{
    if (_sides.exclude(cell) || !spansEnough(cell)) return 0;
    if (!_region.hasRegion()) return 2;
    return _region.isInside(cell) ? 2 : 1;
}

/// Depths are those of points in the subtree's box, and no depth that counts is greater than the centre's.
bool SpacingVisibility::wantsAll(const CellTable::Subtree& subtree) const
{
    if (!_sides.include(subtree) || (_region.hasRegion() && !_region.includes(subtree))) return false;
    double least = _depthAtOrigin, greatest = _depthAtOrigin, terms = std::abs(_depthAtOrigin);
    for (int axis = 0; axis < 3; ++axis) {
        const double atMin = _depthSlope[axis] * subtree.min[axis],
                     atMax = _depthSlope[axis] * subtree.max[axis];
        least += std::min(atMin, atMax);
        greatest += std::max(atMin, atMax);
        terms += std::max(std::abs(atMin), std::abs(atMax));
    }
    const double rounding = 1e-12 * terms;
    return least > rounding && _depthOfLength * subtree.shortest >= greatest + rounding;
}

/// The depth that counts is the depth of the cell's centre, but no more than twice its nearest corner's: a
/// cell next to the eye is judged by its near points, and one that the eye is in is wanted. Where a cell is
/// not wanted no cell below it is: its length is below half the depth that counts, at most the depth of the
/// nearest corner, and the cells below it have shorter lengths and no corner that is nearer.
bool SpacingVisibility::spansEnough(const CellTable::Cell& cell) const
{
    const double center = _depthSlope * osg::Vec3d(cell.center) + _depthAtOrigin;
    const double reach = _depthReach * osg::Vec3d(cell.halfSize);
    if (!(center + reach > 0)) return false; // behind the eye
    return _depthOfLength * cell.resolutionLength >= std::min(center, 2 * (center - reach));
}
