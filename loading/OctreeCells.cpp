#include "loading/OctreeCells.h"

#include <VelOsgDBBrx/CellData.h>

#include <array>
#include <unordered_map>

namespace {

/// The cells by level and key code.
class CellMap
{
public:
    /// False when there is a cell of that level and code.
    bool insert(CellData* cell)
    {
        const uint64_t code = cell->record.code; // a packed member cannot be bound to a reference
        return _levels[cell->record.level].emplace(code, cell).second;
    }

    CellData* find(int level, uint64_t code) const
    {
        if (level >= static_cast<int>(_levels.size())) return nullptr;
        const auto& cells = _levels[static_cast<size_t>(level)];
        const auto found = cells.find(code);
        return found == cells.end() ? nullptr : found->second;
    }

private:
    std::array<std::unordered_map<uint64_t, CellData*>, 256> _levels;
};

void link(CellData& cell, const CellMap& map, OctreeInfo& octree)
{
    const VelBrx::CellWithSegment& record = cell.record;
    if (record.level == 0)
        octree.root = &cell;
    else
        cell.parent = map.find(record.level - 1, record.parentCode);
    for (size_t octant = 0; octant < 8; ++octant) {
        const uint64_t code = record.childCodes[octant];
        if (code == VelBrx::kNoCell) continue;
        if (CellData* child = map.find(record.level + 1, code)) cell.children.push_back(child);
    }
}

} // namespace

void linkOctreeCells(const std::vector<VelBrx::CellWithSegment>& records, OctreeInfo& octree)
{
    CellMap map;
    std::vector<osg::ref_ptr<CellData>> cells;
    cells.reserve(records.size());
    for (const VelBrx::CellWithSegment& record : records) {
        osg::ref_ptr<CellData> cell = new CellData(record);
        if (!map.insert(cell)) continue;
        cell->octree = &octree;
        cells.push_back(std::move(cell));
    }
    for (const osg::ref_ptr<CellData>& cell : cells)
        link(*cell, map, octree);
}
