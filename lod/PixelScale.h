#pragma once

#include <osg/Matrixd>

/// Pixels that a unit of local length across the line of sight covers where w is 1, along the better resolved
/// of the picture's axes; elsewhere as many by w. `width` and `height` are the viewport's. What the axes have
/// along the line of sight does not count, so frusta that are not symmetric give what symmetric ones do.
double pixelsOfUnit(const osg::Matrixd& localToClip, double width, double height);
