#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelBrx/Status.h>
#include <VelBrx/StoreStatistics.h>

#include <cstdint>
#include <vector>

namespace VelBrx {

/// User id of the store's EVLRs, and their record ids.
constexpr char kStoreUserId[] = "vel_octree_brx";
constexpr uint16_t kIndexRecordId = 1;
constexpr uint16_t kOriginRecordId = 2;
constexpr uint16_t kFlagsRecordId = 3;

constexpr uint32_t kIndexVersion = 1;
constexpr unsigned kMaxLevel = 21; ///< deepest level whose Morton code fits 63 bits

/// A cell as the index holds it; the rest of a `CellWithSegment` is derived.
struct IndexCell
{
    uint8_t level = 0;
    uint64_t code = 0;
    std::vector<Segment> segments;
};

/// The octree index of a store, decoded.
struct StoreIndex
{
    uint64_t storeId = 0;
    double cubeMin[3] = {0, 0, 0}; ///< smallest corner of the root cell, file coordinates
    double cubeSize = 0;           ///< edge length of the root cell, file units
    /// Sampling grid cells along the edge of a cell: the point spacing of a cell is its edge divided by this.
    uint32_t gridSize = 128;
    std::vector<IndexCell> cells; ///< by level, then code
    StoreStatistics statistics;
};

/// The bytes of the index record, checksum included. Layout: docs/store-format.md.
std::vector<uint8_t> encodeIndex(const StoreIndex& index);

/// Decodes and checks the bytes of an index record of a store of `pointCount` points. Every length, code and
/// segment is checked; a failure names the first thing wrong.
Status decodeIndex(const uint8_t* data, size_t size, uint64_t pointCount, StoreIndex& index);

/// The cell records of an index, as `MiraLasRead::getOctree` lists them.
std::vector<CellWithSegment> deriveCells(const StoreIndex& index);

} // namespace VelBrx
