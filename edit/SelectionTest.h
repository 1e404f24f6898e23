#pragma once

#include "edit/PlaceFilter.h"
#include "edit/PointTest.h"

#include <array>
#include <cstdint>
#include <vector>

/// Which points of a store a `PointSelection` reaches.
class SelectionTest : public PointTest
{
public:
    /// Which points the edit is for, by their hidden bits. Ranges of attributes may narrow it.
    enum class Hidden
    {
        VISIBLE,
        HIDDEN,
        ANY
    };

    /// Areas, whose status is a success and which are scanned where that is needed (`SelectionScan`), and
    /// octree outlive the test. `localToWorld` may turn and scale.
    SelectionTest(const SelectionAreas& areas, const OctreeInfo& octree, const osg::Matrixd& localToWorld,
                  Hidden hidden);

    std::vector<CellData*> cells() const override;
    void test(const uint8_t* records, int count, const uint8_t* classes, uint8_t* accepted) const override;
    bool readsClasses() const override { return !_allClasses; }

private:
    /// A number of the records that lies in a range.
    struct Range
    {
        void (*keep)(const Range& range, const uint8_t* records, int count, uint8_t* accepted);
        double low;
        double high;
    };

    void addRanges(const VelOsgDBBrx::AttributeRanges& attributes);
    void setClasses(const VelOsgDBBrx::PointSelection& selection);

    const OctreeInfo& _octree;
    const osg::Matrixd _localToWorld;
    const PlaceFilters _places;
    bool _visible; ///< visible points can be reached
    bool _hidden;  ///< hidden ones can be
    bool _allClasses;
    std::array<uint8_t, 256> _classes; ///< 1: can be reached
    std::vector<Range> _ranges;
};
