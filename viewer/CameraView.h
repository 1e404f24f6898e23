#pragma once

#include <osg/BoundingBox>
#include <osg/Vec3d>

/// Vertical field of view of the viewer, degrees. The resolution lengths in stores are calibrated for it.
constexpr double kFieldOfView = 30.0;

/// Where a camera stands and looks, world coordinates.
struct Look
{
    osg::Vec3d eye;
    osg::Vec3d center;
    osg::Vec3d up;
};

/// What `--view` asks for.
struct CameraView
{
    enum Kind
    {
        TOP,   ///< from above, north up
        NORTH, ///< level, looking north
        ISO,   ///< from above and the south-east
        LOOK   ///< as `look` says
    };

    Kind kind = ISO;
    Look look; ///< of LOOK
};

/// The camera of `view`. The named views stand as near as the whole of `bounds` allows in a picture of
/// `aspect` = width / height.
Look lookAt(const CameraView& view, const osg::BoundingBoxd& bounds, double aspect);
