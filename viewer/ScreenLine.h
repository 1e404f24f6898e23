#pragma once

#include <VelOsgDBBrx/LineEnHancement.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec2f>

#include <vector>

/// A polyline that runs to and fro over the whole width of a thick one, in steps of at most a pixel, for
/// `LineEnHancement`: its raster is only as large as the box of its vertices, so that of a level line it
/// would find next to nothing. Empty for fewer than two different vertices.
std::vector<osg::Vec2d> hatch(const std::vector<osg::Vec2d>& line, double width);

/// Width to draw the polyline of `hatch` with, so that no gap is left.
constexpr double kHatchWidth = 2;

/// The outline, in world x and y, of what a line of `width` pixels on the screen covers: every stretch of the
/// line lies at the middle depth of the points found there. `windowToWorld` takes window positions (x, y,
/// depth). Empty where points were found at fewer than two places.
std::vector<osg::Vec2f>
outlineInWorld(const std::vector<osg::Vec2d>& line, double width,
               const std::vector<VelOsgDBBrx::LineEnHancement::LineEnHancementPoint>& hits,
               const osg::Matrixd& windowToWorld);
