#pragma once

#include <osg/Vec2d>
#include <osg/Vec3d>

#include <utility>
#include <vector>

/// A polygon, closed implicitly, or a line that a user draws: pixels of the window or world coordinates.
///
/// Pixels count from the window's top left, y down: the viewer's one direction, which scripts, the overlay
/// and the polygons of the library have too. OSG's events and matrices and the library's lines and selections
/// count y up; `WindowView::turned` leads there and back.
struct Outline
{
    Outline() = default;
    Outline(std::vector<osg::Vec2d> vertices) : pixels(std::move(vertices)) {}
    Outline(std::vector<osg::Vec3d> vertices) : world(std::move(vertices)) {}

    /// What lies beyond the window is not meant.
    std::vector<osg::Vec2d> pixels;

    /// All of it is meant, also beyond the window; seen with the camera of the moment when it is used.
    std::vector<osg::Vec3d> world;
};
