#include "lod/CellVisibility.h"

#include <VelOsgDBBrx/FrameStamp.h>

#include <osg/Polytope>

#include <cmath>

using VelOsgDBBrx::FrameStamp;

namespace {

/// Divisor of the field of view in the size test. The test is calibrated with this very value.
constexpr double kFieldOfViewDivisor = 3.1415926;

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

CameraVisibility::CameraVisibility(const FrameStamp& frameStamp, const osg::Matrixd& localToWorld)
    : _localToWorld(localToWorld), _perspective(frameStamp.perspective), _height(frameStamp.height),
      _tangent(std::tan(frameStamp.fieldOfViewY / kFieldOfViewDivisor)), _eye(frameStamp.eye),
      _orthoScale(frameStamp.height / frameStamp.orthoHeight), _region(frameStamp, localToWorld)
{
    osg::Polytope frustum;
    frustum.setToUnitFrustum(false, false);
    frustum.transformProvidingInverse(localToWorld * frameStamp.view * frameStamp.projection);
    for (size_t i = 0; i < _sides.size(); ++i) {
        const osg::Plane& plane = frustum.getPlaneList()[i];
        _sides[i] = {plane[0], plane[1], plane[2], plane[3]};
    }
    osg::Vec3d forward = frameStamp.center - frameStamp.eye;
    forward.normalize();
    _forward = forward;
}

int CameraVisibility::checkCellIsVisiable(const CellTable::Cell& cell) const
{
    if (isOutsideFrustum(cell)) return 0;
    if (2 * projectedSize(cell) < 1.0) return 0;
    if (!_region.hasRegion()) return 2;
    return _region.isInside(cell) ? 2 : 1;
}

/// A plane rejects a box when no corner lies strictly on its positive side. One corner decides: the farthest
/// along the normal. Rounding is monotonic, so no other corner's distance comes out greater, and the answer
/// equals that of all eight to the last bit.
bool CameraVisibility::isOutsideFrustum(const CellTable::Cell& cell) const
{
    const osg::Vec3f min = cell.center - cell.halfSize;
    const osg::Vec3f max = cell.center + cell.halfSize;
    for (const SidePlane& side : _sides) {
        const float x = side.a < 0 ? min.x() : max.x();
        const float y = side.b < 0 ? min.y() : max.y();
        const float z = side.c < 0 ? min.z() : max.z();
        const float distance = static_cast<float>(side.a * x + side.b * y + side.c * z + side.d);
        if (!(distance > 0.0f)) return true;
    }
    return false;
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
