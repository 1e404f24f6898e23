#include "loading/UnwrittenClasses.h"

#include <VelOsgDBBrx/CellData.h>

#include <algorithm>

uint32_t countPoints(const std::vector<VelBrx::Segment>& segments)
{
    int64_t count = 0;
    for (const VelBrx::Segment& segment : segments)
        count += std::max<int64_t>(segment.count, 0);
    return static_cast<uint32_t>(count);
}

CellPlace::CellPlace(CellData& cellData)
    : identifier(cellData.identifier), pointDataStart(0), segments(cellData.record.segments),
      pointCount(countPoints(cellData.record.segments)), cell(&cellData)
{
    osg::ref_ptr<OctreeInfo> octree;
    if (!cellData.octree.lock(octree)) return;
    storePath = octree->pointPath;
    file = octree->pointFile;
    journal = octree->journal;
    pointDataStart = octree->pointDataStart;
}

UnwrittenClasses& UnwrittenClasses::instance()
{
    static UnwrittenClasses classes;
    return classes;
}

ClassesPtr UnwrittenClasses::current(const std::string& identifier) const
{
    return find(identifier).current;
}

UnwrittenClasses::Cell UnwrittenClasses::find(const std::string& identifier) const
{
    const VelThreads::Lock lock(_mutex);
    const auto found = _cells.find(identifier);
    return found == _cells.end() ? Cell() : found->second;
}

void UnwrittenClasses::set(const Cell& cell)
{
    if (*cell.current == *cell.written) return forget(cell.place->identifier);
    const VelThreads::Lock lock(_mutex);
    _cells[cell.place->identifier] = cell;
}

void UnwrittenClasses::forget(const std::string& identifier)
{
    const VelThreads::Lock lock(_mutex);
    _cells.erase(identifier);
}

std::vector<UnwrittenClasses::Cell> UnwrittenClasses::cells() const
{
    const VelThreads::Lock lock(_mutex);
    std::vector<Cell> all;
    all.reserve(_cells.size());
    for (const auto& [identifier, cell] : _cells)
        all.push_back(cell);
    return all;
}

bool UnwrittenClasses::isEmpty() const
{
    const VelThreads::Lock lock(_mutex);
    return _cells.empty();
}
