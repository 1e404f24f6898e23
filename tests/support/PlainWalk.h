#pragma once

#include "loading/CellTable.h"

#include <VelOsgDBBrx/CellData.h>

/// A cell test asked for each cell by itself, from `cell` down; nothing is concluded from one cell for
/// another. Calls `wanted` for each cell that is wanted with all its parents, `refused` for the first on each
/// way down that is not.
template <class Visibility, class Wanted, class Refused>
void walkPlainly(CellData& cell, const OctreeInfo& octree, const Visibility& visibility, const Wanted& wanted,
                 const Refused& refused)
{
    if (visibility.checkCellIsVisiable(CellTable::cellOf(cell, octree)) != 2) return refused(cell);
    wanted(cell);
    for (const osg::ref_ptr<CellData>& child : cell.children)
        walkPlainly(*child, octree, visibility, wanted, refused);
}
