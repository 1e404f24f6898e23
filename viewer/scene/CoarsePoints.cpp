#include "viewer/scene/CoarsePoints.h"

#include <VelBrx/PointRecord.h>
#include <VelOsgDBBrx/CellData.h>

#include <mutex>
#include <vector>

namespace {

using Cells = std::vector<const CellData*>;

Cells childrenOf(const Cells& cells)
{
    Cells children;
    for (const CellData* cell : cells)
        for (const osg::ref_ptr<CellData>& child : cell->children)
            children.push_back(child);
    return children;
}

} // namespace

void readCoarsePoints(const OctreeInfo& octree, int64_t enough,
                      const std::function<bool(const uint8_t* records, int64_t count)>& take)
{
    constexpr auto kSize = static_cast<int64_t>(VelBrx::PointRecord::kPointSize);
    int64_t points = 0;
    for (Cells level = {octree.root}; !level.empty() && points < enough; level = childrenOf(level))
        for (const CellData* cell : level)
            for (const VelBrx::Segment& run : cell->record.segments) {
                const std::lock_guard<std::mutex> lock(octree.pointFile->mutex);
                void* const memory =
                    octree.pointFile->map(octree.pointDataStart + run.first * kSize, run.count * kSize);
                if (!memory) continue;
                points += run.count;
                const bool goesOn = take(static_cast<const uint8_t*>(memory), run.count);
                octree.pointFile->unmap(memory);
                if (!goesOn) return;
            }
}
