// Measuring in the program's own window, with keys and mouse, as docs/measuring.md says.

#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/JsonLines.h"
#include "tests/support/PanelSettings.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSurvey.h"

#include <gtest/gtest.h>
#include <osg/Vec2i>
#include <osg/Vec3d>
#include <osgDB/WriteFile>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>

namespace {

constexpr int kWidth = 700;
constexpr int kHeight = 500;
constexpr int kReach = 60; ///< pixels in which a point is looked for; more than points are apart

/// 20 x 20 points a metre apart, seen from above.
class MeasureWindow : public testing::Test
{
protected:
    MeasureWindow() { build(0); }

    /// `slope` as of `TestSurvey`.
    void build(double slope)
    {
        TestSurvey survey;
        survey.side = 20;
        survey.classes = 4;
        survey.slope = slope;
        EXPECT_TRUE(survey.write(folder.file("grid.las")));
        buildStoreOf(folder.file("grid.las"), store);
    }

    void open(std::vector<std::string> options = {"--no-panel"})
    {
        options.insert(options.begin(), BRXVIEW);
        for (const std::string& option :
             {std::string("--view"), std::string("top"), std::string("--point-size"), std::string("6"),
              std::string("--window"), std::string("20"), std::string("20"), std::to_string(kWidth),
              std::to_string(kHeight), store})
            options.push_back(option);
        window.emplace(options, folder.path().string());
        window->stillPicture();
    }

    /// What the program prints after `act`.
    template <class Act>
    std::string printed(Act act)
    {
        const size_t before = window->program().out().size();
        act();
        EXPECT_TRUE(eventually([&] { return window->program().out().size() > before; }));
        return window->program().out().substr(before);
    }

    /// Clicks on the point that is seen next to a place between points, up and to the right; where it is, and
    /// its coordinates.
    std::pair<osg::Vec2i, osg::Vec3d> findPoint(int x, int y)
    {
        const osg::ref_ptr<osg::Image> picture = window->stillPicture();
        const osg::Vec3ub background = pixel(*picture, kWidth - 3, kHeight / 2);
        const auto isPoint = [&](int step) {
            return pixel(*picture, x + step % kReach, y + step / kReach) != background;
        };
        int step = 0;
        while (step + 1 < kReach * kReach && !isPoint(step))
            ++step;
        x += step % kReach + 2; // away from its edge
        y += step / kReach + 2;
        const std::string line = printed([&] { window->click(x, y); });
        osg::Vec3d place;
        EXPECT_EQ(std::sscanf(line.c_str(), "%lf %lf %lf", &place[0], &place[1], &place[2]), 3) << line;
        return {osg::Vec2i(x, y), place};
    }

    void click(const osg::Vec2i& at, int button = 1) { window->click(at.x(), at.y(), button); }

    /// The first two figures of a line such as "1 distance: length 3.000, level 3.000, height 0.000".
    static osg::Vec2d figures(const std::string& line)
    {
        osg::Vec2d values(-1, -1);
        EXPECT_EQ(std::sscanf(line.c_str(), "%*d %*[a-z]: %*[a-z] %lf, %*[a-z] %lf", &values[0], &values[1]),
                  2)
            << line;
        return values;
    }

    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
    std::optional<ProgramWindow> window;
};

} // namespace

TEST_F(MeasureWindow, ClicksOnPointsBecomeLinesAndAreas)
{
    open();
    const auto [pixelA, a] = findPoint(245, 277);
    const auto [pixelB, b] = findPoint(420, 302);
    const auto [pixelC, c] = findPoint(370, 402);
    ASSERT_GT((b - a).length(), 1);
    ASSERT_GT(std::abs(((b - a) ^ (c - a)).z()), 1);

    window->press("F6");
    for (const osg::Vec2i& place : {pixelA, pixelC, pixelB})
        click(place);
    window->stillPicture();
    window->press("BackSpace"); // the last one was a mistake
    click(osg::Vec2i(3, 3));    // beside all points
    const std::string line = printed([&] { window->press("Return"); });
    EXPECT_EQ(line.rfind("1 distance: ", 0), 0u) << "no point is shown while it is measured: " << line;
    EXPECT_NEAR(figures(line)[0], (c - a).length(), 1e-3);
    EXPECT_NEAR(figures(line)[1], std::hypot(c.x() - a.x(), c.y() - a.y()), 1e-3);

    window->press("F7");
    const osg::ref_ptr<osg::Image> before = window->stillPicture();
    for (const osg::Vec2i& place : {pixelA, pixelB, pixelC})
        click(place);
    EXPECT_TRUE(eventually([&] { return !samePixels(*window->picture(), *before); })) << "marks are drawn";
    window->stillPicture();
    const std::string area = printed([&] { click(osg::Vec2i(400, 300), 3); });
    EXPECT_EQ(area.rfind("2 area: ", 0), 0u) << area;
    EXPECT_NEAR(figures(area)[0], std::abs(((b - a) ^ (c - a)).z()) / 2, 1e-3);

    // Escape ends the measuring: points are shown again, and what was measured stays.
    click(pixelA);
    window->stillPicture();
    window->press("Escape");
    const auto [pixelAgain, again] = findPoint(245, 277);
    EXPECT_EQ(again, a);
    window->press("F6");
    window->press("Return"); // nothing begun: this ends it, too
    EXPECT_NE(printed([&, place = pixelB] { click(place); }).find("cloud 1"), std::string::npos);
}

TEST_F(MeasureWindow, ThePanelWritesATableAndClearsTheListAfterAsking)
{
    unfoldAlone(folder, "Measure");
    open({"--no-legend"});
    const auto marks = [&] { return countOf(*window->stillPicture(), osg::Vec3ub(255, 214, 64)); };
    const auto [pixelA, a] = findPoint(400, 250);
    const auto [pixelB, b] = findPoint(500, 300);
    window->press("F6");
    click(pixelA);
    click(pixelB);
    window->stillPicture();
    const std::string line = printed([&] { window->press("Return"); });
    window->press("Escape");
    const int seen = marks();
    EXPECT_GT(seen, 0);

    if (const char* kept = std::getenv("VELBRX_KEPT_PICTURES"))
        osgDB::writeImageFile(*window->picture(), std::string(kept) + "/measure.png");
    // Below the figures of one distance, from the window's top.
    const auto clickPanel = [&](int x, int y) { window->click(x, kHeight - 1 - y); };
    clickPanel(234, 429);
    const std::string table = folder.file("measurements.csv");
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(table); }));
    const std::vector<uint8_t> bytes = readFile(table);
    EXPECT_NE(std::string(bytes.begin(), bytes.end()).find("\n1,distance,"), std::string::npos);
    clickPanel(78, 405);
    window->stillPicture();
    window->press("Escape");
    EXPECT_EQ(marks(), seen) << "nobody said yes";
    clickPanel(78, 405);
    window->stillPicture();
    window->press("y");
    EXPECT_EQ(marks(), 0);
    EXPECT_TRUE(window->program().isRunning());
}

TEST_F(MeasureWindow, HeightsAreAboveThePlaneOfTheClassesThatTheSurfaceShows)
{
    build(0.125);
    const std::string height =
        R"({"op": "measure", "kind": "height", "points": [[1234508.25, 6543207.5, 112.5]]}, )";
    const std::string steps = R"([{"op": "window", "width": 100, "height": 100}, )" + height +
                              R"({"op": "surface", "on": false, "classes": [9]}, )" + height +
                              R"({"op": "camera", "view": "top"},
        {"op": "classify", "polygon": [[0, 0], [100, 0], [100, 100], [0, 100]], "from": [3], "to": 9}, )" +
                              height + R"({"op": "dropUnsaved"}])";
    folder.write("steps.json", std::vector<uint8_t>(steps.begin(), steps.end()));
    const ProgramResult result =
        runProgram({"env", "-C", folder.path(), BRXVIEW, "--script", "steps.json", store}, {"DISPLAY"});
    ASSERT_EQ(result.exitStatus, 0) << result.out << result.err;
    const std::vector<nlohmann::json> lines = jsonLines(result.out);
    const double ground = 100 + 0.125 * 8.25; // of the slope
    for (const size_t line : {1, 6}) {
        ASSERT_TRUE(lines[line].contains("figures")) << lines[line];
        EXPECT_NEAR(lines[line]["figures"]["height"]["value"], 112.5 - ground, 1e-6) << lines[line];
        EXPECT_NEAR(lines[line]["figures"]["ground"]["value"], ground, 1e-6);
    }
    EXPECT_EQ(lines[3]["message"], "no ground near the point");
}
