#pragma once

#include <VelBrx/Status.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// Integer bounds of the points of one source with the numbers that turn them into coordinates.
struct SourceExtent
{
    std::string path;
    double scale[3];
    double offset[3];
    bool empty = true;
    int32_t min[3];
    int32_t max[3];
};

/// From a source's integer coordinate to the store's: source x factor + shift where the source's coordinates
/// all lie on the store's grid, otherwise the nearest store coordinate.
struct AxisMapping
{
    bool exact = true;
    int64_t factor = 1;
    int64_t shift = 0;
    double scaledFactor = 1; ///< source scale / store scale, used where the mapping is not exact
    double scaledShift = 0;  ///< (source offset - store offset) / store scale

    int32_t apply(int32_t source) const
    {
        return static_cast<int32_t>(exact ? source * factor + shift
                                          : std::llround(source * scaledFactor + scaledShift));
    }
};

/// The store's integer coordinates and its root cube.
///
/// One source keeps its scale. Of several the finest scale of each axis is taken, and coordinates stay exact
/// when the scales are whole multiples of it and the offsets whole multiples apart. The store's offset lies
/// near the middle of the points, a whole multiple of the scale from the sources' offsets. A scale is coarser
/// where the points span more steps than 32 bits hold or their coordinates more than doubles distinguish.
///
/// The cube begins at the smallest coordinates; its edge is a power of two times the largest of the three
/// scales, so that with equal scales every cell border falls on the integer grid.
struct StoreGrid
{
    double scale[3] = {0, 0, 0};
    double offset[3] = {0, 0, 0};
    int32_t min[3] = {0, 0, 0}; ///< of all points, store coordinates
    int32_t max[3] = {0, 0, 0};
    double cubeSize = 0;                              ///< file units
    std::vector<std::array<AxisMapping, 3>> mappings; ///< by source
    std::vector<std::string> notes;                   ///< sources whose coordinates are not exact

    double coordinate(size_t axis, int32_t value) const { return value * scale[axis] + offset[axis]; }
    bool isExact(size_t source) const;

    /// Turns the coordinates of `count` store records of `source` from the source's into the store's.
    void mapRecords(size_t source, uint8_t* records, size_t count) const;
};

/// At least one extent is not empty. Fails where coordinates are not finite.
Status makeStoreGrid(const std::vector<SourceExtent>& extents, StoreGrid& grid);

} // namespace VelBrx
