#include "lod/CellVisibility.h"

#include "lod/PixelScale.h"

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/FrameStamp.h>

#include <osg/Polytope>

#include <algorithm>
#include <cmath>

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

} // namespace

std::array<osg::Vec3f, 8> getBox(const osg::Vec3f& min, const osg::Vec3f& max)
{
    return {osg::Vec3f(min.x(), min.y(), min.z()), osg::Vec3f(max.x(), min.y(), min.z()),
            osg::Vec3f(max.x(), max.y(), min.z()), osg::Vec3f(min.x(), max.y(), min.z()),
            osg::Vec3f(min.x(), min.y(), max.z()), osg::Vec3f(max.x(), min.y(), max.z()),
            osg::Vec3f(max.x(), max.y(), max.z()), osg::Vec3f(min.x(), max.y(), max.z())};
}

RegionTest::RegionTest(const FrameStamp& frameStamp, const osg::Matrixd& localToWorld)
    : _localToWorld(localToWorld), _planesPerGroup(frameStamp.planesPerGroup)
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
        const float distance = static_cast<float>(side.a * x + side.b * y + side.c * z + side.d);
        if (!(distance > 0.0f)) return true;
    }
    return false;
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
}

int CameraVisibility::checkCellIsVisiable(const CellTable::Cell& cell) const
{
    if (_sides.exclude(cell)) return 0;
    if (2 * projectedSize(cell) < 1.0) return 0;
    if (!_region.hasRegion()) return 2;
    return _region.isInside(cell) ? 2 : 1;
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
