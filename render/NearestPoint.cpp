#include "render/NearestPoint.h"

#include <osg/Geode>
#include <osg/Geometry>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace {

/// a x + b y + c z + d.
struct LinearForm
{
    template <class Vec>
    double operator()(const Vec& p) const
    {
        return normal.x() * p.x() + normal.y() * p.y() + normal.z() * p.z() + offset;
    }

    /// Half of the spread of its values over a box.
    double reach(const osg::Vec3d& halfSize) const
    {
        return std::abs(normal.x()) * halfSize.x() + std::abs(normal.y()) * halfSize.y() +
               std::abs(normal.z()) * halfSize.z();
    }

    osg::Vec3d normal;
    double offset;
};

/// Column `column` of a matrix that works on row vectors.
LinearForm columnOf(const osg::Matrixd& matrix, int column)
{
    return {osg::Vec3d(matrix(0, column), matrix(1, column), matrix(2, column)), matrix(3, column)};
}

/// A view of the cloud's coordinates.
class View
{
public:
    View(const osg::Matrixd& modelView, const osg::Matrixd& projection)
    {
        const LinearForm z = columnOf(modelView, 2);
        _depth = {-z.normal, -z.offset};
        const osg::Matrixd toClip = modelView * projection;
        const LinearForm w = columnOf(toClip, 3);
        for (int side = 0; side < 4; ++side) {
            const LinearForm axis = columnOf(toClip, side / 2);
            const double sign = side % 2 ? -1 : 1;
            _sides[static_cast<size_t>(side)] = {w.normal + axis.normal * sign,
                                                 w.offset + axis.offset * sign};
        }
    }

    template <class Vec>
    double depth(const Vec& point) const
    {
        return _depth(point);
    }

    template <class Vec>
    bool isBetweenSides(const Vec& point) const
    {
        return std::all_of(_sides.begin(), _sides.end(),
                           [&point](const LinearForm& side) { return side(point) >= 0; });
    }

    /// The smallest depth of a box before the eye; none for one that is behind it or outside the frustum.
    std::optional<double> nearestDepth(const osg::BoundingBox& box) const
    {
        const osg::Vec3d center(box.center());
        const osg::Vec3d halfSize(osg::Vec3d(box._max) - center);
        for (const LinearForm& side : _sides)
            if (side(center) + side.reach(halfSize) < 0) return std::nullopt;
        const double reach = _depth.reach(halfSize);
        if (_depth(center) + reach <= 0) return std::nullopt;
        return std::max(0.0, _depth(center) - reach);
    }

private:
    LinearForm _depth;
    std::array<LinearForm, 4> _sides;
};

struct NearCell
{
    double nearest;
    const osg::Geode* leaf;
};

std::vector<NearCell> visibleCells(const PointCloudLOD& cloud, const View& view)
{
    std::vector<NearCell> cells;
    for (unsigned i = 0; i < cloud.getNumChildren(); ++i) {
        const osg::Geode* leaf = cloud.getChild(i)->asGeode();
        if (const auto nearest = view.nearestDepth(leaf->getBoundingBox())) cells.push_back({*nearest, leaf});
    }
    std::sort(cells.begin(), cells.end(),
              [](const NearCell& a, const NearCell& b) { return a.nearest < b.nearest; });
    return cells;
}

/// Lowers `nearest` to the smallest depth of the cell's visible points.
void lookAtPoints(const osg::Geode& leaf, const View& view, std::optional<double>& nearest)
{
    for (unsigned i = 0; i < leaf.getNumDrawables(); ++i) {
        const osg::Geometry* geometry = leaf.getDrawable(i)->asGeometry();
        const auto* points =
            geometry ? dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
        if (!points) continue;
        for (const osg::Vec3& point : *points) {
            const double depth = view.depth(point);
            if (depth > 0 && (!nearest || depth < *nearest) && view.isBetweenSides(point)) nearest = depth;
        }
    }
}

} // namespace

std::optional<double> nearestVisiblePoint(const PointCloudLOD& cloud, const osg::Matrixd& modelView,
                                          const osg::Matrixd& projection)
{
    const View view(modelView, projection);
    std::optional<double> nearest;
    for (const NearCell& cell : visibleCells(cloud, view)) {
        if (nearest && cell.nearest >= *nearest) break;
        lookAtPoints(*cell.leaf, view, nearest);
    }
    return nearest;
}
