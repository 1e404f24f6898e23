#pragma once

#include "edit/RecordBlock.h"

#include <osg/Matrixd>
#include <osg/Vec3d>
#include <osg/Vec4d>

#include <cstdint>
#include <vector>

class ScreenMask;

/// Tells which point records of a store lie under a mask of the window. The integer coordinates of the
/// records go straight to pixels: scale, model, view, projection and window are one matrix. Constant after
/// construction; any number of threads may use it.
class RecordScreenTest
{
public:
    static constexpr int kBlock = RecordBlock::kSize; ///< records tested at once

    /// `localToWindow`: the octree's local coordinates to pixels, y up. `localPlanes`: planes in local
    /// coordinates; a point is only accepted on the positive side of all. `outside`: accept the points that
    /// the mask does not cover. The mask outlives the test.
    RecordScreenTest(const osg::Vec3d& scale, const osg::Matrixd& localToWindow,
                     const std::vector<osg::Vec4d>& localPlanes, const ScreenMask& mask, bool outside);

    /// Writes a byte for each of `count` consecutive records, at most kBlock: not zero where the point is
    /// accepted. `accepted` has room for kBlock bytes.
    void test(const uint8_t* records, int count, uint8_t* accepted) const;

    /// The same for records that are packed already; `accepted` is written to its end.
    void test(const RecordBlock& block, uint8_t* accepted) const;

private:
    using Linear = RecordBlock::Linear;

    void lookUp(const RecordBlock& block, uint8_t* accepted) const;
    static void keepPositive(const Linear& plane, const RecordBlock& block, uint8_t* accepted);

    const ScreenMask& _mask;
    Linear _column; ///< times w
    Linear _row;    ///< from the top of the window, times w
    Linear _w;
    std::vector<Linear> _planes;
    bool _outside;
};
