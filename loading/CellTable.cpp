#include "loading/CellTable.h"

#include <VelOsgDBBrx/CellData.h>

#include <algorithm>

CellTable::CellTable(const OctreeInfo& octree)
{
    Levels byLevel;
    uint32_t count = 0;
    if (octree.root) collect(*octree.root, 0, count, byLevel);
    cells.reserve(count);
    _firstChild.reserve(count + size_t{1});
    _pointsBefore.reserve(count + size_t{1});
    _data.reserve(count);
    _place.reserve(count);
    _loaded.resize((count + size_t{63}) / 64);
    _pointsBefore.push_back(0);
    _levelStart.push_back(0);
    for (const auto& level : byLevel) {
        size_t nextChild = _levelStart.back() + level.size();
        for (const auto& [data, place] : level) {
            append(*data, octree);
            _place.push_back(place);
            _firstChild.push_back(static_cast<uint32_t>(nextChild));
            for (const osg::ref_ptr<CellData>& child : data->children)
                nextChild += child.valid();
        }
        _levelStart.push_back(cells.size());
    }
    _firstChild.push_back(count);
    boundSubtrees();
}

/// Depth is bounded by the 256 levels that a cell record can state.
void CellTable::collect(CellData& cell, size_t level, uint32_t& place, Levels& levels)
{
    if (level == levels.size()) levels.emplace_back();
    levels[level].emplace_back(&cell, place++);
    for (const osg::ref_ptr<CellData>& child : cell.children)
        if (child) collect(*child, level + 1, place, levels);
}

CellTable::Cell CellTable::cellOf(const CellData& data, const OctreeInfo& octree)
{
    Cell cell{};
    cell.resolutionLength = data.record.resolutionLength;
    for (int axis = 0; axis < 3; ++axis) {
        cell.center[axis] = static_cast<float>(data.record.center[axis] - octree.offset[axis]);
        cell.halfSize[axis] = data.record.size[axis] / 2;
    }
    return cell;
}

void CellTable::append(CellData& data, const OctreeInfo& octree)
{
    int64_t points = _pointsBefore.back();
    for (const VelBrx::Segment& segment : data.record.segments)
        points += segment.count;
    _pointsBefore.push_back(points);
    _data.push_back(&data);
    cells.push_back(cellOf(data, octree));
    setLoaded(cells.size() - 1, data.node.valid());
}

/// Children stand behind their parents.
void CellTable::boundSubtrees()
{
    subtrees.resize(cells.size());
    for (size_t i = cells.size(); i-- > 0;) {
        Subtree& subtree = subtrees[i];
        subtree = {cells[i].center - cells[i].halfSize, cells[i].center + cells[i].halfSize,
                   cells[i].resolutionLength};
        const Range below = children({i, i + 1});
        for (size_t child = below.first; child < below.end; ++child) {
            for (int axis = 0; axis < 3; ++axis) {
                subtree.min[axis] = std::min(subtree.min[axis], subtrees[child].min[axis]);
                subtree.max[axis] = std::max(subtree.max[axis], subtrees[child].max[axis]);
            }
            subtree.shortest = std::min(subtree.shortest, subtrees[child].shortest);
        }
    }
}

void CellTable::setLoaded(size_t cell, bool loaded)
{
    const uint64_t bit = uint64_t{1} << cell % 64;
    if (loaded)
        _loaded[cell / 64] |= bit;
    else
        _loaded[cell / 64] &= ~bit;
}
