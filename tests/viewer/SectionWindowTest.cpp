// A section in the program's own window, worked by keys and mouse, and in a script.

#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/JsonLines.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/PointCounts.h>

#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <string>
#include <vector>

namespace {

constexpr int kWidth = 700;
constexpr int kHeight = 500;
constexpr int kRow9 = 238; ///< of the window, that shows the tenth row of points; they stand 24 pixels apart
const osg::Vec3ub kBackground(28, 31, 36);

/// 20 x 20 points a metre apart, of the classes 2 to 5 by column.
class SectionWindow : public testing::Test
{
protected:
    SectionWindow()
    {
        TestSurvey survey;
        survey.side = 20;
        survey.classes = 4;
        survey.slope = 0.125;
        EXPECT_TRUE(survey.write(folder.file("grid.las")));
        buildStoreOf(folder.file("grid.las"), store);
    }

    size_t pointsOf(size_t code) const
    {
        VelBrx::PointCounts counts;
        EXPECT_TRUE(VelBrx::countPoints(store, counts));
        return counts.byClass[code];
    }

    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
};

int pointPixels(const osg::Image& picture, int fromRow, int toRow)
{
    int points = 0;
    for (int y = fromRow; y < toRow; ++y)
        for (int x = kWidth / 2; x < kWidth / 2 + 100; ++x)
            points += pixel(picture, x, y) != kBackground;
    return points;
}

} // namespace

TEST_F(SectionWindow, TwoClicksShowAStripBelowWhoseEditsReachNothingElse)
{
    ProgramWindow window({BRXVIEW, "--no-panel", "--view", "top", "--no-legend", "--window", "20", "20",
                          std::to_string(kWidth), std::to_string(kHeight), store},
                         folder.path().string());
    const osg::ref_ptr<osg::Image> whole = window.stillPicture();
    const auto press = [&](const std::string& key) {
        window.press(key);
        window.stillPicture();
    };
    press("S");
    for (const int x : {40, kWidth - 40}) // the second one before the first has its point
        window.click(x, kRow9);
    const osg::ref_ptr<osg::Image> split = window.stillPicture();
    EXPECT_FALSE(samePixels(*split, *whole));
    EXPECT_GT(pointPixels(*split, 260, 480), 0) << "the main picture above";
    EXPECT_GT(pointPixels(*split, 50, 160), 0) << "the section below";

    press("E");
    press("a");
    for (const auto& [x, y] : {std::pair(3, 40), {kWidth - 3, 40}, {kWidth - 3, 170}, {3, 170}})
        window.click(x, y);
    press("9");
    press("K");
    press("W");
    EXPECT_TRUE(eventually([&] { return pointsOf(9) == 20; })) << pointsOf(9);
    EXPECT_EQ(pointsOf(2), 95u) << "of one row";

    press("E");
    press("greater"); // 1.25, 1.6, 2, 2.4 m wide: three rows
    press("greater");
    press("greater");
    press("greater");
    press("period"); // the next three rows and a part
    EXPECT_FALSE(samePixels(*window.stillPicture(), *split));
    press("comma");
    window.drag(300, 100, 360, 130);
    const osg::ref_ptr<osg::Image> moved = window.stillPicture();
    EXPECT_FALSE(samePixels(*moved, *split));
    window.turnWheel(300, 100, 2);
    EXPECT_FALSE(samePixels(*window.stillPicture(), *moved));
    press("F10");
    press("Ctrl+q");
    EXPECT_TRUE(eventually([&] { return !window.program().isRunning(); }));
    EXPECT_EQ(window.program().wait().exitStatus, 0);
}

TEST_F(SectionWindow, AScriptDrawsAndEditsTheStripAlone)
{
    const std::string steps = R"([
        {"op": "window", "width": 600, "height": 300},
        {"op": "surface", "on": true, "classes": [2, 3, 4, 5], "points": false},
        {"op": "section", "from": [1234490, 6543209], "to": [1234530, 6543209], "width": 1},
        {"op": "section", "from": [1234509, 6543190], "to": [1234509, 6543230], "width": 1, "exaggeration": 20},
        {"op": "render", "file": "section.png"},
        {"op": "section", "from": [1234490, 6543209], "to": [1234530, 6543209], "width": 1},
        {"op": "classify", "polygon": [[-9, -9], [640, -9], [640, 400], [-9, 400]], "to": 7, "dryRun": true},
        {"op": "sectionWidth", "width": 3},
        {"op": "classify", "polygon": [[-9, -9], [640, -9], [640, 400], [-9, 400]], "to": 7, "dryRun": true},
        {"op": "sectionStep", "widths": 3},
        {"op": "cull", "polygon": [[1, 1], [3, 1], [3, 3]], "side": "outside"},
        {"op": "camera", "view": "top"},
        {"op": "classify", "polygon": [[-9, -9], [640, -9], [640, 400], [-9, 400]], "to": 7, "dryRun": true},
        {"op": "sectionTurn", "degrees": 90},
        {"op": "section", "from": [1234490, 6543209], "to": [1234530, 6543209], "width": 1},
        {"op": "select", "polygon": [[-9, -9], [640, -9], [640, 400], [-9, 400]]},
        {"op": "sectionStep"},
        {"op": "select", "polygon": [[-9, -9], [640, -9], [640, 400], [-9, 400]]},
        {"op": "camera", "view": "top"},
        {"op": "classify", "selected": true, "to": 7, "dryRun": true}])";
    folder.write("steps.json", std::vector<uint8_t>(steps.begin(), steps.end()));
    const ProgramResult result =
        runProgram({"env", "-C", folder.path(), BRXVIEW, "--script", "steps.json", store}, {"DISPLAY"});
    ASSERT_EQ(result.exitStatus, 0) << result.out << result.err;
    const std::vector<nlohmann::json> lines = jsonLines(result.out);
    EXPECT_EQ(lines[6]["selected"], 20) << "a row";
    EXPECT_EQ(lines[8]["selected"], 60);
    EXPECT_EQ(lines[10]["points"], 60) << "nine metres on";
    EXPECT_EQ(lines[12]["selected"], 340) << "the camera ends the section";
    EXPECT_EQ(lines[13]["message"], "there is no section");
    EXPECT_EQ(lines[15].count("message"), 0u);
    EXPECT_NE(lines[17].count("message"), 0u) << "of another strip";
    EXPECT_EQ(lines[19]["selected"], 20) << "of that strip alone";
    const osg::ref_ptr<osg::Image> picture = osgDB::readRefImageFile(folder.file("section.png"));
    ASSERT_TRUE(picture);
    // Points also where there is a surface of them.
    int rows = 0; // the columns beside this one lie 35 pixels higher and lower
    for (int y = 0; y < picture->t(); ++y)
        for (int x = 0, isNew = 1; x < picture->s(); ++x)
            if (isNew && pixel(*picture, x, y) == osg::Vec3ub(255, 128, 0)) {
                ++rows;
                isNew = 0;
            }
    EXPECT_GT(rows, 0);
    EXPECT_LT(rows, 6) << "of points of 3 pixels";
}
