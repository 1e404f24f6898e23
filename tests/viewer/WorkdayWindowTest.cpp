// A piece of a day's work in the program's window: by mouse and keys, with the panel.

#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/TestSurvey.h"
#include "viewer/settings/Settings.h"

#include <VelBrx/ClassTable.h>
#include <VelBrx/PointCounts.h>

#include <gtest/gtest.h>

#include <osgDB/WriteFile>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <tuple>

namespace {

constexpr int kScene = 300; ///< pixels at the left that may be the panel's
constexpr int kStatus = 30; ///< pixels at the bottom that may be the status line's

osg::Vec3ub colorOf(unsigned code)
{
    const uint32_t rgb = VelBrx::ClassTable().color(code);
    return osg::Vec3ub(rgb >> 16 & 0xff, rgb >> 8 & 0xff, rgb & 0xff);
}

/// Threading model, width and height of the window.
class Workday : public testing::TestWithParam<std::tuple<const char*, int, int>>
{
protected:
    /// 20 x 20 points of the classes 2 to 5 by column, seen from above.
    Workday()
    {
        TestSurvey survey;
        survey.side = 20;
        survey.classes = 4;
        EXPECT_TRUE(survey.write(folder.file("grid.las")));
        buildStoreOf(folder.file("grid.las"), store);
        const auto config = folder.path() / "config" / "brxview";
        std::filesystem::create_directories(config);
        std::ofstream(config / "settings.json")
            << R"({"panel.sections": {"Clouds": false, "Tools": false, "Look": false}, "panel.width": 300})";
        window.emplace(std::vector<std::string>{BRXVIEW, std::string("--") + std::get<0>(GetParam()),
                                                "--view", "top", "--mode", "class", "--point-size", "5",
                                                "--no-legend", "--window", "0", "0", std::to_string(width),
                                                std::to_string(height), store},
                       folder.path().string(), width, height);
    }

    void TearDown() override
    {
        if (HasFailure() && window->program().isRunning()) keepPicture();
    }

    /// For people to look at, in the folder of VELBRX_KEPT_PICTURES.
    void keepPicture() const
    {
        const char* const folderOfPictures = std::getenv("VELBRX_KEPT_PICTURES");
        if (!folderOfPictures) return;
        const std::string name = std::string("/workday-") + std::get<0>(GetParam()) + ".png";
        osgDB::writeImageFile(*window->picture(), folderOfPictures + name);
    }

    /// Pixels of a class's colour among the points in the lower half of the window, which no text covers.
    int seen(unsigned code) const
    {
        const osg::ref_ptr<osg::Image> picture = window->stillPicture();
        int pixels = 0;
        for (int y = 0; y < picture->t() / 2; ++y)
            for (int x = kScene; x < picture->s(); ++x)
                pixels += pixel(*picture, x, y) == colorOf(code);
        return pixels;
    }

    /// The height in the window of a class's row in the panel, found by its colour; the highest of these.
    std::optional<int> rowOf(unsigned code) const
    {
        const osg::ref_ptr<osg::Image> picture = window->stillPicture();
        for (int y = picture->t() - 1; y >= 4; --y)
            if (pixel(*picture, 14, y) == colorOf(code)) return y - 5;
        return std::nullopt;
    }

    /// The height in the window of the history's row that is marked as the present: a text line of one grey
    /// across the panel, where a section's title is higher.
    std::optional<int> markedRow() const
    {
        const osg::ref_ptr<osg::Image> picture = window->stillPicture();
        const osg::Vec3ub mark(48, 50, 53);
        int run = 0;
        for (int y = 0; y < picture->t(); ++y) {
            bool isMarked = true;
            for (int x = 236; x < 250; ++x) // between the edit and its points
                isMarked = isMarked && pixel(*picture, x, y) == mark;
            if (isMarked) {
                ++run;
                continue;
            }
            if (run >= 12 && run <= 18) return y - run / 2;
            run = 0;
        }
        return std::nullopt;
    }

    /// Bright pixels of the status line, where its hint and its coordinates are.
    int written() const
    {
        const osg::ref_ptr<osg::Image> picture = window->stillPicture();
        int bright = 0;
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < kScene; ++x)
                bright += pixel(*picture, x, y).g() > 150;
        return bright;
    }

    uint64_t saved(size_t code) const
    {
        VelBrx::PointCounts counts;
        EXPECT_TRUE(VelBrx::countPoints(store, counts));
        return counts.byClass[code];
    }

    const int width = std::get<1>(GetParam());
    const int height = std::get<2>(GetParam());
    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
    std::optional<ProgramWindow> window;
};

} // namespace

TEST_P(Workday, AClassIsClickedAPolygonDrawnAndAStepOfTheHistoryClicked)
{
    int before = 0;
    EXPECT_TRUE(eventually([&] { return (before = seen(5)) > 100; }));
    const std::optional<int> row = rowOf(5);
    ASSERT_TRUE(row);
    window->click(100, *row);
    EXPECT_GT(written(), 100) << "the first hint";
    window->press("E");
    EXPECT_TRUE(eventually([&] { return written() == 0; }));
    window->press("a");
    for (const auto& [x, y] : {std::pair(kScene + 5, kStatus + 5),
                               {width - 3, kStatus + 5},
                               {width - 3, height / 2},
                               {kScene + 5, height / 2}})
        window->click(x, y);
    window->press("K");
    int after = 0;
    EXPECT_TRUE(eventually([&] { return (after = seen(5)) > before + 500; }));

    window->press("U");
    std::optional<int> present;
    EXPECT_TRUE(eventually([&] { return (present = markedRow()).has_value(); }));
    ASSERT_TRUE(present);
    constexpr int kRow = 18;
    window->click(150, *present + kRow); // before all edits
    window->moveTo(100, kStatus + 30);   // a tool tip would cover points
    EXPECT_TRUE(eventually([&] { return seen(5) == before; }));
    window->press("y");
    EXPECT_TRUE(eventually([&] { return seen(5) == after; }));
    const uint64_t built = saved(5);
    window->press("W");
    EXPECT_TRUE(eventually([&] { return saved(5) > built; }));
    keepPicture();
    window->press("Ctrl+q");
    EXPECT_TRUE(eventually([&] { return !window->program().isRunning(); }));
    EXPECT_EQ(window->program().wait().exitStatus, 0);
    const Settings kept((folder.path() / "config" / "brxview" / "settings.json").string());
    EXPECT_EQ(kept.get<bool>("hint.shown"), true);
    EXPECT_EQ(kept.get<int>("tools.last"), 'a');
}

INSTANTIATE_TEST_SUITE_P(ModelsAndSizes, Workday,
                         testing::Values(std::tuple("SingleThreaded", 800, 600),
                                         std::tuple("CullDrawThreadPerContext", 1400, 900),
                                         std::tuple("DrawThreadPerContext", 800, 600)));
