#pragma once

#include "store/StoreHead.h"
#include "store/StoreIndex.h"

#include <array>
#include <cmath>

namespace VelBrx {

/// Where the points of a cell are, coordinates of the store.
struct CellBox
{
    std::array<double, 3> low;
    std::array<double, 3> high;

    /// A step of the coordinates wider than the cell: points on its faces are rounded.
    CellBox(const StoreIndex& index, const BrxHeader& header, const IndexCell& cell)
    {
        const double size = std::ldexp(index.cubeSize, -int{cell.level});
        const std::array<uint32_t, 3> place = mortonDecode(cell.code);
        for (size_t axis = 0; axis < 3; ++axis) {
            low[axis] = index.cubeMin[axis] + size * place[axis] - header.scale[axis];
            high[axis] = index.cubeMin[axis] + size * (place[axis] + 1.0) + header.scale[axis];
        }
    }
};

} // namespace VelBrx
