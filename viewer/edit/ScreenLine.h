#pragma once

#include <VelOsgDBBrx/LineEnHancement.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec2f>
#include <osg/Vec4d>

#include <vector>

/// The outline, in world x and y, of what a line of `width` pixels on the screen covers: every stretch of the
/// line lies at the middle depth of the points found there. Line, points and what `windowToWorld` takes are
/// window positions, y up. Empty where points were found at fewer than two places.
std::vector<osg::Vec2f>
outlineInWorld(const std::vector<osg::Vec2d>& line, double width,
               const std::vector<VelOsgDBBrx::LineEnHancement::LineEnHancementPoint>& hits,
               const osg::Matrixd& windowToWorld);

/// The part of the strip between two vertical planes that the points lie in, as an outline in world x and y:
/// `planes` are those of a section's strip, the points and `windowToWorld` as above. Empty without points.
std::vector<osg::Vec2f>
outlineInStrip(const std::vector<osg::Vec4d>& planes,
               const std::vector<VelOsgDBBrx::LineEnHancement::LineEnHancementPoint>& hits,
               const osg::Matrixd& windowToWorld);
