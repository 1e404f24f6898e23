#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelBrx/FileIdentity.h>
#include <VelBrx/Status.h>
#include <VelBrx/StoreStatistics.h>

#include "store/ProblemList.h"
#include "store/las/LasLayout.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace VelBrx {

/// User id of the store's EVLRs, and their record ids.
constexpr char kStoreUserId[] = "vel_octree_brx";
constexpr uint16_t kIndexRecordId = 1;
constexpr uint16_t kOriginRecordId = 2;
constexpr uint16_t kFlagsRecordId = 3;
constexpr char kIndexDescription[] = "octree index";

/// Each record of the store ends with the CRC-32C of all its bytes before that.
constexpr size_t kRecordChecksumSize = 4;

constexpr uint32_t kIndexVersion = 1;
constexpr unsigned kMaxLevel = 21;             ///< deepest level whose Morton code fits 63 bits
constexpr int64_t kMaxCellPoints = 0x7FFFFFFF; ///< most points in a cell: what one draw call can take

/// Level and key code: the order of cells.
using CellKey = std::pair<unsigned, uint64_t>;

/// A cell as the index holds it; the rest of a `CellWithSegment` is derived.
struct IndexCell
{
    uint8_t level = 0;
    uint64_t code = 0; ///< Morton code within the level: x in the lowest bit of each triple, then y, then z
    std::vector<Segment> segments;
};

/// The octree index of a store, decoded.
struct StoreIndex
{
    /// CRC-32C of the file's bytes from 0 to its first point: LAS header and VLRs. A program that rewrites
    /// the file changes these, and may have put the points in another order.
    uint32_t headerChecksum = 0;
    uint64_t storeId = 0;
    double cubeMin[3] = {0, 0, 0}; ///< smallest corner of the root cell, file coordinates
    double cubeSize = 0;           ///< edge length of the root cell, file units
    /// Sampling grid cells along the edge of a cell: the point spacing of a cell is its edge divided by this.
    uint32_t gridSize = 128;
    std::vector<IndexCell> cells; ///< by level, then code
    StoreStatistics statistics;
};

/// The 60 bytes in front of a record of the store at the end of its file. `description` has at most 32
/// characters.
std::vector<uint8_t> storeRecordHeader(uint16_t recordId, uint64_t length, const char* description);

/// The bytes of the index record, checksum included. Layout: docs/store-format.md. `index` must be free of
/// the problems that `checkIndex` finds.
std::vector<uint8_t> encodeIndex(const StoreIndex& index);

/// Decodes and checks the bytes of an index record of a store of `pointCount` points. Every length, code and
/// segment is checked; a failure names the first thing wrong and leaves `index` in no particular state.
Status decodeIndex(const uint8_t* data, size_t size, uint64_t pointCount, StoreIndex& index);

/// The part of `decodeIndex` that makes an index of the bytes: checks version, checksum and lengths, and
/// nothing of what the values mean.
Status parseIndex(const uint8_t* data, size_t size, StoreIndex& index);

/// The part of `decodeIndex` that checks what the values mean; adds every problem.
void checkIndex(const StoreIndex& index, uint64_t pointCount, ProblemList& problems);

/// Name of a cell in messages: "LL-CCCCCCCCCCCCCCCC", level and code in hexadecimal.
std::string cellName(unsigned level, uint64_t code);

/// Grid coordinates x, y, z of a Morton code.
std::array<uint32_t, 3> mortonDecode(uint64_t code);

/// The length that makes a cell of point spacing `spacing` wanted just as long as its spacing covers a pixel
/// or more, at a vertical field of view of 30 degrees. A cell at depth d in a viewport of height h is wanted
/// while 2 * h / |tan(fovy / kFieldOfViewDivisor) * d| * length >= 1, fovy in degrees; its spacing covers
/// h * spacing / (2 * tan(fovy / 2) * d) pixels. Setting the two equal at 30 degrees gives the length.
double resolutionLength(double spacing);

/// The cell records of an index, as `MiraLasRead::getOctree` lists them, and `file` is where it was read
/// from.
std::vector<CellWithSegment> deriveCells(const StoreIndex& index, const FileIdentity& file = {});

} // namespace VelBrx
