#include "edit/SelectionScan.h"

#include "edit/FrontSurface.h"
#include "edit/GrownPoints.h"
#include "edit/StoreEdit.h"

#include <algorithm>
#include <memory>
#include <utility>

using namespace VelOsgDBBrx;
using VelBrx::Status;

namespace {

const ScreenPlace* frontOf(const SelectionAreas& areas)
{
    const auto* screen = std::get_if<ScreenPlace>(&areas.selection.place);
    return screen && screen->frontTolerance ? screen : nullptr;
}

/// What hides others: all that is drawn under the polygon, whatever it is.
PointSelection inTheWay(PointSelection selection)
{
    std::get<ScreenPlace>(selection.place).frontTolerance.reset();
    selection.attributes = AttributeRanges();
    selection.selected.clear();
    return selection;
}

/// What growth may take.
PointSelection thereForGrowth(PointSelection selection)
{
    selection.place = Everywhere();
    selection.outside = false;
    return selection;
}

} // namespace

/// Where a selection is tested.
struct SelectionScan::CloudTest
{
    osg::ref_ptr<OctreeInfo> octree;
    osg::Matrixd localToWorld;
    std::unique_ptr<const SelectionTest> test;
};

SelectionScan::CloudTests SelectionScan::testsOf(const SelectionAreas& areas, const Clouds& clouds,
                                                 const CloudPlaces& places, SelectionTest::Hidden hidden)
{
    CloudTests tests;
    for (const osg::ref_ptr<OctreeInfo>& octree : clouds) {
        const osg::Matrixd place = places.of(*octree);
        tests.push_back({octree, place, std::make_unique<SelectionTest>(areas, *octree, place, hidden)});
    }
    return tests;
}

bool SelectionScan::isNeeded(const SelectionAreas& areas)
{
    return frontOf(areas) || std::holds_alternative<GrownPlace>(areas.selection.place);
}

Status SelectionScan::run(SelectionAreas& areas, const Clouds& clouds, const CloudPlaces& places,
                          SelectionTest::Hidden hidden, EditControl& control)
{
    if (const ScreenPlace* place = frontOf(areas)) {
        const SelectionAreas occluding(inTheWay(areas.selection), areas.mask);
        if (!occluding.status) return occluding.status;
        areas.front = findFront(*place, testsOf(occluding, clouds, places, hidden), control);
    }
    if (const auto* place = std::get_if<GrownPlace>(&areas.selection.place)) {
        const SelectionAreas candidates(thereForGrowth(areas.selection));
        if (!candidates.status) return candidates.status;
        auto grown = std::make_unique<GrownPoints>();
        const Status status = grow(*grown, *place, testsOf(candidates, clouds, places, hidden), control);
        if (!status) return status;
        areas.grown = std::move(grown);
    }
    return {};
}

std::unique_ptr<FrontSurface> SelectionScan::findFront(const ScreenPlace& place, const CloudTests& tests,
                                                       EditControl& control)
{
    size_t cells = 0;
    for (const CloudTest& cloud : tests)
        cells += cloud.test->cells().size();
    control.begin(2 * cells);
    auto front = std::make_unique<FrontSurface>(place);
    for (const CloudTest& cloud : tests) {
        const StoreEditLock lock(*cloud.octree);
        _cellsUnreadable += front->add(*cloud.octree, cloud.localToWorld, *cloud.test, control);
    }
    front->close();
    return front;
}

Status SelectionScan::grow(GrownPoints& grown, const GrownPlace& place, const CloudTests& tests,
                           EditControl& control)
{
    std::vector<GrowthStore> stores;
    for (const CloudTest& cloud : tests)
        stores.push_back({cloud.octree, cloud.localToWorld, cloud.test.get()});
    control.begin(2 * static_cast<uint64_t>(place.limit));
    const Status status = grown.grow(place, stores, control);
    if (grown.isCut()) _note = "growth ended at its limit of " + std::to_string(place.limit) + " points";
    _cellsUnreadable += grown.cellsUnreadable();
    return status;
}
