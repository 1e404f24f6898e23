#pragma once

#include <VelOsgUtils/Export.h>

#include <osg/Matrixd>

namespace VelOsgUtils {

/// A camera as it was drawn with: matrices of world and clip coordinates, and the size of its viewport.
struct CameraState
{
    osg::Matrixd projection;
    osg::Matrixd view;
    int width = 0; ///< of the viewport, pixels
    int height = 0;

    /// The near and far plane of the projection stand where somebody put them. Else they mean nothing: OSG
    /// works them out anew in every frame from what is in view.
    bool hasDepths = false;
};

/// Whether two cameras have the same picture. Near and far plane count where both have them.
VEL_OSG_UTILS_EXPORT bool showTheSame(const CameraState& a, const CameraState& b);

} // namespace VelOsgUtils
