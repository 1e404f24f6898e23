#include <VelOsgUtils/CameraState.h>

namespace VelOsgUtils {

namespace {

bool projectTheSame(const osg::Matrixd& a, const osg::Matrixd& b, bool withDepths)
{
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) {
            const bool isDepth = column == 2 && row >= 2;
            if ((withDepths || !isDepth) && a(row, column) != b(row, column)) return false;
        }
    return true;
}

} // namespace

bool showTheSame(const CameraState& a, const CameraState& b)
{
    return a.width == b.width && a.height == b.height && a.view == b.view && a.hasDepths == b.hasDepths &&
           projectTheSame(a.projection, b.projection, a.hasDepths);
}

} // namespace VelOsgUtils
