#pragma once

#include "store/MortonBits.h"
#include "store/builder/StoreGrid.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace VelBrx {

constexpr unsigned kMortonLevels = 21; ///< octal digits of a Morton code

/// The code's first `level` digits: the key code of the cell of that level.
inline uint64_t prefixOf(uint64_t code, unsigned level)
{
    return code >> 3 * (kMortonLevels - level);
}

/// A place on the finest grid as a column code: the Morton code of x and y in the upper 42 bits, z in
/// the lower 21.
/// In the order of these codes every vertical column of every grid is one run.
inline uint64_t columnCode(uint64_t x, uint64_t y, uint64_t z)
{
    return (spreadByOne(x) | spreadByOne(y) << 1) << kMortonLevels | z;
}

/// The column's first `digits` digits: in which column of the grid of so many digits it is.
inline uint64_t columnOf(uint64_t columnCode, unsigned digits)
{
    return columnCode >> (kMortonLevels + 2 * (kMortonLevels - digits));
}

/// Height of a column code on the finest grid.
inline uint32_t heightOf(uint64_t columnCode)
{
    return columnCode & ((1 << kMortonLevels) - 1);
}

/// The Morton code of the same place: x in the lowest bit of each digit, then y, z.
inline uint64_t mortonCodeOf(uint64_t columnCode)
{
    const uint64_t xy = columnCode >> kMortonLevels;
    return spreadBits(gatherByOne(xy)) | spreadBits(gatherByOne(xy >> 1)) << 1 |
           spreadBits(heightOf(columnCode)) << 2;
}

/// Places whose codes are found together, which is several times as fast as one by one.
struct PlaceBlock
{
    static constexpr size_t kSize = 256;

    std::array<std::array<int32_t, kSize>, 3> axes{}; ///< store coordinates
    std::array<uint64_t, kSize> codes{};              ///< of their places
};

/// Turns column codes into Morton codes.
void makeMortonCodes(std::array<uint64_t, PlaceBlock::kSize>& codes);

/// Places of store coordinates on the finest grid in the root cube; those outside it have the nearest.
class GridPlaces
{
public:
    explicit GridPlaces(const StoreGrid& grid);

    /// Finds the column codes of all places of `block`.
    void findColumnCodes(PlaceBlock& block) const;

    /// The same for `count` points, block by block: `coordinate(i, axis)` is a store coordinate of the i-th,
    /// whose code `use(i, code)` gets. Codes of `axes` axes alone, the others count as the same for all.
    template <typename Coordinate, typename Use>
    void forColumnCodes(size_t count, size_t axes, const Coordinate& coordinate, const Use& use) const
    {
        PlaceBlock block;
        for (size_t first = 0; first < count; first += PlaceBlock::kSize) {
            const size_t size = std::min(PlaceBlock::kSize, count - first);
            for (size_t axis = 0; axis < axes; ++axis)
                for (size_t i = 0; i < size; ++i)
                    block.axes[axis][i] = coordinate(first + i, axis);
            findColumnCodes(block);
            for (size_t i = 0; i < size; ++i)
                use(first + i, block.codes[i]);
        }
    }

private:
    double _min[3];
    double _factor[3];
};

} // namespace VelBrx
