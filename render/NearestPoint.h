#pragma once

#include "lod/PointCloudLOD.h"

#include <osg/Matrixd>

#include <optional>

/// The smallest distance along the view axis, from the eye, of a loaded point that is between the side planes
/// of a frustum and before the eye; none when no point is there. `modelView` takes the cloud's coordinates to
/// the eye's.
///
/// Looks at the points of the cells next to the eye alone, about one cell of each level with the eye among
/// the points. For cull traversals.
std::optional<double> nearestVisiblePoint(const PointCloudLOD& cloud, const osg::Matrixd& modelView,
                                          const osg::Matrixd& projection);
