#include "cull/ChangeRecord.h"

#include "edit/StoreEdit.h"
#include "loading/OpenOctrees.h"

#include <algorithm>
#include <unordered_map>

osg::ref_ptr<OctreeInfo> ChangeRecord::Store::acquireOctree()
{
    osg::ref_ptr<OctreeInfo> open;
    if (octree.lock(open)) return open;
    open = findOpenOctree(file);
    if (!open) return open;
    std::unordered_map<std::string, CellData*> byIdentifier;
    for (CellData* cell : allCells(*open))
        byIdentifier.emplace(cell->identifier, cell);
    for (Cell& cell : cells) {
        const auto found = byIdentifier.find(cell.identifier);
        cell.cell = found == byIdentifier.end() ? nullptr : found->second;
    }
    // Another store may have been written over the bytes of the file.
    cells.erase(std::remove_if(cells.begin(), cells.end(), [](const Cell& cell) { return !cell.cell; }),
                cells.end());
    octree = open;
    return open;
}
