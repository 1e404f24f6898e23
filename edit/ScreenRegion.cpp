#include "edit/ScreenRegion.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace {

bool isPerspective(const osg::Matrixd& toWindow)
{
    return toWindow(0, 3) != 0 || toWindow(1, 3) != 0 || toWindow(2, 3) != 0;
}

} // namespace

bool rectanglePlanes(const std::vector<osg::Vec2d>& polygon, int height, const osg::Matrixd& localToWindow,
                     osg::Polytope::PlaneList& planes)
{
    osg::Vec2d min(DBL_MAX, DBL_MAX);
    osg::Vec2d max(-DBL_MAX, -DBL_MAX);
    for (const osg::Vec2d& vertex : polygon)
        for (int axis : {0, 1}) {
            min[axis] = std::min(min[axis], vertex[axis]);
            max[axis] = std::max(max[axis], vertex[axis]);
        }
    if (!(min.x() <= max.x() && min.y() <= max.y())) return false;

    // The mask decides by whole pixels, and its first column and row reach one pixel beyond the window.
    for (int axis : {0, 1}) {
        min[axis] = std::floor(min[axis]) - 1;
        max[axis] = std::floor(max[axis]) + 1;
    }
    const double lower = height - max.y();
    const double upper = height - min.y();
    osg::Polytope rectangle(
        osg::Polytope::PlaneList{osg::Plane(1, 0, 0, -min.x()), osg::Plane(-1, 0, 0, max.x()),
                                 osg::Plane(0, 1, 0, -lower), osg::Plane(0, -1, 0, upper)});
    rectangle.transformProvidingInverse(localToWindow);
    planes = rectangle.getPlaneList();
    // The eye's plane and not the near plane: where that lies is decided when the camera draws.
    const osg::Matrixd& m = localToWindow;
    if (isPerspective(m)) planes.emplace_back(m(0, 3), m(1, 3), m(2, 3), m(3, 3));
    return true;
}

std::vector<osg::Vec4d> toLocal(const std::vector<osg::Vec4d>& worldPlanes, const osg::Matrixd& localToWorld)
{
    std::vector<osg::Vec4d> planes;
    for (const osg::Vec4d& plane : worldPlanes)
        planes.push_back(localToWorld * plane);
    return planes;
}
