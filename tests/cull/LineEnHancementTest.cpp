#include "tests/support/CullScene.h"

#include <VelOsgDBBrx/LineEnHancement.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

using namespace VelOsgDBBrx;

namespace {

using Point = LineEnHancement::LineEnHancementPoint;

double gpsTime(const Point& point)
{
    double time;
    std::memcpy(&time, &point.gpsTime, sizeof time);
    return time;
}

/// The GPS times, which number the points of a random store, of the points found.
std::set<double> found(const LoadedStore& store, const Polygon& line, double resolution, double width,
                       const Screen& screen, int mode = LineEnHancement::ALL_POINTS)
{
    const osg::ref_ptr<LineEnHancement> cmd = new LineEnHancement(line, resolution, width, mode, 2);
    auto infos = store.infos();
    osg::Matrixd vpw = screen.vpw();
    cmd->setOctreeInfos(infos);
    cmd->setVPW(vpw);
    EXPECT_FALSE(cmd->isFinished());
    EXPECT_EQ(run(cmd).pointsChanged, 0u);
    EXPECT_TRUE(cmd->isFinished());
    std::set<double> times;
    for (const Point& point : cmd->getAllLineEnHancementPoint())
        times.insert(gpsTime(point));
    EXPECT_EQ(times.size(), cmd->getAllLineEnHancementPoint().size());
    return times;
}

double distance(const osg::Vec2d& p, const Polygon& line)
{
    double nearest = 1e300;
    for (size_t i = 0; i + 1 < line.size(); ++i) {
        const osg::Vec2d along = line[i + 1] - line[i];
        const double t = std::clamp(((p - line[i]) * along) / along.length2(), 0.0, 1.0);
        nearest = std::min(nearest, (p - line[i] - along * t).length());
    }
    return nearest;
}

struct LineEnHancementTest : testing::Test
{
    TempFolder folder;
    LoadedStore store{writeMarkedStore(folder)};
    LasRecords records{store.path};
    Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});

    osg::Vec3d window(size_t point) const
    {
        return (records.position(point) - records.offset()) * screen.vpw();
    }
};

} // namespace

TEST_F(LineEnHancementTest, FindsThePointsUnderTheLineAndNoOthers)
{
    const Polygon line = {{30.5, 20.5}, {160.5, 60.5}, {40.5, 130.5}};
    constexpr double kWidth = 9;
    for (const double resolution : {1.0, 0.5}) {
        const std::set<double> times = found(store, line, resolution, kWidth, screen);
        int inside = 0;
        for (size_t i = 0; i < records.size(); ++i) {
            const osg::Vec2d p(window(i).x(), window(i).y());
            // Ends and bends of the stroke, and the raster's edges, are cairo's: left aside here.
            const bool nearEdge = p.y() < 25 || p.y() > 125 || p.x() < 35 || p.x() > 140;
            if (nearEdge) continue;
            const bool hit = times.count(records.gpsTime(i)) > 0;
            if (distance(p, line) < kWidth / 2 - 2) {
                EXPECT_TRUE(hit) << p.x() << ' ' << p.y();
                ++inside;
            }
            if (distance(p, line) > kWidth / 2 + 1) {
                EXPECT_FALSE(hit) << p.x() << ' ' << p.y();
            }
        }
        EXPECT_GT(inside, 100);
    }
}

TEST_F(LineEnHancementTest, GivesWindowPositionAndDepth)
{
    const osg::ref_ptr<LineEnHancement> cmd =
        new LineEnHancement({{50, 20}, {60, 130}}, 1, 20, LineEnHancement::ALL_POINTS, 2);
    auto infos = store.infos();
    osg::Matrixd vpw = screen.vpw();
    cmd->setOctreeInfos(infos);
    cmd->setVPW(vpw);
    run(cmd);
    std::map<double, size_t> pointAt;
    for (size_t i = 0; i < records.size(); ++i)
        pointAt[records.gpsTime(i)] = i;
    ASSERT_GT(cmd->getAllLineEnHancementPoint().size(), 10u);
    for (const Point& point : cmd->getAllLineEnHancementPoint()) {
        const osg::Vec3d expected = window(pointAt.at(gpsTime(point)));
        EXPECT_NEAR((osg::Vec3d(point.x, point.y, point.depth) - expected).length(), 0, 1e-6);
        EXPECT_GT(point.depth, 0);
        EXPECT_LT(point.depth, 1);
    }
    cmd->reset(nullptr);
    EXPECT_TRUE(cmd->getAllLineEnHancementPoint().empty());
}

TEST_F(LineEnHancementTest, FindsAMovedCloudWhereItIsShown)
{
    const Polygon line = {{30.5, 20.5}, {160.5, 60.5}};
    const std::set<double> before = found(store, line, 1, 9, screen);
    const osg::Matrixd moved =
        osg::Matrixd::rotate(0.5, osg::Z_AXIS) * osg::Matrixd::translate(4000, 100, -20);
    store.octree()->transform = moved;
    screen.view = osg::Matrixd::inverse(moved) * screen.view;
    EXPECT_EQ(found(store, line, 1, 9, screen), before);
    EXPECT_GT(before.size(), 100u);
}

TEST_F(LineEnHancementTest, CanLeaveHiddenPointsOut)
{
    const Polygon line = {{30.5, 20.5}, {160.5, 60.5}};
    const std::set<double> all = found(store, line, 1, 9, screen);
    const std::set<double> visible = found(store, line, 1, 9, screen, LineEnHancement::VISIBLE_POINTS);
    size_t expected = 0;
    for (size_t i = 0; i < records.size(); ++i)
        expected += all.count(records.gpsTime(i)) && !(records.flags(i) & 0x0F);
    EXPECT_LT(visible.size(), all.size());
    EXPECT_EQ(visible.size(), expected);
}

TEST_F(LineEnHancementTest, NeverCountsTheFirstRowAndColumn)
{
    EXPECT_TRUE(found(store, {{0, 75}, {100, 75}}, 1, 50, screen).empty()) << "a level line has one row only";
    EXPECT_TRUE(found(store, {{75, 0}, {75, 100}}, 1, 50, screen).empty());
    const std::set<double> diagonal = found(store, {{40, 40}, {140, 110}}, 1, 60, screen);
    EXPECT_GT(diagonal.size(), 100u);
    for (size_t i = 0; i < records.size(); ++i)
        if (diagonal.count(records.gpsTime(i))) {
            EXPECT_GE(window(i).x(), 40.5);
            EXPECT_GE(window(i).y(), 40.5);
        }
}

TEST_F(LineEnHancementTest, FindsNothingWithoutARaster)
{
    const double infinity = INFINITY;
    EXPECT_TRUE(found(store, {}, 1, 9, screen).empty());
    EXPECT_TRUE(found(store, {{20, 20}, {120, 120}}, 0, 9, screen).empty());
    EXPECT_TRUE(found(store, {{20, 20}, {120, 120}}, -1, 9, screen).empty());
    EXPECT_TRUE(found(store, {{20, 20}, {120, 120}}, 1000, 9, screen).empty());
    EXPECT_TRUE(found(store, {{20, 20}, {1e7, 120}}, 1, 9, screen).empty());
    EXPECT_TRUE(found(store, {{20, 20}, {infinity, 120}}, 1, 9, screen).empty());
    EXPECT_TRUE(found(store, {{20, 20}}, 1, 9, screen).empty());
}

TEST_F(LineEnHancementTest, IgnoresWhatIsBehindTheCamera)
{
    screen = Screen::lookingAt({0, 0, 0}, {10, 3, -2});
    const std::set<double> times = found(store, {{5, 5}, {195, 145}}, 1, 60, screen);
    EXPECT_GT(times.size(), 20u);
    for (size_t i = 0; i < records.size(); ++i)
        if (times.count(records.gpsTime(i))) {
            const osg::Vec3d local = records.position(i) - records.offset();
            EXPECT_GT(local * osg::Vec3d(10, 3, -2), 0);
        }
}

TEST_F(LineEnHancementTest, RunsTheHostsOwnSearchInTheOrderOfCommands)
{
    class Search : public Invoke
    {
    public:
        void invoke(LineEnHancement& command) override
        {
            onWorker = CullCmdManager::isWorkerThread();
            command.getAllLineEnHancementPoint().push_back({1, 2, 3, 4});
        }
        bool onWorker = false;
    };
    const osg::ref_ptr<Search> search = new Search;
    const osg::ref_ptr<LineEnHancement> cmd = new LineEnHancement(search, 2);
    run(cmd);
    run(cmd);
    EXPECT_TRUE(search->onWorker);
    ASSERT_EQ(cmd->getAllLineEnHancementPoint().size(), 1u);
    EXPECT_EQ(cmd->getAllLineEnHancementPoint()[0].gpsTime, 4u);
    EXPECT_FALSE(cmd->isSave());
}

TEST(LineOutline, FollowsBothSidesOfTheLine)
{
    EXPECT_EQ(LineEnHancement::outline({{0, 0}, {10, 0}, {10, 0}, {10, 10}}, 2),
              (std::vector<osg::Vec2f>{{0, 1}, {9, 1}, {9, 10}, {11, 10}, {11, -1}, {0, -1}}));
    EXPECT_TRUE(LineEnHancement::outline({{3, 3}, {3, 3}}, 2).empty());
    EXPECT_TRUE(LineEnHancement::outline({{3, 3}, {4, 4}}, 0).empty());
    for (const osg::Vec2f& vertex : LineEnHancement::outline({{0, 0}, {10, 0}, {0, 0.01}}, 2))
        EXPECT_LT(vertex.length(), 15) << "a sharp bend is cut";
}
