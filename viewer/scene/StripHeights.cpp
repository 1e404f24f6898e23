#include "viewer/scene/StripHeights.h"

#include <VelBrx/PointRecord.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Vec3d>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using Planes = std::vector<osg::Vec4d>;
using Cells = std::vector<const CellData*>;

constexpr size_t kEnough = 2000;       ///< points inside
constexpr uint32_t kMostRead = 500000; ///< points; a thin strip through wide cells
constexpr size_t kPointsForOneOfNoise = 200;

bool reaches(const CellData& cell, const Planes& planes)
{
    const VelBrx::CellWithSegment& record = cell.record;
    return std::all_of(planes.begin(), planes.end(), [&record](const osg::Vec4d& plane) {
        double farthest = plane.w();
        for (int axis = 0; axis < 3; ++axis)
            farthest +=
                plane[axis] * record.center[axis] + std::abs(plane[axis]) * double(record.size[axis]) / 2;
        return farthest >= 0;
    });
}

bool isInside(const osg::Vec3d& point, const Planes& planes)
{
    return std::all_of(planes.begin(), planes.end(), [&point](const osg::Vec4d& plane) {
        return plane.x() * point.x() + plane.y() * point.y() + plane.z() * point.z() + plane.w() >= 0;
    });
}

osg::Vec3d positionOf(const uint8_t* record, const OctreeInfo& octree)
{
    using namespace VelBrx::PointRecord;
    int32_t steps[3];
    for (size_t axis = 0; axis < 3; ++axis)
        std::memcpy(&steps[axis], record + (axis == 0 ? kX : axis == 1 ? kY : kZ), sizeof steps[axis]);
    return osg::Vec3d(steps[0] * octree.scale.x(), steps[1] * octree.scale.y(), steps[2] * octree.scale.z()) +
           octree.offset;
}

void addHeights(const CellData& cell, const OctreeInfo& octree, const Planes& planes,
                std::vector<double>& heights)
{
    constexpr auto kSize = static_cast<int64_t>(VelBrx::PointRecord::kPointSize);
    for (const VelBrx::Segment& run : cell.record.segments) {
        void* const memory =
            octree.pointFile->map(octree.pointDataStart + run.first * kSize, run.count * kSize);
        const auto* record = static_cast<const uint8_t*>(memory);
        for (int64_t i = 0; record && i < run.count; ++i, record += kSize) {
            const osg::Vec3d point = positionOf(record, octree);
            if (isInside(point, planes)) heights.push_back(point.z());
        }
        octree.pointFile->unmap(memory);
    }
}

/// From the top down, level by level, until there are enough.
void addHeights(const OctreeInfo& octree, const Planes& planes, std::vector<double>& heights)
{
    uint32_t read = 0;
    const size_t before = heights.size();
    for (Cells level = {octree.root}; !level.empty() && heights.size() - before < kEnough;) {
        Cells next;
        for (const CellData* cell : level) {
            if (!reaches(*cell, planes)) continue;
            if (read > kMostRead) return;
            read += cell->record.pointCount;
            addHeights(*cell, octree, planes, heights);
            for (const osg::ref_ptr<CellData>& child : cell->children)
                next.push_back(child);
        }
        level = std::move(next);
    }
}

double valueAfter(size_t count, std::vector<double>& values)
{
    const auto place = values.begin() + static_cast<ptrdiff_t>(count);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

} // namespace

HeightSpan heightsInside(const Scene& scene, const std::vector<osg::Vec4d>& planes)
{
    std::vector<double> heights;
    for (const Scene::Cloud& cloud : scene.clouds())
        addHeights(cloud.octree(), planes, heights);
    for (const auto& [path, store] : scene.waiting()) {
        if (isBeyond(store.bounds, planes)) continue;
        heights.push_back(store.statistics.elevation.low);
        heights.push_back(store.statistics.elevation.high);
    }
    if (heights.empty()) return {scene.bounds().zMin(), scene.bounds().zMax()};
    const size_t noise = heights.size() / kPointsForOneOfNoise;
    return {valueAfter(noise, heights), valueAfter(heights.size() - 1 - noise, heights)};
}
