#include "store/builder/StoreCells.h"

#include <algorithm>
#include <utility>

namespace VelBrx {

StoreCells::StoreCells(std::vector<StoreCell> cells, std::vector<std::vector<TreeCell>> ofChunks)
    : _cells(std::move(cells)), _ofChunks(std::move(ofChunks))
{
    std::sort(_cells.begin(), _cells.end(), [](const StoreCell& a, const StoreCell& b) {
        return CellKey(a.level, a.code) < CellKey(b.level, b.code);
    });
    uint64_t first = 0;
    for (StoreCell& cell : _cells)
        cell.firstPoint = std::exchange(first, first + cell.pointCount);
}

size_t StoreCells::indexOf(unsigned level, uint64_t code) const
{
    const auto found = std::lower_bound(
        _cells.begin(), _cells.end(), CellKey(level, code),
        [](const StoreCell& cell, const CellKey& key) { return CellKey(cell.level, cell.code) < key; });
    return static_cast<size_t>(found - _cells.begin());
}

} // namespace VelBrx
