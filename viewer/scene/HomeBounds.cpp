#include "viewer/scene/HomeBounds.h"

#include "viewer/scene/CoarsePoints.h"

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using Steps = std::vector<int32_t>;

int32_t coordinateAt(const uint8_t* field)
{
    int32_t value;
    std::memcpy(&value, field, sizeof value);
    return value;
}

/// The value that `count` of them, and itself, do not exceed.
int32_t valueAfter(size_t count, Steps& steps)
{
    const auto place = steps.begin() + static_cast<ptrdiff_t>(count);
    std::nth_element(steps.begin(), place, steps.end());
    return *place;
}

} // namespace

osg::BoundingBoxd bulkOfPoints(const OctreeInfo& octree, const VelBrx::AttributeRange& elevation)
{
    constexpr int64_t kEnough = 10000; ///< points; whole levels are read, or parts of the ground would lack
    constexpr size_t kPointsForOneOfNoise = 200; ///< on each side
    Steps steps[2];
    readCoarsePoints(octree, kEnough, [&](const uint8_t* record, int64_t count) {
        for (int64_t i = 0; i < count; ++i, record += VelBrx::PointRecord::kPointSize) {
            steps[0].push_back(coordinateAt(record + VelBrx::PointRecord::kX));
            steps[1].push_back(coordinateAt(record + VelBrx::PointRecord::kY));
        }
        return true;
    });
    osg::Vec3d low = octree.min + octree.offset;
    osg::Vec3d high = octree.max + octree.offset;
    for (int axis = 0; axis < 2 && !steps[axis].empty(); ++axis) {
        const size_t noise = steps[axis].size() / kPointsForOneOfNoise;
        const double scale = octree.scale[axis];
        low[axis] = valueAfter(noise, steps[axis]) * scale + octree.offset[axis];
        high[axis] = valueAfter(steps[axis].size() - 1 - noise, steps[axis]) * scale + octree.offset[axis];
    }
    low.z() = elevation.low;
    high.z() = elevation.high;
    return {low, high};
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
