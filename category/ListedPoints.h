#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <utility>
#include <vector>

class CellData;

/// Index of a point in the point file, and the class that it shall have.
using PointClass = std::pair<int64_t, uint8_t>;

/// The listed points of one cell.
struct CellPoints
{
    CellData* cell;
    std::vector<std::pair<uint32_t, uint8_t>> points; ///< place in the cell and class, ascending places
};

/// Sorts listed points by cell. Those that the octree does not have are left out; of a point that is listed
/// twice the last entry counts.
std::vector<CellPoints> sortByCell(const OctreeInfo& octree, std::vector<PointClass> points);
