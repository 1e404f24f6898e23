#pragma once

#include "loading/CellTable.h"

#include <VelOsgUtils/CameraState.h>

#include <osg/Matrixd>
#include <osg/Plane>
#include <osg/Vec3d>

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

    /// Every cell of the subtree is inside. May say false where that is so.
    bool includes(const CellTable::Subtree& subtree) const;

private:
    osg::Matrixd _localToWorld;
    bool _isAffine;
    std::vector<osg::Plane> _planes; ///< whole groups only
    int _planesPerGroup;
};

/// The four sides of a camera's view; with `hasDepths` its near and far plane, too.
class FrustumSides
{
public:
    explicit FrustumSides(const osg::Matrixd& localToClip, bool hasDepths = false);

    /// Some side has the cell's box entirely outside.
    bool exclude(const CellTable::Cell& cell) const;

    /// Every side would have something inside of every cell of the subtree, whatever its place in it.
    bool include(const CellTable::Subtree& subtree) const;

private:
    struct Side
    {
        float distance(float x, float y, float z) const
        {
            return static_cast<float>(a * x + b * y + c * z + d);
        }

        double a, b, c, d; ///< local coordinates, positive inside
    };
    std::array<Side, 6> _sides;
    size_t _count; ///< of sides
};

/// What a camera's matrices say of how it looks.
struct CameraGeometry
{
    explicit CameraGeometry(const VelOsgUtils::CameraState& camera);

    bool perspective = false;
    double fieldOfViewY = 0; ///< degrees; perspective only
    double orthoWidth = 0;   ///< world units; orthographic only
    double orthoHeight = 0;
    osg::Vec3d eye; ///< world coordinates
    osg::Vec3d center;
    osg::Vec3d up;
};

/// The test of `FixPointCloudLod`. Like every cell test: 2 wanted, 0 or 1 not. `wantsAll` may say false where
/// each cell of a subtree is wanted, never true where one is not.
class RegionVisibility
{
public:
    RegionVisibility(const VelOsgDBBrx::FrameStamp& frameStamp, const osg::Matrixd& localToWorld);

    int checkCellIsVisiable(const CellTable::Cell& cell) const;
    bool wantsAll(const CellTable::Subtree& subtree) const { return _region.includes(subtree); }

private:
    RegionTest _region;
};

/// The test of `DynPointCloudLod`. What holds for the whole octree is worked out in the constructor.
class CameraVisibility
{
public:
    /// The region is the frame stamp's.
    CameraVisibility(const VelOsgUtils::CameraState& camera, const VelOsgDBBrx::FrameStamp& frameStamp,
                     const osg::Matrixd& localToWorld);

    int checkCellIsVisiable(const CellTable::Cell& cell) const;
    bool wantsAll(const CellTable::Subtree& subtree) const;

private:
    double projectedSize(const CellTable::Cell& cell) const;
    double greatestDepth(const CellTable::Subtree& subtree) const;

    FrustumSides _sides;
    osg::Matrixd _localToWorld;
    bool _perspective;
    double _height;         ///< viewport height, pixels
    double _tangent;        ///< perspective: the factor of the depth
    osg::Vec3d _eye;        ///< world
    osg::Vec3f _forward;    ///< world, unit length
    osg::Vec3d _depthSlope; ///< of the depth, in local coordinates
    double
        _greatestScale; ///< no local length is longer in the world by more; infinite where that has no bound
    double _orthoScale; ///< orthographic: pixels per world unit
    RegionTest _region;
};

/// The test of `PixelSpacingLod`, in the octree's own coordinates. A point at p has the homogeneous
/// coordinate w = `_depthSlope` * p + `_depthAtOrigin` in clip space: its depth in a perspective, 1 in a
/// parallel projection. A length across the line of sight covers the same number of pixels times w
/// everywhere.
class SpacingVisibility
{
public:
    /// The region is the frame stamp's. `pixels`: how far apart points of a wanted cell are at least.
    SpacingVisibility(const VelOsgUtils::CameraState& camera, const VelOsgDBBrx::FrameStamp& frameStamp,
                      const osg::Matrixd& localToWorld, double pixels);

    int checkCellIsVisiable(const CellTable::Cell& cell) const;
    bool wantsAll(const CellTable::Subtree& subtree) const;

private:
    bool spansEnough(const CellTable::Cell& cell) const;

    FrustumSides _sides;
    osg::Vec3d _depthSlope;
    osg::Vec3d _depthReach; ///< absolute values of the slope
    double _depthAtOrigin;
    double _depthOfLength; ///< the largest depth at which a resolution length of 1 is wanted
    RegionTest _region;
};
