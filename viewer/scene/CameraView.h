#pragma once

#include <osg/BoundingBox>
#include <osg/Matrixd>
#include <osg/Vec3d>

#include <optional>
#include <string>
#include <vector>

/// Vertical field of view of the viewer, degrees.
constexpr double kFieldOfView = 30.0;

/// Where a camera stands and looks, world coordinates.
struct Look
{
    osg::Vec3d eye;
    osg::Vec3d center;
    osg::Vec3d up;
};

/// How the camera projects.
struct Lens
{
    bool orthographic = false; ///< parallel; a perspective of kFieldOfView otherwise
    double height = 0;         ///< world units from the lower to the upper edge of an orthographic picture
};

/// What `--view` asks for.
struct CameraView
{
    enum Kind
    {
        TOP,    ///< from above, north up
        BOTTOM, ///< from below, north up
        NORTH,  ///< level, looking north
        SOUTH,
        EAST,
        WEST,
        ISO, ///< from above and the south-east
        ALL, ///< likewise, and of everything
        LOOK ///< as `look` says
    };

    Kind kind = ISO;
    Look look; ///< of LOOK
};

/// The names of the views but LOOK.
std::vector<std::string> namesOfViews();

/// The view of that name; empty for another text.
std::optional<CameraView> namedView(const std::string& name);

/// The camera of `view`. The named views stand as near as the whole of `bounds` allows in a picture of
/// `aspect` = width / height.
Look lookAt(const CameraView& view, const osg::BoundingBoxd& bounds, double aspect);

/// The nearest camera in the direction `toEye` from the data that has all corners of `bounds` in its picture:
/// sideways it is moved to where corners on both sides touch the edge.
Look framed(const osg::BoundingBoxd& bounds, const osg::Vec3d& toEye, const osg::Vec3d& up, double aspect);

/// The projection of a picture of `aspect` = width / height.
osg::Matrixd projectionOf(const Lens& lens, double aspect);

/// An orthographic lens for `look` whose picture shows all of `bounds`.
Lens orthographicLens(const Look& look, const osg::BoundingBoxd& bounds, double aspect);

/// `look` with the eye moved straight back to before all of `bounds`: an orthographic camera shows the same
/// from there, and has nothing behind it.
Look withAllInFront(const Look& look, const osg::BoundingBoxd& bounds);
