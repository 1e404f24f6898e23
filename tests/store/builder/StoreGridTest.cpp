#include "store/builder/StoreGrid.h"

#include <gtest/gtest.h>

#include <limits>

using namespace VelBrx;

namespace {

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
constexpr int32_t kHighest = std::numeric_limits<int32_t>::max();

SourceExtent extent(double scale, double offset, int32_t min, int32_t max)
{
    SourceExtent extent;
    extent.path = "a.las";
    extent.empty = false;
    for (size_t axis = 0; axis < 3; ++axis) {
        extent.scale[axis] = scale;
        extent.offset[axis] = offset;
        extent.min[axis] = min;
        extent.max[axis] = max;
    }
    return extent;
}

StoreGrid gridOf(const std::vector<SourceExtent>& extents)
{
    StoreGrid grid;
    const Status status = makeStoreGrid(extents, grid);
    EXPECT_TRUE(status) << status.message();
    return grid;
}

/// How far a source's coordinate lies from its place in the store, in file units.
double deviation(const StoreGrid& grid, const SourceExtent& source, size_t index, int32_t value)
{
    const double place = value * source.scale[0] + source.offset[0];
    return std::abs(grid.coordinate(0, grid.mappings[index][0].apply(value)) - place);
}

} // namespace

TEST(StoreGrid, KeepsTheScaleOfOneSourceAndCentresItsOffsetOnARoundNumber)
{
    const SourceExtent source = extent(0.001, 0, 562000000, 563000000);
    const StoreGrid grid = gridOf({source});
    EXPECT_EQ(grid.scale[0], 0.001);
    EXPECT_EQ(grid.offset[0], 562500);
    EXPECT_EQ(grid.min[0], -500000);
    EXPECT_EQ(grid.max[0], 500000);
    EXPECT_TRUE(grid.isExact(0));
    EXPECT_EQ(grid.mappings[0][0].apply(562123456), -376544);
}

TEST(StoreGrid, HoldsTheWholeRangeOfIntegers)
{
    for (double scale : {1.0, 0.001, 1e-9}) {
        const SourceExtent source = extent(scale, 12.5, kLowest, kHighest);
        const StoreGrid grid = gridOf({source});
        EXPECT_TRUE(grid.isExact(0));
        EXPECT_EQ(int64_t(grid.max[0]) - grid.min[0], 0xFFFFFFFF);
        EXPECT_GT(grid.cubeSize, 0xFFFFFFFF * scale);
    }
}

TEST(StoreGrid, TakesTheFinestOfScalesThatFit)
{
    const std::vector<SourceExtent> sources = {
        extent(0.01, 1000, 0, 50000), extent(0.001, 1400.5, -20000, 90000), extent(0.0025, 1200, 0, 4)};
    const StoreGrid grid = gridOf({sources[0], sources[1]});
    EXPECT_EQ(grid.scale[0], 0.001);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(grid.isExact(i));
        for (int32_t value : {sources[i].min[0], 17, sources[i].max[0]})
            EXPECT_LT(deviation(grid, sources[i], i, value), 1e-9);
    }
    EXPECT_TRUE(grid.notes.empty());
    const StoreGrid uneven = gridOf(sources);
    EXPECT_FALSE(uneven.isExact(2)) << "2.5 mm is no whole multiple of 1 mm";
}

TEST(StoreGrid, RoundsAndSaysSoWhereThereIsNoCommonGrid)
{
    std::vector<SourceExtent> sources = {extent(0.01, 0, 0, 100000), extent(0.01, 0.0033, 0, 100000)};
    sources[1].path = "b.las";
    const StoreGrid grid = gridOf(sources);
    EXPECT_TRUE(grid.isExact(0));
    EXPECT_FALSE(grid.isExact(1));
    ASSERT_EQ(grid.notes.size(), 1u);
    EXPECT_NE(grid.notes[0].find("b.las"), std::string::npos) << grid.notes[0];
    for (int32_t value : {0, 1, 77777, 100000})
        EXPECT_LE(deviation(grid, sources[1], 1, value), 0.005 + 1e-9);
}

TEST(StoreGrid, TakesACoarserScaleWhereSourcesLieTooFarApart)
{
    const std::vector<SourceExtent> sources = {extent(0.001, 0, 0, 1000), extent(0.001, 1e7, 0, 1000)};
    const StoreGrid grid = gridOf(sources);
    EXPECT_DOUBLE_EQ(grid.scale[0], 0.01);
    EXPECT_FALSE(grid.isExact(0));
    for (size_t i = 0; i < 2; ++i)
        for (int32_t value : {0, 333, 1000})
            EXPECT_LE(deviation(grid, sources[i], i, value), 0.005 + 1e-9);
}

TEST(StoreGrid, RefusesCoordinatesThatAreNoNumbers)
{
    StoreGrid grid;
    EXPECT_FALSE(makeStoreGrid({extent(1e300, 0, 0, kHighest)}, grid));
    EXPECT_FALSE(makeStoreGrid({extent(1e300, 0, -5, 5)}, grid)) << "of other integers than the points have";
}

TEST(StoreGrid, CutsTheCubeAtGridLinesWhereTheScalesAreEqual)
{
    const StoreGrid grid = gridOf({extent(0.01, 0, -5, 1000)});
    EXPECT_EQ(grid.cubeSize, 0.01 * 1024);
    EXPECT_EQ(gridOf({extent(0.01, 0, 0, 0)}).cubeSize, 0.01) << "a single point";
}
