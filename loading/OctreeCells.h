#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <vector>

/// Makes the cells of an octree from their records and links them: children by the parents' lists, parents by
/// the parent code. Of several records of one level and code the first counts; of several roots the last;
/// codes that name no record are left out.
void linkOctreeCells(const std::vector<VelBrx::CellWithSegment>& records, OctreeInfo& octree);
