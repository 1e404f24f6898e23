#pragma once

#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec3d>

#include <optional>
#include <vector>

/// The camera and the window that something is drawn on, as they stand at one moment.
struct WindowView
{
    osg::Matrixd vpw; ///< world to pixels of the window, y up
    int width = 0;    ///< of the whole window, pixels
    int height = 0;

    /// Pixels with y down as pixels with y up, and back. See `Outline` for who counts how.
    osg::Vec2d turned(const osg::Vec2d& pixel) const { return osg::Vec2d(pixel.x(), height - pixel.y()); }
    std::vector<osg::Vec2d> turned(std::vector<osg::Vec2d> pixels) const;

    /// World to clip coordinates of the part of the window that holds these pixels, y down, and `margin`
    /// pixels around each.
    osg::Matrixd toClipOf(const std::vector<osg::Vec2d>& vertices, double margin) const;

    /// The pixel, y down, that shows a place in the world; empty for one behind the camera.
    std::optional<osg::Vec2d> pixelOf(const osg::Vec3d& world) const;

    /// The view of a larger window that holds this one and the vertices, with `margin` pixels around each,
    /// too. The vertices, y down, are turned into pixels of it. Empty when that window would be too large for
    /// a mask.
    std::optional<WindowView> widenedTo(std::vector<osg::Vec2d>& vertices, double margin) const;
};

/// How many pixels a unit of the world takes across the view at a place, at least 0; `vpw`: world to pixels.
double pixelsPerUnit(const osg::Matrixd& vpw, const osg::Vec3d& place);

/// Empty for a camera without window or viewport.
std::optional<WindowView> windowViewOf(const osg::Camera& camera);
