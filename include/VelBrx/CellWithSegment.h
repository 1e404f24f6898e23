#pragma once

#include <VelBrx/Export.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// Key code that means "no cell" in a list of children.
constexpr uint64_t kNoCell = 0xFFFFFFFFFFFFFFFFu;

/// A run of consecutive points in the point file.
struct Segment
{
    int64_t first; ///< index of the first point, counted from the first point record
    int64_t count; ///< number of points
};

#pragma pack(push, 1)
/// The fixed, byte-packed part of a cell record.
struct CellBlock
{
    uint8_t level;           ///< octree level, 0 = root
    float size[3];           ///< edge lengths along x, y, z
    double center[3];        ///< centre in file coordinates, offset included
    double resolutionLength; ///< the length, in file units, that the screen-size test projects
    uint64_t parentCode;     ///< key code of the parent in level - 1; kNoCell for the root
    uint64_t code;           ///< key code of this cell: its Morton code within the level
    uint8_t reserved1[24];
    uint64_t childCodes[8]; ///< key codes of the children in level + 1 by octant, kNoCell where there is none
    uint8_t reserved2[4];
    char identifier[39]; ///< NUL-terminated, unique across files: a copy's cells have others
};
#pragma pack(pop)

/// One octree cell as the reader lists it. (level, code) identifies a cell within its store.
struct CellWithSegment : CellBlock
{
    std::vector<Segment> segments;
    uint32_t pointCount; ///< sum over the segments
};

/// Divisor of the field of view, in degrees, in the screen-size test of `DynPointCloudLod`, whose tangent is
/// taken. Resolution lengths are calibrated with this very value.
constexpr double kFieldOfViewDivisor = 3.1415926;

/// How far apart the points of a cell with this resolution length are, in file units: takes the calibration
/// away that resolution lengths hold for the screen-size test of `DynPointCloudLod`. For a root cell it is
/// the cell's edge, so that a store seen from afar stays while it is a pixel wide.
VEL_BRX_EXPORT double pointSpacing(double resolutionLength);

static_assert(sizeof(CellBlock) == 192 && offsetof(CellBlock, resolutionLength) == 37 &&
                  offsetof(CellBlock, childCodes) == 85 && offsetof(CellBlock, identifier) == 153,
              "the packed part of a cell record has a fixed layout");
static_assert(sizeof(CellWithSegment) == 224, "a cell record has 224 bytes");

/// Bounds of a store and the offset of its records, all in file units.
struct BoundBoxWithOffset
{
    double min[3];
    double max[3];
    double offset[3]; ///< added to the records' scaled integer coordinates
};

static_assert(sizeof(BoundBoxWithOffset) == 9 * sizeof(double), "nine doubles in this order");

} // namespace VelBrx
