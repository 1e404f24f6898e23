#pragma once

#include "loading/CellTable.h"

#include <osg/Matrixd>
#include <osg/Plane>

#include <array>
#include <vector>

namespace VelOsgDBBrx {
class FrameStamp;
}

/// The eight corners of a box: around the lower face from the smallest corner, then around the upper one.
std::array<osg::Vec3f, 8> getBox(const osg::Vec3f& min, const osg::Vec3f& max);

/// Where a cell lies with respect to the filter-plane region.
class RegionTest
{
public:
    RegionTest(const VelOsgDBBrx::FrameStamp& frameStamp, const osg::Matrixd& localToWorld);

    bool hasRegion() const { return _planesPerGroup >= 1; }

    /// No plane of some whole group has the cell's box, in world coordinates, entirely on its negative side.
    bool isInside(const CellTable::Cell& cell) const;

private:
    osg::Matrixd _localToWorld;
    std::vector<osg::Plane> _planes; ///< whole groups only
    int _planesPerGroup;
};

/// The test of `FixPointCloudLod`. Like every cell test: 2 wanted, 0 or 1 not.
class RegionVisibility
{
public:
    RegionVisibility(const VelOsgDBBrx::FrameStamp& frameStamp, const osg::Matrixd& localToWorld);

    int checkCellIsVisiable(const CellTable::Cell& cell) const;

private:
    RegionTest _region;
};

/// The test of `DynPointCloudLod`. What holds for the whole octree is worked out in the constructor.
class CameraVisibility
{
public:
    /// The frame stamp's camera fields must be set.
    CameraVisibility(const VelOsgDBBrx::FrameStamp& frameStamp, const osg::Matrixd& localToWorld);

    int checkCellIsVisiable(const CellTable::Cell& cell) const;

private:
    bool isOutsideFrustum(const CellTable::Cell& cell) const;
    double projectedSize(const CellTable::Cell& cell) const;

    struct SidePlane
    {
        double a, b, c, d; ///< local coordinates, positive inside
    };
    std::array<SidePlane, 4> _sides;

    osg::Matrixd _localToWorld;
    bool _perspective;
    double _height;      ///< viewport height, pixels
    double _tangent;     ///< perspective: the factor of the depth
    osg::Vec3d _eye;     ///< world
    osg::Vec3f _forward; ///< world, unit length
    double _orthoScale;  ///< orthographic: pixels per world unit

    RegionTest _region;
};
