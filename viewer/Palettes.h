#pragma once

#include <osg/Vec4f>

#include <string>
#include <vector>

/// Colours of the classes 0 to 255 of the LAS standard, opaque.
const std::vector<osg::Vec4f>& classColors();

/// Name of a class in the LAS 1.4 standard; "class N" for the reserved and the user's own.
std::string className(unsigned code);

/// The colour of the n-th of several things that have no order, such as flight lines: neighbours are told
/// apart.
osg::Vec4f distinctColor(size_t n);
