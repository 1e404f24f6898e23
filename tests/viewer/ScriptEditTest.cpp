#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/JsonLines.h"
#include "tests/support/LasRecords.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <algorithm>
#include <cstdlib>
#include <numeric>

using nlohmann::json;

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
const osg::Vec3ub kBackground(28, 31, 36);

/// Not convex; no edge comes near the centre of a pixel, so that a mask of it has no pixel in doubt.
const Polygon kNotched = {{60, 60.25},   {100.75, 101}, {260, 101}, {260, 190},
                          {160.75, 190}, {140, 169.25}, {140, 190}, {60, 190}};
const Polygon kOverlapping = {{120, 20}, {200, 20}, {200, 150}, {120, 150}};

/// A store that the program edits, and the camera that it does so with.
class ScriptedStore
{
public:
    explicit ScriptedStore(const std::string& storePath) : path(storePath)
    {
        EXPECT_TRUE(VelBrx::readStoreInfo(path, info));
        const VelBrx::BrxHeader& header = info.header;
        const osg::Vec3d min(header.min[0], header.min[1], header.min[2]);
        const osg::Vec3d max(header.max[0], header.max[1], header.max[2]);
        center = (min + max) / 2;
        eye = center + osg::Vec3d(-0.5, -1.5, 2) * (max - min).length();
        near = {{"op", "camera"},
                {"eye", {min.x(), min.y(), max.z() + 5}},
                {"center", {min.x() + 10, min.y() + 10, min.z()}},
                {"up", {0, 0, 1}}};
    }

    /// The operation that looks at all from afar.
    json far() const
    {
        return {{"op", "camera"},
                {"eye", {eye.x(), eye.y(), eye.z()}},
                {"center", {center.x(), center.y(), center.z()}},
                {"up", {0, 0, 1}}};
    }

    /// The points of `records` under a polygon of the far view.
    std::vector<bool> under(const LasRecords& records, const Polygon& polygon) const
    {
        Screen screen;
        screen.width = kWidth;
        screen.height = kHeight;
        screen.view = osg::Matrixd::lookAt(eye, center, osg::Vec3d(0, 0, 1));
        screen.projection = osg::Matrixd::perspective(30, 1.0 * kWidth / kHeight, 1, 1e6);
        return pointsUnder(records, polygon, screen, osg::Matrixd::translate(records.offset()));
    }

    /// Runs operations in the window of the far view. Its exit status must be as said.
    std::vector<json> run(std::vector<json> steps, int exitStatus = 0)
    {
        steps.insert(steps.begin(), {{{"op", "window"}, {"width", kWidth}, {"height", kHeight}}, far()});
        const std::string text = json(steps).dump();
        folder.write("edit.json", std::vector<uint8_t>(text.begin(), text.end()));
        result = runProgram({BRXVIEW, "--force", "--no-legend", "--script", folder.file("edit.json"), path},
                            {"DISPLAY"});
        EXPECT_EQ(result.exitStatus, exitStatus) << result.out << result.err;
        EXPECT_TRUE(VelBrx::verifyStore(path).empty());
        return jsonLines(result.out);
    }

    LasRecords records() const { return LasRecords(path); }

    const std::string path;
    VelBrx::StoreInfo info;
    osg::Vec3d eye;
    osg::Vec3d center;
    json near; ///< looks at a corner from close by
    ProgramResult result;
    const TempFolder folder;
};

json edit(const std::string& op, const Polygon& polygon)
{
    json vertices = json::array();
    for (const osg::Vec2d& vertex : polygon)
        vertices.push_back({vertex.x(), vertex.y()});
    return {{"op", op}, {"polygon", vertices}};
}

json classify(const Polygon& polygon, const std::vector<int>& from, int to)
{
    json operation = edit("classify", polygon);
    operation["from"] = from;
    operation["to"] = to;
    return operation;
}

const json kOnePixel = {{"op", "pointSize"}, {"pixels", 1}};
const json kSettle = {{"op", "settle"}};
const json kReport = {{"op", "report"}};
const json kUndo = {{"op", "undo"}};
const json kSave = {{"op", "save"}};

/// The line of an operation by its place in the script, counted from 0 after window and camera.
const json& lineOf(const std::vector<json>& lines, size_t step)
{
    return lines.at(step + 2);
}

LasRecords classified(LasRecords records, const std::vector<bool>& which, const std::vector<int>& from,
                      int to)
{
    for (size_t i = 0; i < records.size(); ++i) {
        const bool may = std::find(from.begin(), from.end(), records.classOf(i)) != from.end();
        if (which[i] && may && !(records.flags(i) & kHiddenBits))
            records.classOf(i) = static_cast<uint8_t>(to);
    }
    return records;
}

size_t countHidden(const LasRecords& records)
{
    size_t count = 0;
    for (size_t i = 0; i < records.size(); ++i)
        count += (records.flags(i) & kHiddenBits) != 0;
    return count;
}

size_t countOfClass(const LasRecords& records, int code)
{
    size_t count = 0;
    for (size_t i = 0; i < records.size(); ++i)
        count += records.classOf(i) == code;
    return count;
}

/// The two classes that most points under a polygon have.
std::vector<int> commonClasses(const LasRecords& records, const std::vector<bool>& under)
{
    std::vector<size_t> counts(255);
    for (size_t i = 0; i < records.size(); ++i)
        if (under[i] && records.classOf(i) < counts.size()) ++counts[records.classOf(i)];
    std::vector<int> codes(counts.size());
    std::iota(codes.begin(), codes.end(), 0);
    std::sort(codes.begin(), codes.end(), [&](int a, int b) { return counts[a] > counts[b]; });
    return {codes[0], codes[1]};
}

/// Stores of real surveys. VELBRX_TEST_SURVEY names another file to try, a LAS or LAZ file of any size.
class RealSurvey : public testing::TestWithParam<const char*>
{
protected:
    void SetUp() override
    {
        const char* data = std::getenv("VELBRX_TEST_DATA");
        if (!data) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of real files";
        const char* other = std::getenv("VELBRX_TEST_SURVEY");
        buildStoreOf(other ? other : std::string(data) + "/survey/" + GetParam(), folder.file("survey.brx"));
        store.emplace(folder.file("survey.brx"));
        ASSERT_GT(store->info.cells.size(), 10u);
    }

    json picture(const std::string& name) const { return {{"op", "render"}, {"file", folder.file(name)}}; }

    const TempFolder folder;
    std::optional<ScriptedStore> store;
};

INSTANTIATE_TEST_SUITE_P(Script, RealSurvey,
                         testing::Values("laserchicken__AHN3.laz",
                                         "ign-pdal-tools__test_semis_2021_0382_6565_LA93_IGN69_cropped.laz"),
                         [](const auto& test) { return "Survey" + std::to_string(test.index + 1); });

enum class Side
{
    INSIDE,
    OUTSIDE
};

/// Pixels with points on a side of a polygon, away from its edges by more than the half of a point's pixel.
int countDrawn(const std::string& file, const Polygon& polygon, Side side)
{
    constexpr double kMargin = 1;
    const osg::ref_ptr<osg::Image> picture = osgDB::readRefImageFile(file);
    int count = 0;
    for (int row = 0; row < picture->t(); ++row) {
        for (int column = 0; column < picture->s(); ++column) {
            bool onSide = true;
            for (const double x : {-kMargin, 0.0, kMargin})
                for (const double y : {-kMargin, 0.0, kMargin})
                    onSide = onSide &&
                             contains(polygon, column + 0.5 + x, row + 0.5 + y) == (side == Side::INSIDE);
            count += onSide && pixel(*picture, column, picture->t() - 1 - row) != kBackground;
        }
    }
    return count;
}

} // namespace

TEST_P(RealSurvey, CullsPagesOutAndInUndoesAndResetsAsAnIndependentComputationSays)
{
    const LasRecords before = store->records();
    const LasRecords culled = hidden(before, store->under(before, kNotched));
    ASSERT_GT(countHidden(culled), before.size() / 20);
    const std::vector<json> page = {store->near, kSettle, store->far(), kSettle};

    std::vector<json> steps = {{{"op", "pointSize"}, {"pixels", 1}},
                               picture("before.png"),
                               edit("cull", kNotched),
                               picture("culled.png")};
    steps.insert(steps.end(), page.begin(), page.end());
    steps.insert(steps.end(), {picture("again.png"), kReport});
    const std::vector<json> lines = store->run(steps);
    EXPECT_TRUE(store->records().bytes() == culled.bytes());
    EXPECT_EQ(lineOf(lines, 2)["points"], countHidden(culled) - countHidden(before));
    EXPECT_LT(lineOf(lines, 3)["cellsDrawn"], store->info.cells.size() / 2) << "all is loaded from afar";
    EXPECT_NE(lineOf(lines, 5)["pointsDrawn"], lineOf(lines, 3)["pointsDrawn"]) << "nothing was paged";
    EXPECT_EQ(lineOf(lines, 8)["pointsDrawn"], lineOf(lines, 3)["pointsDrawn"]);
    EXPECT_EQ(lineOf(lines, 9)["stores"][0]["hiddenPoints"], countHidden(culled));

    const auto drawnInside = [&](const std::string& name) {
        return countDrawn(folder.file(name), kNotched, Side::INSIDE);
    };
    EXPECT_GT(drawnInside("before.png"), 1000);
    EXPECT_EQ(drawnInside("culled.png"), 0);
    EXPECT_EQ(drawnInside("again.png"), 0);

    steps = {edit("cull", kOverlapping)};
    steps[0]["side"] = "outside";
    steps.push_back(edit("cull", kOverlapping));
    steps.insert(steps.end(), page.begin(), page.end());
    steps.push_back(kReport);
    steps.insert(steps.end(), 2, kUndo);
    EXPECT_EQ(lineOf(store->run(steps), 6)["stores"][0]["hiddenPoints"], before.size());
    EXPECT_TRUE(store->records().bytes() == culled.bytes());

    store->run({{{"op", "reset"}}});
    const std::vector<bool> all(before.size(), true);
    EXPECT_TRUE(store->records().bytes() == shown(before, all).bytes());
}

TEST_P(RealSurvey, ClassifiesEveryPointOfAFarViewUndoesAndSaves)
{
    constexpr int kTo = 40; // a class that no survey has
    store->run({edit("cull", kOverlapping)});
    const LasRecords before = store->records();
    const std::vector<bool> under = store->under(before, kNotched);
    const std::vector<int> from = commonClasses(before, under);
    const LasRecords after = classified(before, under, from, kTo);
    const size_t changed = countOfClass(after, kTo);
    ASSERT_GT(changed, before.size() / 20);
    ASSERT_LT(changed, before.size() / 2);
    json dryRun = classify(kNotched, from, kTo);
    dryRun["dryRun"] = true;

    const std::vector<json> lines = store->run({kSettle, dryRun, classify(kNotched, from, kTo), kReport});
    EXPECT_LT(lineOf(lines, 0)["cellsDrawn"], store->info.cells.size() / 2) << "all is loaded from afar";
    for (const size_t step : {1, 2}) {
        EXPECT_EQ(lineOf(lines, step)["points"], changed);
        EXPECT_EQ(lineOf(lines, step)["after"][std::to_string(kTo)], changed);
    }
    EXPECT_EQ(lineOf(lines, 3)["stores"][0]["unsaved"], changed);
    EXPECT_EQ(lines.back()["unsaved"], changed);
    EXPECT_NE(store->result.err.find(std::to_string(changed) + " points are not saved"), std::string::npos);
    EXPECT_TRUE(store->records().bytes() == before.bytes()) << "nothing was saved";

    store->run({classify(kNotched, from, kTo), kSave, kUndo, kSave});
    EXPECT_TRUE(store->records().bytes() == before.bytes()) << "an undo restores every byte";

    store->run({classify(kNotched, from, kTo), kSave});
    EXPECT_TRUE(store->records().bytes() == after.bytes());

    // Opened again, the store shows the new class where the points are, and there alone.
    json only = {{"op", "showClasses"}, {"classes", {kTo}}};
    store->run({kOnePixel, only, picture("class.png")});
    EXPECT_GT(countDrawn(folder.file("class.png"), kNotched, Side::INSIDE), 300);
    EXPECT_EQ(countDrawn(folder.file("class.png"), kNotched, Side::OUTSIDE), 0);
}
