#pragma once

#include <osg/Matrixd>
#include <osg/Vec2d>

#include <vector>

namespace VelOsgDBBrx {

/// A polygon of a selection on the screen, with the camera of the moment when it was drawn. It contains what
/// is in front of that camera and inside the vertices (even-odd rule; nothing with fewer than three).
struct ScreenPolygon
{
    std::vector<osg::Vec2d> vertices; ///< pixels, y up, as OpenGL's window coordinates
    osg::Matrixd vpw;                 ///< world coordinates to these pixels
    bool selects = true;              ///< the points inside become selected; false: unselected
};

/// Polygons that are applied one after the other, and what they take out of the picture.
struct ScreenSegment
{
    bool hidesSelected = true; ///< what the polygons select is hidden; false: all else
    std::vector<ScreenPolygon> polygons;
};

} // namespace VelOsgDBBrx
