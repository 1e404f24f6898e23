#pragma once

#include "edit/CloudPlaces.h"
#include "edit/EditControl.h"
#include "edit/SelectionAreas.h"
#include "edit/SelectionTest.h"

#include <VelBrx/Status.h>

#include <osg/ref_ptr>

#include <memory>
#include <string>
#include <vector>

/// Looks through the points of clouds for what a selection must know of them before it can be tested: which
/// points are in front, which grow together. Half of the edit's progress is its own. A cancelled one leaves
/// areas without meaning. Takes the edit locks of the stores.
class SelectionScan
{
public:
    /// Whether there is something to look for.
    static bool isNeeded(const SelectionAreas& areas);

    using Clouds = std::vector<osg::ref_ptr<OctreeInfo>>;

    /// `areas` are ready for a `SelectionTest` with the same `hidden` then.
    VelBrx::Status run(SelectionAreas& areas, const Clouds& clouds, const CloudPlaces& places,
                       SelectionTest::Hidden hidden, EditControl& control);

    /// Something to tell people; empty where there is nothing.
    const std::string& note() const { return _note; }

    uint64_t cellsUnreadable() const { return _cellsUnreadable; }

private:
    struct CloudTest;
    using CloudTests = std::vector<CloudTest>;

    static CloudTests testsOf(const SelectionAreas& areas, const Clouds& clouds, const CloudPlaces& places,
                              SelectionTest::Hidden hidden);
    std::unique_ptr<FrontSurface> findFront(const VelOsgDBBrx::ScreenPlace& place, const CloudTests& tests,
                                            EditControl& control);
    VelBrx::Status grow(GrownPoints& grown, const VelOsgDBBrx::GrownPlace& place, const CloudTests& tests,
                        EditControl& control);

    std::string _note;
    uint64_t _cellsUnreadable = 0;
};
