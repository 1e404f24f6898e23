#pragma once

#include "edit/EditControl.h"
#include "edit/PointTest.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <osg/BoundingBox>
#include <osg/Matrixd>

#include <array>
#include <cstdint>
#include <map>
#include <vector>

/// A store that growth may take points of.
struct GrowthStore
{
    const OctreeInfo* octree;
    osg::Matrixd localToWorld;
    const PointTest* test; ///< the points that are there for growth
};

/// The points of stores that a `GrownPlace` means. Constant after `grow`; any number of threads may use it.
class GrownPoints
{
public:
    /// Whole coordinates of a record. Points at the same place are grown together.
    using Place = std::array<int32_t, 3>;

    /// Grows. Reads the cells around what has grown, each once. A point is a cell done. A failure where no
    /// point is near enough, or the first one has no plane. After a cancel the points have no meaning.
    /// Takes the mutexes of the point files, one at a time.
    VelBrx::Status grow(const VelOsgDBBrx::GrownPlace& place, const std::vector<GrowthStore>& stores,
                        EditControl& control);

    /// Those of a store, ascending.
    const std::vector<Place>& of(const OctreeInfo& octree) const;

    /// Around all of them, world coordinates.
    const osg::BoundingBoxd& bounds() const { return _bounds; }

    /// Growth met its limit.
    bool isCut() const { return _isCut; }

    uint64_t cellsUnreadable() const { return _cellsUnreadable; }

private:
    std::map<const OctreeInfo*, std::vector<Place>> _places;
    osg::BoundingBoxd _bounds;
    bool _isCut = false;
    uint64_t _cellsUnreadable = 0;
};
