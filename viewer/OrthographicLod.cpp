#include "viewer/OrthographicLod.h"

#include "viewer/CameraView.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <osg/Math>

#include <cmath>

namespace {

/// Resolution lengths hold the factor |tan(fovy / 3.1415926)| / (2 tan(fovy / 2)) for the size test of
/// perspective cameras; that of orthographic ones does not take it away again.
double calibration()
{
    constexpr double kDivisor = 3.1415926; // of degrees, before the tangent
    return 2 * std::tan(osg::DegreesToRadians(kFieldOfView / 2)) /
           std::abs(std::tan(kFieldOfView / kDivisor));
}

bool isOrthographic(const osg::Matrixd& projection)
{
    double fovy = 0;
    double aspect = 0;
    double near = 0;
    double far = 0;
    return !projection.getPerspective(fovy, aspect, near, far);
}

} // namespace

OrthographicLod::OrthographicLod(osgUtil::IncrementalCompileOperation* incremental,
                                 VelOsgUtils::DecrementalCompileOperation* decremental)
    : osg::Operation("OrthographicLod", true), DynPointCloudLod(incremental, decremental)
{
}

void OrthographicLod::operator()(osg::Object* frameStamp)
{
    auto* stamp = dynamic_cast<VelOsgDBBrx::FrameStamp*>(frameStamp);
    if (!stamp || !isOrthographic(stamp->projection)) return DynPointCloudLod::operator()(frameStamp);
    const int height = stamp->height;
    stamp->height = static_cast<int>(std::lround(height * calibration()));
    DynPointCloudLod::operator()(frameStamp);
    stamp->height = height;
}
