#include "store/normals/NormalTile.h"
#include "store/normals/TilePlan.h"

#include "store/StoreHead.h"
#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using namespace VelBrx;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const SpaceBox kAll{{-kInfinity, -kInfinity, -kInfinity}, {kInfinity, kInfinity, kInfinity}};
constexpr size_t kNeighbours = 12;

class NormalTileTest : public testing::Test
{
protected:
    TempFolder folder;
    TestLas las;
    FileReader file;
    StoreHead head;
    StoreIndex index;

    void build()
    {
        buildStoreOf(folder.write("cloud.las", las.bytes()), folder.file("cloud.brx"));
        ASSERT_TRUE(readStore(folder.file("cloud.brx"), file, head, index));
    }

    static std::vector<PointNormal> compute(const CellSpace& space, const SpaceBox& box)
    {
        std::vector<PointNormal> normals;
        const Status status =
            NormalTile(space, box, kNeighbours).compute(normals, [](uint64_t) { return Status(); });
        EXPECT_TRUE(status) << status.message();
        return normals;
    }

    /// Normals of all points, cube by cube.
    static std::vector<PointNormal> computeTiled(const CellSpace& space, uint64_t tilePoints)
    {
        std::vector<PointNormal> all;
        for (const SpaceBox& box : planTiles(space, tilePoints)) {
            const std::vector<PointNormal> normals = compute(space, box);
            all.insert(all.end(), normals.begin(), normals.end());
        }
        std::sort(all.begin(), all.end(),
                  [](const PointNormal& a, const PointNormal& b) { return a.index < b.index; });
        return all;
    }

    static std::vector<SpacePoint> allPoints(const CellSpace& space)
    {
        std::vector<SpacePoint> points;
        for (size_t cell = 0; cell < space.index().cells.size(); ++cell)
            EXPECT_TRUE(space.readCell(cell, kAll, points));
        std::sort(points.begin(), points.end(),
                  [](const SpacePoint& a, const SpacePoint& b) { return a.index < b.index; });
        return points;
    }

    /// The normal by looking at every point of the cloud.
    static std::array<float, 3> plainNormal(const std::vector<SpacePoint>& points, const Position& place)
    {
        std::vector<std::pair<double, uint64_t>> order;
        for (const SpacePoint& point : points) {
            double sum = 0;
            for (size_t axis = 0; axis < 3; ++axis)
                sum += std::pow(point.position[axis] - place[axis], 2);
            order.push_back({sum, point.index});
        }
        const size_t count = std::min(kNeighbours, order.size());
        std::partial_sort(order.begin(), order.begin() + std::ptrdiff_t(count), order.end());
        std::vector<const Position*> nearest;
        for (size_t i = 0; i < count; ++i)
            nearest.push_back(&points[order[i].second].position);
        return planeNormal(nearest.data(), nearest.size());
    }

    /// Checks tiles of several sizes against the whole cloud, and some points against every other.
    void expectWholeCloud()
    {
        build();
        const CellSpace space(file, head.header, index);
        const std::vector<SpacePoint> points = allPoints(space);
        const std::vector<PointNormal> whole = compute(space, kAll);
        ASSERT_EQ(whole.size(), las.records.size());
        for (size_t i = 0; i < points.size(); i += 1 + points.size() / 300) {
            EXPECT_EQ(whole[i].index, i);
            EXPECT_EQ(whole[i].normal, plainNormal(points, points[i].position)) << i;
        }
        for (uint64_t tilePoints : {1u, 3000u, 20000u}) {
            const std::vector<PointNormal> tiled = computeTiled(space, tilePoints);
            ASSERT_EQ(tiled.size(), whole.size());
            for (size_t i = 0; i < whole.size(); ++i) {
                ASSERT_EQ(tiled[i].index, i);
                ASSERT_EQ(tiled[i].normal, whole[i].normal) << i << " in tiles of " << tilePoints;
            }
        }
    }
};

} // namespace

TEST_F(NormalTileTest, OfAHillyCloudEqualThoseOfTheWholeCloud)
{
    std::mt19937 random(1);
    for (int i = 0; i < 60000; ++i) {
        const auto x = static_cast<int32_t>(random() % 100000);
        const auto y = static_cast<int32_t>(random() % (i % 3 ? 100000 : 20000)); // three times denser there
        las.addPoint(x, y, static_cast<int32_t>(4000 * std::sin(x / 9000.0) + random() % 50));
    }
    for (int i = 0; i < 40; ++i) // birds: their neighbours are far, in many cells
        las.addPoint(static_cast<int32_t>(random() % 100000), static_cast<int32_t>(random() % 100000), 60000);
    expectWholeCloud();
}

TEST_F(NormalTileTest, OfALatticeTakeTheSamePointsAtEqualDistance)
{
    for (int x = 0; x < 40; ++x)
        for (int y = 0; y < 40; ++y)
            for (int z = 0; z < 12; ++z)
                las.addPoint(x * 100, y * 100, z * 100);
    expectWholeCloud();
}

TEST_F(NormalTileTest, OfUnequalScalesAreThoseOfTheRealShape)
{
    las.scale = {0.01, 0.001, 0.0025};
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        const double x = double(random() % 10000) / 100;
        const double y = double(random() % 10000) / 100;
        las.addPoint(static_cast<int32_t>(std::lround(x / 0.01)),
                     static_cast<int32_t>(std::lround(y / 0.001)),
                     static_cast<int32_t>(std::lround((x + 2 * y) / 0.0025))); // z = x + 2 y
    }
    expectWholeCloud();
    const CellSpace space(file, head.header, index);
    for (const PointNormal& found : compute(space, kAll)) {
        EXPECT_NEAR(found.normal[0], -1 / std::sqrt(6.0), 0.01);
        EXPECT_NEAR(found.normal[1], -2 / std::sqrt(6.0), 0.01);
    }
}

TEST_F(NormalTileTest, OfManyPointsInOnePlaceAndOfATinyCrowdAreDefined)
{
    std::mt19937 random(3);
    const auto within = [&random](unsigned width) { return static_cast<int32_t>(random() % width); };
    for (int i = 0; i < 3000; ++i)
        las.addPoint(5, 5, 5);
    for (int i = 0; i < 3000; ++i)
        las.addPoint(3000000 + within(200), 7000 + within(200), within(200));
    for (int i = 0; i < 3; ++i)
        las.addPoint(100000, 100000 + i, 100000);
    expectWholeCloud();
}

TEST_F(NormalTileTest, OfACloudOfFewPointsTakeAllOfThem)
{
    for (int i = 0; i < 5; ++i)
        las.addPoint(i * 1000, i % 2 * 1000, 0);
    expectWholeCloud();
}
