#pragma once

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

    /// The view of a larger window that holds this one and the vertices, with `margin` pixels around each,
    /// too. The vertices are turned into pixels of it. Empty when that window would be too large for a mask.
    std::optional<WindowView> widenedTo(std::vector<osg::Vec2d>& vertices, double margin) const;

    /// Vertices with y up counted from the window's top instead.
    std::vector<osg::Vec2d> fromTop(std::vector<osg::Vec2d> vertices) const;
};

/// Empty for a camera without window or viewport.
std::optional<WindowView> windowViewOf(const osg::Camera& camera);
