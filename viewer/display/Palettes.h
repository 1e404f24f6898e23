#pragma once

#include <osg/Vec4f>

#include <string>
#include <vector>

/// Colours of the classes 0 to 255 of the LAS standard, opaque.
const std::vector<osg::Vec4f>& classColors();

/// A class as people read it: its code and, where the LAS 1.4 standard has one, its name.
std::string classText(unsigned code);

/// The colour of the n-th of several things that have no order, such as flight lines: neighbours are told
/// apart, and no two of the first few hundred are the same.
osg::Vec4f distinctColor(size_t n);
