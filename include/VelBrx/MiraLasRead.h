#pragma once

#include <VelBrx/BrxHeader.h>
#include <VelBrx/CellWithSegment.h>
#include <VelBrx/Export.h>
#include <VelBrx/StoreStatistics.h>

#include <vector>

namespace VelBrx {

/// Reads the header and the octree of a store. Stateless; any thread may call it.
class VEL_BRX_EXPORT MiraLasRead
{
public:
    /// Fills `header` from the store at `path`. False, and `header` unchanged, when it is no readable store.
    static bool getBrxHeader(BrxHeader& header, const char* path);

    /// Lists the cells of the store at `path`, coarse levels first, each level in ascending key code. `cells`
    /// stays empty, and nothing else is written, when the store cannot be read or its header or index is
    /// damaged.
    static void getOctree(std::vector<CellWithSegment>& cells, BoundBoxWithOffset& box, const char* path,
                          int64_t& pointDataStart, double& scaleX, double& scaleY, double& scaleZ);

    /// Fills `statistics` from the index of the store at `path`. False, and `statistics` unchanged, when it
    /// cannot.
    static bool getStatistics(StoreStatistics& statistics, const char* path);
};

} // namespace VelBrx
