#include "loading/CellTable.h"

#include <VelOsgDBBrx/CellData.h>

CellTable::CellTable(const OctreeInfo& octree)
{
    if (octree.root) append(*octree.root, octree);
}

/// Depth is bounded by the 256 levels that a cell record can state.
void CellTable::append(CellData& data, const OctreeInfo& octree)
{
    const size_t index = cells.size();
    const VelBrx::CellWithSegment& record = data.record;
    Cell cell{};
    cell.data = &data;
    cell.resolutionLength = record.resolutionLength;
    for (const VelBrx::Segment& segment : record.segments)
        cell.points += segment.count;
    for (int axis = 0; axis < 3; ++axis) {
        cell.center[axis] = static_cast<float>(record.center[axis] - octree.offset[axis]);
        cell.halfSize[axis] = record.size[axis] / 2;
    }
    cell.level = record.level;
    cell.loaded = data.node.valid();
    cells.push_back(cell);

    for (const osg::ref_ptr<CellData>& child : data.children)
        if (child) append(*child, octree);
    cells[index].subtreeSize = static_cast<uint32_t>(cells.size() - index);
}
