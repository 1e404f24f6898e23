#pragma once

#include <VelBrx/ClassTable.h>

#include <osg/Vec4f>

#include <optional>
#include <string>
#include <vector>

/// \name The classes' names and colours that the program shows
/// One table for the process, the standard's at first. It is set on the thread that changes the scene, while
/// no other asks for any of these.
/// @{
const VelBrx::ClassTable& classTable();

/// Colours that were applied to clouds before stay: see `Scene::setClassTable`.
void setClassTable(const VelBrx::ClassTable& table);

/// Colours of the classes 0 to 255, opaque.
const std::vector<osg::Vec4f>& classColors();

/// A class as people read it: its code and, where it has one, its name.
std::string classText(unsigned code);
/// @}

/// The colour of the n-th of several things that have no order, such as flight lines: neighbours are told
/// apart, and no two of the first few hundred are the same.
osg::Vec4f distinctColor(size_t n);

/// The gradients to choose from: first "own", which is the one that each colour mode has by itself, then
/// those of the library.
const std::vector<std::string>& paletteNames();

/// #rrggbb; empty for another text.
std::optional<osg::Vec4f> colorOf(const std::string& text);

/// What `colorOf` reads.
std::string hexadecimal(const osg::Vec4f& color);
