#pragma once

#include <VelBrx/FileIdentity.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <cstdint>
#include <string>
#include <vector>

/// The points that a command changed. Four bytes a point, and about a hundred for each cell with
/// changes; nothing where the store's journal has them.
class ChangeRecord
{
public:
    struct Cell
    {
        CellData* cell;               ///< of the store's octree, and dies with it
        std::string identifier;       ///< of the cell
        std::vector<uint32_t> points; ///< ascending places in the cell's point order
    };

    struct Store
    {
        osg::observer_ptr<OctreeInfo> octree;
        VelBrx::FileIdentity file; ///< the one that was changed
        std::vector<Cell> cells;
        uint64_t change = 0; ///< its number in the store's journal, which has the points then; 0: no journal

        /// The octree; where that was closed, another one of the same file that is open now, to whose cells
        /// the record goes over. Null when the file is not open.
        osg::ref_ptr<OctreeInfo> acquireOctree();
    };

    std::vector<Store> stores;
};
