#pragma once

#include <VelBrx/ProjectionRecords.h>

#include <cstdint>
#include <string>

namespace VelBrx {

/// What the head of a store says without reading its cells or points.
struct BrxHeader
{
    uint32_t formatVersion = 0; ///< version of the octree index
    uint64_t storeId = 0;       ///< random identity of the store; its copies have the same

    /// Names the file that was read, by whatever path: a copy has another key. The identifiers of the cells
    /// begin with it.
    std::string fileKey;

    uint64_t pointCount = 0;
    uint64_t cellCount = 0;
    int64_t pointDataStart = 0; ///< byte position of the first point record
    double scale[3] = {0, 0, 0};
    double offset[3] = {0, 0, 0};
    double min[3] = {0, 0, 0}; ///< smallest coordinates of the points, file units
    double max[3] = {0, 0, 0};
    std::string coordinateSystem;     ///< OGC WKT, or "EPSG:" and a code; empty where the store tells neither
    ProjectionRecords projection;     ///< all that the store says of it
    uint64_t pointsByReturn[15] = {}; ///< points with return number 1 to 15
};

} // namespace VelBrx
