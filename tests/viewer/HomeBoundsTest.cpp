#include "viewer/scene/HomeBounds.h"
#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"
#include "viewer/scene/Scene.h"

#include <VelBrx/FolderIndex.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace {

constexpr int kSide = 60; ///< points along a side of the tile, a metre apart

/// A store that was built an hour ago, as the index of its folder has it.
std::vector<WaitingStore> indexed(const TempFolder& folder, const std::string& store)
{
    namespace fs = std::filesystem;
    fs::last_write_time(store, fs::file_time_type::clock::now() - std::chrono::hours(1));
    VelBrx::FolderIndex index;
    VelBrx::FolderReport report;
    EXPECT_TRUE(VelBrx::readFolder(folder.path(), index, report));
    EXPECT_TRUE(VelBrx::writeFolderIndex(folder.path(), index));
    std::vector<WaitingStore> stores;
    std::vector<std::string> notes;
    std::vector<std::string> problems;
    EXPECT_TRUE(readIndexedStores(folder.path(), stores, notes, problems));
    return stores;
}

/// A tile with a tower in its middle, and `more` points (in steps of a centimetre) elsewhere.
void expectHome(const std::vector<osg::Vec3i>& more, const osg::BoundingBoxd& expected)
{
    TestLas las;
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
            las.addPoint(x * 100, y * 100, 10000);
    las.addPoint(kSide / 2 * 100, kSide / 2 * 100, 10000 + 1400);
    for (const osg::Vec3i& point : more)
        las.addPoint(point.x(), point.y(), point.z());
    const TempFolder folder;
    const std::vector<uint8_t> bytes = las.bytes();
    std::ofstream(folder.file("tile.las"), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    buildStoreOf(folder.file("tile.las"), folder.file("tile.brx"));
    Scene scene;
    ASSERT_TRUE(scene.load({folder.file("tile.brx")}, Options()));
    const osg::BoundingBoxd& home = scene.boundsFor(CameraView());
    Scene waiting;
    ASSERT_TRUE(waiting.load({}, indexed(folder, folder.file("tile.brx")), Options()));
    ASSERT_EQ(waiting.waiting().size(), 1u);
    EXPECT_EQ(waiting.boundsFor(CameraView())._min, home._min) << "before the store is open";
    EXPECT_EQ(waiting.boundsFor(CameraView())._max, home._max);
    CameraView everything;
    everything.kind = CameraView::ALL;
    osg::BoundingBoxd all(0, 0, 100, kSide - 1, kSide - 1, 114);
    for (const osg::Vec3i& point : more)
        all.expandBy(osg::Vec3d(point.x(), point.y(), point.z()) * 0.01);
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(home._min[axis], expected._min[axis], 0.01) << axis;
        EXPECT_NEAR(home._max[axis], expected._max[axis], 0.01) << axis;
        EXPECT_NEAR(scene.boundsFor(everything)._min[axis], all._min[axis], 0.01) << axis;
        EXPECT_NEAR(scene.boundsFor(everything)._max[axis], all._max[axis], 0.01) << axis;
    }
}

} // namespace

/// A quarter of the width has a place beside the points, and above and below them.
TEST(HomeBounds, LeaveOutSinglePointsFarOffInEveryDirection)
{
    constexpr double kLast = kSide - 1;
    constexpr double kRoom = kLast / 4;
    const osg::BoundingBoxd tile(0, 0, 100, kLast, kLast, 114);
    expectHome({}, tile);
    expectHome({{700000, 0, 10000}}, {0, 0, 100, kLast + kRoom, kLast, 114});
    expectHome({{0, -700000, 10000}, {100, -800000, 10000}}, {0, -kRoom, 100, kLast, kLast, 114});
    expectHome({{3000, 3000, -700000}}, {0, 0, 100 - kRoom, kLast, kLast, 114});
    expectHome({{-90000000, 700000, 900000}}, {-kRoom, 0, 100, kLast, kLast + kRoom, 100 + kRoom});
    expectHome({{int(kLast * 100 + kRoom * 90), 0, 10000}}, {0, 0, 100, kLast + kRoom * 0.9, kLast, 114});
}

/// Surveys of two coordinate systems, or one with wrong coordinates.
TEST(HomeBounds, AreThoseOfTheLargestSurveyAndOfThoseAroundIt)
{
    const auto at = [](double x, double y, double size) {
        return osg::BoundingBoxd(x, y, 0, x + size, y + size, 10);
    };
    using Is = std::vector<bool>;
    EXPECT_EQ(inOnePicture({at(0, 0, 100), at(100, 0, 100), at(2000, 500, 100)}, 0), Is({true, true, true}));
    EXPECT_EQ(inOnePicture({at(0, 0, 100), at(500000, 5e6, 100), at(500100, 5e6, 1)}, 1),
              Is({false, true, true}));
    EXPECT_EQ(inOnePicture({at(0, 0, 1), at(900, 0, 1000), at(20000, 0, 10), at(41000, 0, 10)}, 0),
              Is({true, true, true, true}))
        << "each is near what is there already";
}
