#include "loading/UnwrittenClasses.h"
#include "tests/support/CullScene.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/LineSearchCmd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>

using namespace VelOsgDBBrx;

namespace {

struct LineSearchTest : testing::Test
{
    osg::ref_ptr<LineSearchCmd> command(const Polygon& line, double width) const
    {
        const osg::ref_ptr<LineSearchCmd> cmd = new LineSearchCmd(2);
        cmd->setLine(line, width);
        cmd->setVPW(screen.vpw());
        cmd->setWidth(screen.width);
        cmd->setHeight(screen.height);
        cmd->setOctreeInfos(store.infos());
        return cmd;
    }

    /// The GPS times, which number the points, of the points found.
    static std::set<double> found(LineSearchCmd& cmd)
    {
        EXPECT_FALSE(run(&cmd).maskMissing);
        std::set<double> times;
        for (const LineEnHancement::LineEnHancementPoint& point : cmd.points()) {
            double time;
            std::memcpy(&time, &point.gpsTime, sizeof time);
            times.insert(time);
        }
        EXPECT_EQ(times.size(), cmd.points().size());
        return times;
    }

    bool isSeen(size_t point) const
    {
        const osg::Vec3d p = window(point);
        return !(records.flags(point) & 0x0F) && p.x() >= 0 && p.x() <= screen.width && p.y() >= 0 &&
               p.y() <= screen.height;
    }

    osg::Vec3d window(size_t point) const
    {
        return (records.position(point) - records.offset()) * screen.vpw();
    }

    /// The visible points within half the width of the line, its ends cut off square.
    std::set<double> under(const Polygon& line, double width) const
    {
        std::set<double> times;
        for (size_t i = 0; i < records.size(); ++i) {
            const osg::Vec2d p(window(i).x(), window(i).y());
            bool isUnder = false;
            for (size_t s = 0; s + 1 < line.size(); ++s) {
                if (line[s] == line[s + 1]) continue;
                osg::Vec2d along = line[s + 1] - line[s];
                const double length = along.normalize();
                const double on = (p - line[s]) * along;
                const double beside = std::abs((p - line[s]).x() * along.y() - (p - line[s]).y() * along.x());
                isUnder = isUnder || (on >= 0 && on <= length && beside <= width / 2);
                isUnder = isUnder || (s > 0 && line[s] != line[0] && (p - line[s]).length() <= width / 2);
            }
            if (isUnder && isSeen(i)) times.insert(records.gpsTime(i));
        }
        return times;
    }

    TempFolder folder;
    LoadedStore store{writeMarkedStore(folder)};
    LasRecords records{store.path};
    Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
};

} // namespace

TEST_F(LineSearchTest, CoversItsWholeWidthInEveryDirection)
{
    const std::vector<std::pair<Polygon, double>> lines = {
        {{{100.2, 10}, {100.2, 140}}, 10},                      // upright
        {{{20, 75}, {180, 75}}, 10},                            // level
        {{{100, 70}, {101, 70}}, 30},                           // as long as a pixel
        {{{100, 70}, {100, 70}, {100, 71}}, 30},                // with a vertex given twice
        {{{30.5, 20.5}, {160.5, 60.5}, {40.5, 130.5}}, 9},      // bent
        {{{60, 60}, {120, 90}}, 0.7},                           // thin
        {{{-40, -30}, {260, 180}}, 12},                         // beyond the window
        {{{-3e9, -3e9 + 20}, {3e9, 3e9 + 20}}, 12},             // far beyond it
        {{{100, 75}, {140, 110}, {-2e8, 3e9}, {90, 20}}, 400}}; // wider than it
    for (const auto& [line, width] : lines) {
        const std::set<double> expected = under(line, width);
        EXPECT_GT(expected.size(), 5u);
        EXPECT_EQ(found(*command(line, width)), expected) << line[0].x() << ", " << width;
    }
}

TEST_F(LineSearchTest, GivesPositionsInTheWindow)
{
    const osg::ref_ptr<LineSearchCmd> cmd = command({{30.5, 20.5}, {160.5, 60.5}}, 9);
    EXPECT_GT(found(*cmd).size(), 100u);
    std::map<double, osg::Vec3d> places;
    for (size_t i = 0; i < records.size(); ++i)
        places[records.gpsTime(i)] = window(i);
    for (const LineEnHancement::LineEnHancementPoint& point : cmd->points()) {
        double time;
        std::memcpy(&time, &point.gpsTime, sizeof time);
        EXPECT_NEAR((osg::Vec3d(point.x, point.y, point.depth) - places.at(time)).length(), 0, 1e-6);
    }
}

TEST_F(LineSearchTest, LeavesOutWhatIsClippedAwayOrOfAClassThatIsNotShown)
{
    // Classes that nobody has saved yet count.
    CellData& cell = *store.octree()->root;
    const auto place = std::make_shared<CellPlace>(cell);
    const std::vector<uint8_t> ones(place->pointCount, 1);
    UnwrittenClasses::Cell edited{place, std::make_shared<std::vector<uint8_t>>(ones), nullptr};
    std::set<double> ofEdited;
    size_t first = static_cast<size_t>(cell.record.segments.front().first);
    std::vector<uint8_t> classes;
    for (size_t i = 0; i < place->pointCount; ++i)
        classes.push_back(i % 2 ? 77 : 78);
    edited.current = std::make_shared<std::vector<uint8_t>>(classes);
    UnwrittenClasses::instance().set(edited);

    const Polygon line = {{10, 20}, {190, 130}};
    const osg::Vec4d plane(0.3, 1, 0.2, 4);
    std::bitset<256> shown;
    shown.set(77);
    const osg::ref_ptr<LineSearchCmd> cmd = command(line, 60);
    cmd->setClipPlane({plane});
    cmd->setShownClasses(shown);
    std::set<double> expected;
    const std::set<double> all = under(line, 60);
    for (size_t i = 1; i < place->pointCount; i += 2) {
        const osg::Vec3d p = records.position(first + i) - records.offset();
        const bool inside = plane * osg::Vec4d(p, 1) >= 0;
        if (inside && all.count(records.gpsTime(first + i))) expected.insert(records.gpsTime(first + i));
    }
    ASSERT_GT(expected.size(), 10u);
    EXPECT_EQ(found(*cmd), expected);
    UnwrittenClasses::instance().forget(cell.identifier);
}

TEST_F(LineSearchTest, SaysWhenThereIsNoLineToSearch)
{
    for (const Polygon& line :
         {Polygon(), Polygon{{5, 5}}, Polygon{{5, 5}, {5, 5}}, Polygon{{5, 5}, {INFINITY, 5}}})
        EXPECT_TRUE(run(command(line, 9)).maskMissing);
    for (const double width : {0.0, -3.0, static_cast<double>(NAN)})
        EXPECT_TRUE(run(command({{5, 5}, {50, 50}}, width)).maskMissing);
    const osg::ref_ptr<LineSearchCmd> beside = command({{-50, -60}, {-20, 400}}, 9);
    EXPECT_TRUE(found(*beside).empty());
}
