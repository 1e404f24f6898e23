#pragma once

#include <osg/Matrixd>
#include <osg/Polytope>
#include <osg/Vec2d>
#include <osg/Vec4d>

#include <vector>

/// The planes of a polygon's bounding rectangle, and the eye's plane, in local coordinates; what lies under
/// the polygon's mask lies inside all of them. The polygon runs from the window's top, `localToWindow` from
/// its bottom. False when the polygon has no bounds.
bool rectanglePlanes(const std::vector<osg::Vec2d>& polygon, int height, const osg::Matrixd& localToWindow,
                     osg::Polytope::PlaneList& planes);

/// Planes in world coordinates as planes in local ones.
std::vector<osg::Vec4d> toLocal(const std::vector<osg::Vec4d>& worldPlanes, const osg::Matrixd& localToWorld);
