#pragma once

#include <osg/Image>

#include <string>

/// Writes `picture` to `path` in the format of the name's extension (png, jpg, ...). The file appears under
/// its name only when it is complete, and replaces one of that name. False when it cannot be written;
/// `reason` then names the file and says why in one line.
bool writePicture(const osg::Image& picture, const std::string& path, std::string& reason);
