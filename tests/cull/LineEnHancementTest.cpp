#include "tests/support/CullScene.h"

#include <VelOsgDBBrx/LineEnHancement.h>

#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
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
    const CmdResult result = run(cmd);
    EXPECT_EQ(result.pointsChanged, 0u);
    EXPECT_TRUE(cmd->isFinished());
    EXPECT_TRUE(!result.maskMissing || cmd->getAllLineEnHancementPoint().empty());
    std::set<double> times;
    for (const Point& point : cmd->getAllLineEnHancementPoint())
        times.insert(gpsTime(point));
    EXPECT_EQ(times.size(), cmd->getAllLineEnHancementPoint().size());
    return times;
}

/// The raster that a line is stated to have, drawn step by step; and whether a place lies on it.
class StatedRaster
{
public:
    StatedRaster(const Polygon& line, double resolution, double lineWidth) : _resolution(resolution)
    {
        osg::Vec2d max(-DBL_MAX, -DBL_MAX);
        for (const osg::Vec2d& v : line) {
            _min.set(std::min(_min.x(), v.x()), std::min(_min.y(), v.y()));
            max.set(std::max(max.x(), v.x()), std::max(max.y(), v.y()));
        }
        _width = static_cast<int>(std::abs(_min.x() - max.x() + 1.0) / resolution);
        _height = static_cast<int>(std::abs(max.y() - _min.y() + 1.0) / resolution);
        _surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, _width, _height);
        cairo_t* const context = cairo_create(_surface);
        cairo_set_source_rgb(context, 1, 1, 1);
        cairo_rectangle(context, 0, 0, _width, _height);
        cairo_fill(context);
        cairo_set_source_rgb(context, 0, 0, 0);
        cairo_set_line_width(context, lineWidth / resolution);
        for (size_t i = 0; i < line.size(); ++i) {
            const double x = (line[i].x() - _min.x() + 0.5) / resolution;
            const double y = (line[i].y() - _min.y() + 0.5) / resolution;
            i == 0 ? cairo_move_to(context, x, y) : cairo_line_to(context, x, y);
        }
        cairo_stroke(context);
        cairo_surface_flush(_surface);
        cairo_destroy(context);
    }

    StatedRaster(const StatedRaster&) = delete;
    StatedRaster& operator=(const StatedRaster&) = delete;
    ~StatedRaster() { cairo_surface_destroy(_surface); }

    bool isOnLine(const osg::Vec3d& window) const
    {
        const int column = static_cast<int>((window.x() - _min.x() + 0.5) / _resolution);
        const int row = static_cast<int>((window.y() - _min.y() + 0.5) / _resolution);
        if (column < 1 || column >= _width || row < 1 || row >= _height) return false;
        return cairo_image_surface_get_data(
                   _surface)[cairo_image_surface_get_stride(_surface) * row + 4 * column] == 0;
    }

private:
    double _resolution;
    osg::Vec2d _min{DBL_MAX, DBL_MAX};
    int _width;
    int _height;
    cairo_surface_t* _surface;
};

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

TEST_F(LineEnHancementTest, FindsExactlyWhatItsStatedRasterCovers)
{
    const std::vector<Polygon> lines = {{{30.5, 20.5}, {160.5, 60.5}, {40.5, 130.5}},
                                        {{80, 15}, {83.2, 140}},   // upright
                                        {{20, 75.3}, {170, 71}},   // level
                                        {{90, 70}, {92.9, 73.4}},  // short
                                        {{-40, -30}, {260, 180}}}; // longer than the window
    size_t points = 0;
    for (const Polygon& line : lines)
        for (const double resolution : {1.0, 0.5, 1.7}) {
            const StatedRaster raster(line, resolution, 9);
            std::set<double> expected;
            for (size_t i = 0; i < records.size(); ++i)
                if (raster.isOnLine(window(i))) expected.insert(records.gpsTime(i));
            points += expected.size();
            EXPECT_EQ(found(store, line, resolution, 9, screen), expected)
                << line[0].x() << ' ' << resolution;
        }
    EXPECT_GT(points, 1000u);
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
    EXPECT_TRUE(
        run(new LineEnHancement({{20, 20}, {1e7, 120}}, 1, 9, LineEnHancement::ALL_POINTS, 2)).maskMissing);
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
