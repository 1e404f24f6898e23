#pragma once

#include <osg/BoundingBox>
#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/Vec2d>

#include <optional>
#include <vector>

/// The camera and the window that something is drawn on, as they stand at one moment.
struct WindowView
{
    osg::Matrixd vpw; ///< world to pixels of the window, y up
    int width = 0;    ///< of the whole window, pixels
    int height = 0;

    /// False when nothing in the box, in the frame that `localToWorld` starts from, can lie under the
    /// polygon.
    bool mayCover(const std::vector<osg::Vec2d>& polygon, const osg::BoundingBoxd& box,
                  const osg::Matrixd& localToWorld) const;

    /// Vertices with y up counted from the window's top instead.
    std::vector<osg::Vec2d> fromTop(std::vector<osg::Vec2d> vertices) const;
};

/// Empty for a camera without window or viewport.
std::optional<WindowView> windowViewOf(const osg::Camera& camera);
