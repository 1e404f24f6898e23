#pragma once

#include <osg/Vec2d>

#include <cstddef>
#include <vector>

/// The line without vertices that are nearer to it than `tolerance`; with a larger one, the smallest that is
/// tried, where more than `most` vertices would be left. First and last vertex stay.
std::vector<osg::Vec2d> simplified(const std::vector<osg::Vec2d>& line, double tolerance, size_t most);
