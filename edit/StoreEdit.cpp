#include "edit/StoreEdit.h"

#include "osgutils/WakeSignal.h"

#include <VelOsgDBBrx/PCDataManager.h>

#include <osg/Group>

#include <chrono>
#include <cmath>
#include <thread>

StoreEditLock::StoreEditLock(OctreeInfo& octree) : _octree(octree)
{
    _octree.pointFile->mutex.lock();
    while (_octree.busy.fetch_or(1) & 1)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
}

StoreEditLock::~StoreEditLock()
{
    _octree.busy.fetch_and(~1u);
    _octree.pointFile->mutex.unlock();
    // A pass that met the lock has left the octree out and does not come back by itself. The flag is set
    // after the lock is free: a pass that it starts must find the octree.
    _octree.dirty = 1;
    VelOsgUtils::WakeSignal::raise();
}

bool isEditable(const OctreeInfo& octree)
{
    return octree.pointFile && octree.pointFile->isWritable();
}

namespace {

void visitLeaf(osg::Node* node, uint32_t pointCount, const std::function<void(CellGeometry&)>& visit)
{
    osg::Group* leaf = node ? node->asGroup() : nullptr;
    for (unsigned int i = 0; leaf && i < leaf->getNumChildren(); ++i) {
        auto* geometry = dynamic_cast<CellGeometry*>(leaf->getChild(i));
        if (geometry && geometry->cellPoints() == pointCount) visit(*geometry);
    }
}

} // namespace

CellBox::CellBox(const OctreeInfo& octree, const CellData& cell)
{
    // Cell sizes are single precision: the box is widened by their rounding.
    constexpr double kWidened = 0.5 * (1 + 1e-6);
    const VelBrx::CellBlock& block = cell.record;
    for (int axis = 0; axis < 3; ++axis) {
        center[axis] = block.center[axis] - octree.offset[axis];
        half[axis] = kWidened * block.size[axis] + octree.scale[axis];
    }
}

bool CellBox::isOutside(const osg::Polytope::PlaneList& planes) const
{
    for (const osg::Plane& plane : planes) {
        const double reach =
            std::abs(plane[0]) * half[0] + std::abs(plane[1]) * half[1] + std::abs(plane[2]) * half[2];
        if (plane.distance(center) + reach < 0) return true;
    }
    return false;
}

std::vector<CellData*> cellsWhere(const OctreeInfo& octree,
                                  const std::function<bool(const CellData&)>& reached)
{
    std::vector<CellData*> found;
    std::vector<CellData*> open;
    if (octree.root.valid()) open.push_back(octree.root.get());
    while (!open.empty()) {
        CellData* cell = open.back();
        open.pop_back();
        if (!reached(*cell)) continue;
        found.push_back(cell);
        for (const osg::ref_ptr<CellData>& child : cell->children)
            open.push_back(child.get());
    }
    return found;
}

std::vector<CellData*> allCells(const OctreeInfo& octree)
{
    return cellsWhere(octree, [](const CellData&) { return true; });
}

std::vector<CellData*> cellsInside(const OctreeInfo& octree, const osg::Polytope::PlaneList& planes)
{
    return cellsWhere(octree, [&](const CellData& cell) { return !CellBox(octree, cell).isOutside(planes); });
}

void visitLoadedCell(const CellData& cell, const std::function<void(CellGeometry&)>& visit)
{
    // The same store may be open twice and share its leaves: one that only the other octree holds is in the
    // cache and not in this cell.
    const osg::ref_ptr<osg::Node> cached =
        VelOsgDBBrx::PCDataManager::getInstance()->acquireNode(cell.identifier);
    visitLeaf(cached, cell.record.pointCount, visit);
    if (cell.node != cached) visitLeaf(cell.node, cell.record.pointCount, visit);
}

void editLoadedCell(const CellData& cell, const CellGeometry::CategoryEdit& edit)
{
    visitLoadedCell(cell, [&](CellGeometry& geometry) { geometry.editCategories(edit); });
}

void editCachedCell(const std::string& identifier, uint32_t pointCount,
                    const CellGeometry::CategoryEdit& edit)
{
    visitLeaf(VelOsgDBBrx::PCDataManager::getInstance()->acquireNode(identifier), pointCount,
              [&](CellGeometry& geometry) { geometry.editCategories(edit); });
}
