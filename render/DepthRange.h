#pragma once

#include "lod/PointCloudLOD.h"

#include <osg/BoundingBox>
#include <osg/Matrixd>
#include <osgUtil/CullVisitor>

#include <optional>

/// Distances from the eye along the view axis.
struct DepthRange
{
    double nearest;
    double farthest;
};

/// The depths of the part of `box` that is between the side planes of a frustum; none when there is no such
/// part. `modelView` takes the box's coordinates to the eye's. The nearest depth is 0 with the eye in the
/// box.
std::optional<DepthRange> visibleDepths(const osg::BoundingBoxd& box, const osg::Matrixd& modelView,
                                        const osg::Matrixd& projection);

/// Narrows what a cull traversal adds to the near and far plane in the life of this object, to the depths of
/// the visible part of a box that encloses it all.
///
/// The traversal itself uses whole bounding boxes. The coarse cells of a point cloud reach over all of it,
/// past the eye often, and would pull the near plane to the eye; what shades by differences of depth then has
/// none left to go by. With the eye in the box or close to it, the points themselves say where it may be.
class DepthRangeScope
{
public:
    /// With a null `cloud`, no points are looked at.
    DepthRangeScope(osgUtil::CullVisitor& cull, const osg::BoundingBox& box, const PointCloudLOD* cloud);
    ~DepthRangeScope();
    DepthRangeScope(const DepthRangeScope&) = delete;
    DepthRangeScope& operator=(const DepthRangeScope&) = delete;

private:
    osgUtil::CullVisitor& _cull;
    const PointCloudLOD* const _cloud;
    const osg::BoundingBoxd _box;
    const DepthRange _before; ///< of what was traversed before
};
