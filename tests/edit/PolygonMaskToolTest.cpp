#include "tests/support/LasRecords.h"

#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <thread>

using VelOsgDBBrx::PolygonMaskTool;

namespace {

osg::ref_ptr<osg::Image> maskOf(const std::vector<Polygon>& polygons, int width, int height)
{
    const osg::ref_ptr<PolygonMaskTool> tool = new PolygonMaskTool;
    tool->acquire();
    tool->clear();
    for (const Polygon& polygon : polygons)
        tool->addPolygon(polygon);
    osg::ref_ptr<osg::Image> mask = tool->createMask(width, height);
    tool->release();
    return mask;
}

/// Rows from the top, each behind a bar, '#' inside.
std::string drawing(const osg::Image& mask)
{
    std::string text;
    for (int row = 0; row < mask.t(); ++row) {
        text += '|';
        for (int column = 0; column < mask.s(); ++column)
            text += *mask.data(column, row) ? '#' : '.';
    }
    return text;
}

std::string drawingOf(const std::vector<Polygon>& polygons, int width = 8, int height = 4)
{
    return drawing(*maskOf(polygons, width, height));
}

/// Whether an edge passes the place nearer than what vertices are rounded to.
bool isInDoubt(const Polygon& polygon, const osg::Vec2d& place)
{
    constexpr double kRounding = 1.0 / 128;
    for (size_t i = 0; i < polygon.size(); ++i) {
        const osg::Vec2d& a = polygon[i];
        const osg::Vec2d edge = polygon[(i + 1) % polygon.size()] - a;
        const double along = std::min(1.0, std::max(0.0, ((place - a) * edge) / edge.length2()));
        if ((place - a - edge * along).length() < kRounding) return true;
    }
    return false;
}

} // namespace

TEST(PolygonMaskTool, DecidesPixelsOfAnyPolygonByTheirCentres)
{
    constexpr int kWidth = 60;
    constexpr int kHeight = 44;
    std::mt19937 random(4);
    std::uniform_real_distribution<double> coordinate(-20, kWidth + 20);
    for (int round = 0; round < 200; ++round) {
        Polygon polygon;
        for (int i = 0; i < 3 + round % 7; ++i)
            polygon.emplace_back(coordinate(random), coordinate(random));
        const osg::ref_ptr<osg::Image> mask = maskOf({polygon}, kWidth, kHeight);
        for (int row = 0; row < kHeight; ++row)
            for (int column = 0; column < kWidth; ++column) {
                const osg::Vec2d centre(column + 0.5, row + 0.5);
                if (isInDoubt(polygon, centre)) continue;
                ASSERT_EQ(*mask->data(column, row) != 0, contains(polygon, centre.x(), centre.y()))
                    << round << ": " << column << ", " << row;
            }
    }
}

TEST(PolygonMaskTool, LeavesAreasCoveredTwiceOutside)
{
    const Polygon square = {{1, 0}, {7, 0}, {7, 4}, {1, 4}};
    const Polygon hole = {{3, 1}, {5, 1}, {5, 3}, {3, 3}};
    EXPECT_EQ(drawingOf({square, hole}), "|.######.|.##..##.|.##..##.|.######.");
}

TEST(PolygonMaskTool, TakesVerticesFarBeyondTheWindow)
{
    const double far = 1e11;
    EXPECT_EQ(drawingOf({{{-far, -far}, {4, -far}, {4, far}, {-far, far}}}),
              "|####....|####....|####....|####....");
    EXPECT_EQ(drawingOf({{{-far, 0}, {far, 0}, {0, far}, {0, 2}, {-far, 2}}}),
              "|########|########|########|########");
    EXPECT_EQ(drawingOf({{{-100, -100}, {-50, -100}, {-50, 100}}}), drawingOf({}));
}

TEST(PolygonMaskTool, CoversNothingWithoutAProperPolygon)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::string nothing = "|........|........|........|........";
    EXPECT_EQ(drawingOf({}), nothing);
    EXPECT_EQ(drawingOf({{}}), nothing);
    EXPECT_EQ(drawingOf({{{1, 1}}}), nothing);
    EXPECT_EQ(drawingOf({{{1, 1}, {7, 3}}}), nothing);
    EXPECT_EQ(drawingOf({{{0, 0}, {8, 0}, {8, 4}, {nan, 4}}}), nothing);
}

TEST(PolygonMaskTool, RefusesWindowsWithoutPixels)
{
    EXPECT_FALSE(maskOf({}, 0, 4));
    EXPECT_FALSE(maskOf({}, 4, -1));
}

TEST(PolygonMaskTool, CoversEachPixelOnceAlongAnEdgeThatTwoPolygonsShare)
{
    std::mt19937 random(9);
    std::uniform_real_distribution<double> coordinate(-10, 70);
    for (int round = 0; round < 50; ++round) {
        const osg::Vec2d a(coordinate(random), -30);
        const osg::Vec2d b(coordinate(random), 80);
        const osg::ref_ptr<osg::Image> both =
            maskOf({{{-90, -30}, a, b, {-90, 80}}, {a, {150, -30}, {150, 80}, b}}, 60, 44);
        EXPECT_EQ(drawing(*both).find('.'), std::string::npos) << round;
    }
}

TEST(PolygonMaskTool, FillsThousandsOfVerticesInALargeWindow)
{
    // Each edge of a star crosses the whole window: what would cost edges times pixels never ends.
    Polygon star;
    constexpr int kVertices = 20001;
    const osg::Vec2d middle(1000, 1000);
    for (int i = 0; i < kVertices; ++i) {
        const double angle = i * (2 * M_PI * 10000 / kVertices);
        star.push_back(middle + osg::Vec2d(std::cos(angle), std::sin(angle)) * 900);
    }
    const osg::ref_ptr<osg::Image> mask = maskOf({star}, 2000, 2000);
    int64_t inside = 0;
    for (int row = 0; row < 2000; ++row)
        for (int column = 0; column < 2000; ++column) {
            const double distance = (osg::Vec2d(column + 0.5, row + 0.5) - middle).length();
            inside += *mask->data(column, row) != 0;
            if (distance > 900.1) {
                ASSERT_EQ(*mask->data(column, row), 0) << column << ", " << row;
            }
        }
    EXPECT_GT(inside, 500000);
}

TEST(PolygonMaskTool, LetsOneCallerInAtATime)
{
    const osg::ref_ptr<PolygonMaskTool> tool = new PolygonMaskTool;
    std::vector<std::thread> callers;
    std::vector<int> pixels(4);
    for (int caller = 0; caller < 4; ++caller)
        callers.emplace_back([&, caller] {
            for (int round = 0; round < 50; ++round) {
                tool->acquire();
                tool->clear();
                tool->addPolygon({{0, 0}, {caller + 1.0, 0}, {caller + 1.0, 1}, {0, 1}});
                const osg::ref_ptr<osg::Image> mask = tool->createMask(8, 1);
                tool->release();
                for (int column = 0; column < 8; ++column)
                    pixels[caller] += *mask->data(column, 0) != 0;
            }
        });
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(pixels, (std::vector<int>{50, 100, 150, 200}));
}
