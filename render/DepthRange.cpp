#include "render/DepthRange.h"

#include "osgutils/ClipPolygon.h"
#include "render/NearestPoint.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace {

using Polygon = std::vector<osg::Vec3d>;

/// A side plane of the frustum in eye coordinates, as the sum w + sign * axis of clip coordinates.
struct SidePlane
{
    SidePlane(const osg::Matrixd& projection, int axis, double sign)
    {
        for (int row = 0; row < 4; ++row)
            _coefficients[row] = projection(row, 3) + sign * projection(row, axis);
    }

    /// Not negative on the inner side.
    double operator()(const osg::Vec3d& p) const
    {
        return _coefficients[0] * p.x() + _coefficients[1] * p.y() + _coefficients[2] * p.z() +
               _coefficients[3];
    }

private:
    std::array<double, 4> _coefficients;
};

/// Corner numbers as `osg::BoundingBox::corner` counts: bits 0, 1, 2 choose the largest x, y, z.
constexpr int kFaces[6][4] = {{0, 1, 3, 2}, {4, 5, 7, 6}, {0, 1, 5, 4},
                              {2, 3, 7, 6}, {0, 2, 6, 4}, {1, 3, 7, 5}};

/// Share of the farthest depth below which the nearest is looked up among the points.
constexpr double kCloseUp = 0.02;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

} // namespace

std::optional<DepthRange> visibleDepths(const osg::BoundingBoxd& box, const osg::Matrixd& modelView,
                                        const osg::Matrixd& projection)
{
    const SidePlane sides[] = {
        {projection, 0, 1.0}, {projection, 0, -1.0}, {projection, 1, 1.0}, {projection, 1, -1.0}};
    DepthRange range = {kInfinity, -kInfinity};
    for (const auto& face : kFaces) {
        Polygon part;
        for (const int corner : face)
            part.push_back(box.corner(static_cast<unsigned>(corner)) * modelView);
        for (const SidePlane& side : sides)
            part = VelOsgUtils::clipPolygon(part, side);
        for (const osg::Vec3d& point : part) {
            range.nearest = std::min(range.nearest, -point.z());
            range.farthest = std::max(range.farthest, -point.z());
        }
    }
    if (range.nearest > range.farthest) return std::nullopt;
    const bool eyeInside = box.contains(osg::Vec3d() * osg::Matrixd::inverse(modelView));
    if (eyeInside) range.nearest = std::min(range.nearest, 0.0);
    return range;
}

DepthRangeScope::DepthRangeScope(osgUtil::CullVisitor& cull, const osg::BoundingBox& box,
                                 const PointCloudLOD* cloud)
    : _cull(cull), _cloud(cloud),
      _box(box._min, box._max), _before{cull.getCalculatedNearPlane(), cull.getCalculatedFarPlane()}
{
    _cull.setCalculatedNearPlane(std::numeric_limits<double>::max());
    _cull.setCalculatedFarPlane(std::numeric_limits<double>::lowest());
}

DepthRangeScope::~DepthRangeScope()
{
    DepthRange added = {_cull.getCalculatedNearPlane(), _cull.getCalculatedFarPlane()};
    if (added.nearest <= added.farthest) {
        const osg::Matrixd& modelView = *_cull.getModelViewMatrix();
        const osg::Matrixd& projection = *_cull.getProjectionMatrix();
        if (const auto visible = visibleDepths(_box, modelView, projection)) {
            added.nearest = std::max(added.nearest, visible->nearest);
            added.farthest = std::min(added.farthest, visible->farthest);
        }
        if (_cloud && added.nearest < kCloseUp * added.farthest) {
            if (const auto nearest = nearestVisiblePoint(*_cloud, modelView, projection))
                added.nearest = std::max(added.nearest, *nearest);
        }
    }
    _cull.setCalculatedNearPlane(std::min(_before.nearest, added.nearest));
    _cull.setCalculatedFarPlane(std::max(_before.farthest, added.farthest));
}
