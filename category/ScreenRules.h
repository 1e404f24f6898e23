#pragma once

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

/// Which points of an octree an edit on the screen reaches, and which of them get another class. Constant
/// after construction; any number of threads may use it. The selection outlives it.
class ScreenRules
{
public:
    using ClassCounts = std::array<uint64_t, 256>;

    ScreenRules(OctreeInfo& octree, const ScreenSelection& selection);

    /// Cells that can hold selected points.
    std::vector<CellData*> cells() const;

    /// `before` receives the classes of `count` consecutive points, `after` the new ones. `current`, if not
    /// null, overrides the classes of the records. `selected` receives how many of the selected points
    /// have which class.
    void edit(const uint8_t* records, int64_t count, const uint8_t* current, uint8_t* before, uint8_t* after,
              ClassCounts& selected) const;

    /// Adds up what became of the selected points.
    void addCounts(const ClassCounts& selected, VelOsgDBBrx::CategoryReport::Counts& counts) const;

private:
    static constexpr int kBlock = RecordScreenTest::kBlock;

    /// A byte for each class code, not zero for yes.
    using ClassSet = std::array<uint8_t, 256>;

    static ClassSet fromClasses(const VelOsgDBBrx::Base& base);
    void addTests(const ScreenSelection& selection, const osg::Matrixd& localToWorld);
    bool accept(const uint8_t* records, int count, uint8_t* accepted) const;
    void editBlock(const uint8_t* records, int count, const uint8_t* before, uint8_t* after,
                   ClassCounts& selected) const;

    const OctreeInfo& _octree;
    osg::Polytope::PlaneList _bounds;     ///< nothing outside is selected; local coordinates
    bool _empty = false;                  ///< nothing is selected at all
    std::vector<RecordScreenTest> _tests; ///< a point is accepted when one of them accepts it
    uint8_t _hidingBits;                  ///< a point with one of them is not selected
    ClassSet _shown;                      ///< points of other classes are not selected
    ClassSet _changes;                    ///< classes whose points get another class
    uint8_t _toClass;
};
