#pragma once

#include "category/ClassRule.h"
#include "edit/PointTest.h"
#include "edit/RecordScreenTest.h"
#include "edit/ScreenMask.h"

#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Polytope>
#include <osg/Vec2d>

#include <array>
#include <cstdint>
#include <vector>

class CellData;
class CloudPlaces;

/// Success when an edit can be made with these values.
VelBrx::Status checkBase(const VelOsgDBBrx::Base& base);

/// A selection on the screen with the rules of a `Base`. The mask may be of another size than the window; it
/// is stretched over it.
struct ScreenSelection
{
    const VelOsgDBBrx::Base& base;
    const ScreenMask& mask;
    const std::vector<osg::Vec2d>&
        outline;               ///< encloses the mask's pixels; pixels of the window, from its top
    const CloudPlaces& places; ///< of the clouds to edit
};

/// Which classes an edit with these values may change. Class 255 has no entry; it goes with a full table.
ClassRule classRule(const VelOsgDBBrx::Base& base);

/// Which points of an octree an edit on the screen reaches. The selection outlives it.
class ScreenRules : public PointTest
{
public:
    ScreenRules(OctreeInfo& octree, const ScreenSelection& selection);

    std::vector<CellData*> cells() const override;
    void test(const uint8_t* records, int count, const uint8_t* classes, uint8_t* accepted) const override;

private:
    static_assert(kBlock == RecordScreenTest::kBlock);

    /// A byte for each class code, not zero for yes.
    using ClassSet = std::array<uint8_t, 256>;

    void addTests(const ScreenSelection& selection, const osg::Matrixd& localToWorld);

    const OctreeInfo& _octree;
    osg::Polytope::PlaneList _bounds;     ///< nothing outside is selected; local coordinates
    bool _empty = false;                  ///< nothing is selected at all
    std::vector<RecordScreenTest> _tests; ///< a point is accepted when one of them accepts it
    uint8_t _hidingBits;                  ///< a point with one of them is not selected
    ClassSet _shown;                      ///< points of other classes are not selected
};
