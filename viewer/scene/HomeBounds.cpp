#include "viewer/scene/HomeBounds.h"

#include "viewer/scene/CoarsePoints.h"

#include <algorithm>

osg::BoundingBoxd bulkOf(const VelBrx::GroundBox& box, const VelBrx::AttributeRange& elevation)
{
    return {box.min[0], box.min[1], elevation.low, box.max[0], box.max[1], elevation.high};
}

osg::BoundingBoxd bulkOfPoints(const VelOsgDBBrx::OpenedCloud& opened)
{
    VelBrx::GroundSpread spread;
    readCoarsePoints(*opened.cloud->getOctree(), VelBrx::GroundSpread::kEnough,
                     [&](const uint8_t* records, int64_t count) {
                         spread.add(records, count);
                         return true;
                     });
    return bulkOf(spread.bulk(opened.header), opened.statistics.elevation);
}

osg::BoundingBoxd boundsOfMost(const osg::BoundingBoxd& bounds, const osg::BoundingBoxd& bulk)
{
    // Roads that lead out, towers and hills have a place in the picture: they are left out where they would
    // fill more than the rest.
    constexpr double kSpreads = 3; ///< heights of the bulk
    constexpr double kShareOfWidth = 0.25;
    const osg::Vec3d size = bulk._max - bulk._min;
    const double aside = kShareOfWidth * std::max(size.x(), size.y());
    const osg::Vec3d margin(aside, aside, std::max(kSpreads * size.z(), aside));
    osg::BoundingBoxd most;
    for (int axis = 0; axis < 3; ++axis) {
        most._min[axis] = std::max(bounds._min[axis], bulk._min[axis] - margin[axis]);
        most._max[axis] = std::min(bounds._max[axis], bulk._max[axis] + margin[axis]);
    }
    return most;
}

std::vector<bool> inOnePicture(const std::vector<osg::BoundingBoxd>& surveys, size_t first)
{
    constexpr double kFarthest = 30; ///< a gap, in sizes of what is in the picture already
    std::vector<bool> isIn(surveys.size(), false);
    if (surveys.empty()) return isIn;
    isIn[first] = true;
    osg::BoundingBoxd all = surveys[first];
    for (bool grows = true; grows;) {
        grows = false;
        for (size_t i = 0; i < surveys.size(); ++i) {
            if (isIn[i]) continue;
            const osg::BoundingBoxd& box = surveys[i];
            osg::Vec3d gap;
            for (int axis = 0; axis < 3; ++axis)
                gap[axis] = std::max({0.0, box._min[axis] - all._max[axis], all._min[axis] - box._max[axis]});
            if (gap.length() > kFarthest * std::max(all.radius(), box.radius())) continue;
            grows = isIn[i] = true;
            all.expandBy(box);
        }
    }
    return isIn;
}
