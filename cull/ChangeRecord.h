#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/observer_ptr>

#include <cstdint>
#include <vector>

/// The points that a command changed. Four bytes a point, and a few dozen for each cell with changes.
class ChangeRecord
{
public:
    struct Cell
    {
        CellData* cell;               ///< lives as long as the store's octree
        std::vector<uint32_t> points; ///< ascending places in the cell's point order
    };

    struct Store
    {
        osg::observer_ptr<OctreeInfo> octree;
        std::vector<Cell> cells;
    };

    std::vector<Store> stores;
};
