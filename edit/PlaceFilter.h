#pragma once

#include "edit/RecordBlock.h"
#include "edit/SelectionAreas.h"
#include "edit/StoreEdit.h"

#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Matrixd>
#include <osg/Vec3d>

#include <cstdint>
#include <memory>
#include <vector>

/// Where the points of a cell are, in the store's local frame and in the world.
struct CellRegion
{
    CellRegion(const CellBox& localBox, const osg::Matrixd& localToWorld);

    CellBox box;
    osg::Vec3d low; ///< of a box around it along the axes of the world
    osg::Vec3d high;
};

/// A rule of a selection that goes by where points are. Constant after construction; any number of threads
/// may use it.
class PlaceFilter
{
public:
    virtual ~PlaceFilter() = default;

    /// Clears the bytes of the points that the rule leaves out; those behind the last record do not count.
    virtual void keep(const RecordBlock& block, uint8_t* accepted) const = 0;

    /// Whether points of the cell can pass.
    virtual bool mayPass(const CellRegion& cell) const = 0;
};

using PlaceFilters = std::vector<std::unique_ptr<const PlaceFilter>>;

/// The rules of a selection for one store, which stands in the world as `localToWorld` says. The areas, whose
/// status is a success, outlive them.
PlaceFilters placeFilters(const SelectionAreas& areas, const OctreeInfo& octree,
                          const osg::Matrixd& localToWorld);
