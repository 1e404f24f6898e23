#include "lod/PixelScale.h"

#include <osg/Vec3d>

#include <algorithm>

namespace {

osg::Vec3d column(const osg::Matrixd& matrix, int number)
{
    return osg::Vec3d(matrix(0, number), matrix(1, number), matrix(2, number));
}

/// Along one axis: `axis` is a clip coordinate's slope in local coordinates.
double pixelsAlong(osg::Vec3d axis, const osg::Vec3d& depthSlope, double pixels)
{
    if (const double square = depthSlope.length2(); square > 0)
        axis -= depthSlope * (axis * depthSlope / square);
    return axis.length() * pixels / 2;
}

} // namespace

double pixelsOfUnit(const osg::Matrixd& localToClip, double width, double height)
{
    const osg::Vec3d depthSlope = column(localToClip, 3);
    return std::max(pixelsAlong(column(localToClip, 0), depthSlope, width),
                    pixelsAlong(column(localToClip, 1), depthSlope, height));
}
