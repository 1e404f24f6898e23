#pragma once

#include "loading/CellGeometry.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Polytope>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Keeps level-of-detail passes of either kind away from a store while its records are edited. Blocks until
/// a pass that runs has ended.
class StoreEditLock
{
public:
    /// The octree has a point file and outlives the lock.
    explicit StoreEditLock(OctreeInfo& octree);
    ~StoreEditLock();
    StoreEditLock(const StoreEditLock&) = delete;
    StoreEditLock& operator=(const StoreEditLock&) = delete;

private:
    OctreeInfo& _octree;
};

/// Whether the store's records can be changed.
bool isEditable(const OctreeInfo& octree);

/// Every cell of the octree.
std::vector<CellData*> allCells(const OctreeInfo& octree);

/// The cells that `reached` holds for. Subtrees of a cell that it does not hold for are not visited.
std::vector<CellData*> cellsWhere(const OctreeInfo& octree,
                                  const std::function<bool(const CellData&)>& reached);

/// Where the points of a cell are: a box in the octree's local frame, a little larger than the cell, since
/// coordinates may lie a step of the records' integers beyond its faces.
struct CellBox
{
    CellBox(const OctreeInfo& octree, const CellData& cell);

    /// Whether the box lies on the negative side of one of the planes.
    bool isOutside(const osg::Polytope::PlaneList& planes) const;

    osg::Vec3d center;
    osg::Vec3d half; ///< of the edges
};

/// The cells whose box meets the inside of all planes, which are in the octree's local frame. Subtrees of a
/// cell outside are not visited.
std::vector<CellData*> cellsInside(const OctreeInfo& octree, const osg::Polytope::PlaneList& planes);

/// Edits the location-12 attribute of a cell wherever it is loaded, if it is: `edit` is called with the
/// array, once for each leaf that shows the cell; element i is of the cell's point i. The caller holds
/// the octree's edit lock and has changed the records already.
void editLoadedCell(const CellData& cell, const CellGeometry::CategoryEdit& edit);

/// Calls `visit` with the geometry of each leaf that shows the cell, or is kept for it.
void visitLoadedCell(const CellData& cell, const std::function<void(CellGeometry&)>& visit);

/// The same for a cell whose octree may be gone: the leaf is the one in the cache. The cell has `pointCount`
/// points.
void editCachedCell(const std::string& identifier, uint32_t pointCount,
                    const CellGeometry::CategoryEdit& edit);
