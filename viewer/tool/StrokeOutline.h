#pragma once

#include <osg/Vec2d>

#include <vector>

/// The outline of what a disc of `radius` pixels covers on its way, in whole pixels: one polygon by the
/// even-odd rule. Holes, and parts that lie apart, are joined to it by edges that run to and fro and count
/// for nothing. `way` has one place at least.
std::vector<osg::Vec2d> strokeOutline(const std::vector<osg::Vec2d>& way, double radius);
