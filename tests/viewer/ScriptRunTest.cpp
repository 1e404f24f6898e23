#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/JsonLines.h"
#include "tests/support/LasRecords.h"
#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelBrx/PointCounts.h>
#include <VelBrx/Verify.h>

#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <thread>

#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const std::string kWindow = R"({"op": "window", "width": 200, "height": 200})";
const std::string kTop = R"({"op": "camera", "view": "top"})";
const std::string kAll = R"("polygon": [[-9, -9], [209, -9], [209, 209], [-9, 209]])";
const std::string kToSeven = R"({"op": "classify", )" + kAll + R"(, "to": 7})";

/// A small survey of 20 x 20 points a metre apart, in a store that scripts edit.
class ScriptRun : public testing::Test
{
protected:
    void build()
    {
        ASSERT_TRUE(survey.write(folder.file("grid.las")));
        buildStoreOf(folder.file("grid.las"), store);
    }

    /// Runs the operations, with the window above them, by a program behind the words `before`.
    void run(const std::string& steps, const std::vector<std::string>& more = {},
             std::vector<std::string> before = {})
    {
        before.insert(before.end(), {BRXVIEW, "--script", writeScript("edit.json", steps), store});
        before.insert(before.end(), more.begin(), more.end());
        finish(runProgram(before, {"DISPLAY"}));
    }

    /// A file with a script in the window of all tests.
    std::string writeScript(const std::string& name, const std::string& steps) const
    {
        const std::string text = "[" + kWindow + (steps.empty() ? "" : ",\n") + steps + "]";
        return folder.write(name, std::vector<uint8_t>(text.begin(), text.end()));
    }

    void finish(const ProgramResult& ended)
    {
        result = ended;
        lines = jsonLines(result.out);
    }

    /// The line of an operation after the window, counted from 1.
    json line(size_t operation) const { return operation < lines.size() ? lines[operation] : json(); }

    void expectSuccess() const { EXPECT_EQ(result.exitStatus, 0) << result.out << result.err; }

    /// One line on stderr that holds `said`, and exit status 1.
    void expectFailure(const std::string& said) const
    {
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
    }

    osg::ref_ptr<osg::Image> picture(const std::string& name) const
    {
        return osgDB::readRefImageFile(folder.file(name));
    }

    std::string render(const std::string& name) const
    {
        return R"({"op": "render", "file": ")" + folder.file(name) + "\"}";
    }

    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
    TestSurvey survey = [] {
        TestSurvey small;
        small.side = 20;
        small.classes = 4; // 2 to 5, by column
        return small;
    }();
    ProgramResult result;
    std::vector<json> lines;
};

/// A worldPolygon around the points from column and row `low` to `high`, at a height.
std::string around(const TestSurvey& survey, osg::Vec2d low, osg::Vec2d high, double z)
{
    const double x = survey.x;
    const double y = survey.y;
    const json corners = {{x + low.x() - 0.5, y + low.y() - 0.5, z},
                          {x + high.x() + 0.5, y + low.y() - 0.5, z},
                          {x + high.x() + 0.5, y + high.y() + 0.5, z},
                          {x + low.x() - 0.5, y + high.y() + 0.5, z}};
    return "\"worldPolygon\": " + corners.dump();
}

} // namespace

TEST_F(ScriptRun, EditsWhatAPolygonInWorldCoordinatesSurrounds)
{
    build();
    run(kTop + R"(, {"op": "cull", )" + around(survey, {3, 5}, {6, 9}, survey.z) + "}, " + render("top.png"));
    expectSuccess();
    EXPECT_EQ(line(2)["points"], 20);
    const LasRecords records(store);
    for (size_t i = 0; i < records.size(); ++i) {
        const osg::Vec3d place = records.position(i) - osg::Vec3d(survey.x, survey.y, survey.z);
        const bool inside = place.x() > 2.5 && place.x() < 6.5 && place.y() > 4.5 && place.y() < 9.5;
        EXPECT_EQ(records.flags(i) & 0x0F, inside ? 4 : 0) << place.x() << ", " << place.y();
    }
    // Columns 3 to 6 lie left of the middle, rows 5 to 9 below it.
    const auto top = picture("top.png");
    const osg::Vec3ub background = pixel(*top, 1, 1);
    EXPECT_EQ(pixel(*top, 55, 75), background);
    EXPECT_NE(pixel(*top, 145, 75), background) << "mirrored";
    EXPECT_NE(pixel(*top, 55, 125), background) << "upside down";

    // Of a picture of 4 m in height the polygon is five times as wide.
    run(R"({"op": "reset"}, {"op": "camera", "view": "top", "projection": "orthographic", "height": 4},
           {"op": "cull", )" +
        around(survey, {0, 0}, {19, 19}, survey.z) + R"(}, {"op": "undo"}, {"op": "undo"})");
    expectSuccess();
    EXPECT_EQ(line(3)["points"], 400);
    EXPECT_EQ(line(4)["undone"], "hide");
    EXPECT_EQ(line(4)["points"], 400);
    EXPECT_EQ(line(5)["undone"], "reset");

    run(R"({"op": "camera", "eye": [0, 0, 10], "center": [0, 0, 0], "up": [0, 1, 0]},
           {"op": "cull", "worldPolygon": [[1, 1, 0], [2, 1, 0], [2, 2, 11]]})");
    expectFailure("edit.json: operation 3 (cull): vertex 3 is behind the camera");
}

TEST_F(ScriptRun, SeesTheSameAtEveryHeightInAnOrthographicView)
{
    survey.step = 30;
    build();
    // The picture is 20 m high and shows the middle of the survey: 10 pixels a metre, point (10, 10) at
    // (105, 95) from the top left.
    run(R"({"op": "camera", "view": "top", "projection": "orthographic", "height": 20},
           {"op": "cull", "polygon": [[50, 50], [150, 50], [150, 150], [50, 150]]}, )" +
        render("ortho.png") + R"(, {"op": "uncull", "polygon": [[50, 50], [150, 50], [150, 150], [50, 150]]},
           {"op": "camera", "view": "top", "projection": "orthographic"},)" +
        render("all.png") +
        R"(, {"op": "camera", "eye": [1234509.5, 6543209.5, 110], "center": [1234509.5, 6543209.5, 100],
             "up": [0, 1, 0], "projection": "orthographic", "height": 20}, )" +
        render("inside.png"));
    expectSuccess();
    EXPECT_EQ(line(2)["points"], 100);
    const LasRecords records(store);
    const auto ortho = picture("ortho.png");
    const osg::Vec3ub background = pixel(*ortho, 100, 100);
    for (const int column : {45, 155}) // the lower and the higher half
        EXPECT_NE(pixel(*ortho, column, 105), background) << column;
    for (const int column : {55, 145})
        EXPECT_EQ(pixel(*ortho, column, 105), background) << column;
    // The eye may stand between the points: all are in front of it.
    const auto inside = picture("inside.png");
    for (const int column : {45, 95, 105, 155})
        EXPECT_NE(pixel(*inside, column, 105), background) << column;
    EXPECT_EQ(line(6)["pointsDrawn"], 400);
}

TEST_F(ScriptRun, DrawsOrthographicPicturesAsFineAsOthers)
{
    survey.side = 400;
    build();
    run(R"({"op": "camera", "view": "top", "projection": "orthographic", "height": 250}, {"op": "settle"})");
    expectSuccess();
    const double metres = survey.side / std::sqrt(line(2)["pointsDrawn"].get<double>()); // apart
    const double pixels = metres * 200 / 250;
    EXPECT_LT(pixels, 2);
    EXPECT_GT(metres, 1.5) << "all is drawn";
}

TEST_F(ScriptRun, EditsWhatDisplayFilterAndClipPlanesShow)
{
    build();
    run(kTop +
        R"(, {"op": "showClasses", "classes": [2, 3]}, {"op": "clip", "planes": [[1, 0, 0, -1234509.5]]}, )" +
        render("part.png") + R"(, {"op": "classify", "dryRun": true, "from": [3], "to": 6, )" + kAll + "}, " +
        kToSeven + R"(, {"op": "undoAll"}, {"op": "showClasses"}, {"op": "cull", )" + kAll +
        R"(}, {"op": "undo"}, {"op": "clip"}, )" + kToSeven + R"(, {"op": "save"})");
    expectSuccess();
    EXPECT_EQ(line(5)["points"], 40);
    EXPECT_EQ(line(5)["before"], json({{"2", 40}, {"3", 40}}));
    EXPECT_EQ(line(5)["after"], json({{"2", 40}, {"6", 40}}));
    EXPECT_EQ(line(6)["points"], 80) << "columns 12, 13, 16 and 17";
    EXPECT_EQ(line(6)["before"], json({{"2", 40}, {"3", 40}})) << "the dry run changed nothing";
    EXPECT_EQ(line(6)["after"], json({{"7", 80}}));
    EXPECT_EQ(line(7)["points"], 80) << "there is no dry run to undo";
    EXPECT_EQ(line(9)["points"], 200) << "hidden within the plane";
    EXPECT_EQ(line(10)["points"], 200);
    EXPECT_EQ(line(12)["points"], 400);
    EXPECT_EQ(line(13)["points"], 400);
    EXPECT_EQ(line(13)["message"], "written to " + store);
    const auto part = picture("part.png");
    EXPECT_EQ(pixel(*part, 60, 100), pixel(*part, 1, 1)) << "outside the plane";
}

TEST_F(ScriptRun, ListsTheClassesThatItMadeInTheLegend)
{
    build();
    const std::string without = R"(, {"op": "showClasses", "classes": [9]}, )";
    run(kTop + R"(, {"op": "mode", "mode": "class"})" + without + render("before.png") +
        R"(, {"op": "showClasses"}, )" + kToSeven + without + render("after.png") + R"(, {"op": "undoAll"})");
    expectSuccess();
    const auto count = [&](const std::string& name) {
        return countOf(*picture(name), osg::Vec3ub(255, 0, 255));
    };
    EXPECT_EQ(count("before.png"), 0);
    EXPECT_GT(count("after.png"), 50);
}

TEST_F(ScriptRun, UndoesAndRedoesWhatEarlierRunsDid)
{
    build();
    const std::string half = R"("polygon": [[-9, -9], [100, -9], [100, 209], [-9, 209]])";
    const Bytes start = readFile(store);
    run(kTop + R"(, {"op": "cull", )" + half + "}", {"--author", "anna"});
    const Bytes west = readFile(store);
    run(kTop + R"(, {"op": "cull", )" + kAll + R"(}, {"op": "undo"}, {"op": "undo"}, {"op": "redo"})",
        {"--author", "bernd"});
    expectSuccess();
    EXPECT_EQ(line(2)["points"], 200);
    EXPECT_EQ(line(4)["undone"], "hide");
    EXPECT_EQ(line(5)["redone"], "hide");
    EXPECT_TRUE(readFile(store) == west);
    run(R"({"op": "redo"}, {"op": "redo"}, {"op": "report"}, {"op": "stepTo", "step": 0})");
    expectSuccess();
    EXPECT_EQ(line(1)["points"], 200);
    EXPECT_EQ(line(2)["message"], "there is nothing to redo");
    ASSERT_EQ(line(3)["steps"].size(), 2u);
    EXPECT_EQ(line(3)["steps"][1]["author"], "bernd");
    EXPECT_TRUE(readFile(store) == start);
    run(R"({"op": "stepTo", "step": 1})");
    EXPECT_TRUE(readFile(store) == west);
    run(R"({"op": "stepTo", "step": 3})");
    expectFailure("there are 2 steps");

    fs::resize_file(VelBrx::journalPath(store), 100); // not even its header
    run(kTop + R"(, {"op": "cull", )" + kAll + "}");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find("grid.brx.edits"), std::string::npos) << result.err;
    EXPECT_TRUE(readFile(store) == west);
    run(kTop + R"(, {"op": "cull", )" + kAll + R"(}, {"op": "undo"})", {"--edit-anyway"});
    EXPECT_EQ(line(3)["points"], 200);
    EXPECT_TRUE(readFile(store) == west);
}

TEST_F(ScriptRun, ColoursByEditsFollowEachEditItsUndoAndASave)
{
    build();
    const std::string half = R"("polygon": [[-9, -9], [100, -9], [100, 209], [-9, 209]])";
    const auto mode = [](const std::string& by) {
        return R"(, {"op": "mode", "mode": "changed", "by": ")" + by + "\"}, ";
    };
    run(kTop + mode("author") + render("before.png") + R"(, {"op": "cull", )" + half + "}, " +
            render("culled.png") + R"(, {"op": "undo"}, )" + render("undone.png") + ", " + kToSeven + ", " +
            render("classified.png") + mode("built") + render("built.png") + R"(, {"op": "save"})" +
            mode("age") + render("saved.png"),
        {"--no-legend"});
    expectSuccess();
    const osg::Vec3ub grey(107, 107, 107);
    const auto count = [&](const std::string& name) { return countOf(*picture(name), grey); };
    const int all = count("before.png");
    EXPECT_GT(all, 1000);
    EXPECT_NEAR(count("culled.png"), all / 2, all / 10);
    EXPECT_EQ(count("undone.png"), all);
    EXPECT_EQ(count("classified.png"), 0);
    EXPECT_EQ(count("built.png"), 0);
    EXPECT_EQ(count("saved.png"), 0);
}

TEST_F(ScriptRun, StopsAtAReadOnlyStoreBeforeAnythingIsEdited)
{
    build();
    fs::permissions(store, fs::perms(0444));
    const Bytes before = readFile(store);
    std::vector<std::string> unprivileged; // the superuser may write every file
    if (geteuid() == 0) unprivileged = {"setpriv", "--bounding-set=-dac_override"};
    run(kTop + R"(, {"op": "cull", )" + kAll + "}, " + R"({"op": "report"})", {}, unprivileged);
    expectFailure("operation 3 (cull): ");
    expectFailure(store);
    EXPECT_EQ(line(2)["points"], 0);
    EXPECT_NE(line(2)["error"].get<std::string>().find(store), std::string::npos);
    EXPECT_EQ(line(3), json({{"end", "failed"}, {"operations", 4}, {"done", 2}, {"unsaved", 0}}));

    run(kTop + ", " + kToSeven + R"(, {"op": "save"}, {"op": "report"})", {}, unprivileged);
    EXPECT_EQ(line(2)["points"], 0) << "refused before work is put into it";
    expectFailure("operation 3 (classify): ");
    expectFailure(store);
    EXPECT_EQ(lines.back()["unsaved"], 0);
    EXPECT_TRUE(readFile(store) == before);
}

TEST_F(ScriptRun, TellsASecondProgramWhoEditsAndTheFirstWhatTheSecondWrote)
{
    build();
    std::string steps = kTop + ", " + kToSeven;
    for (int i = 0; i < 1000; ++i) // longer than this process is ever away
        steps += R"(, {"op": "classify", "dryRun": true, )" + kAll + R"(, "to": 8})";
    RunningProgram first(
        {BRXVIEW, "--script", writeScript("first.json", steps + R"(, {"op": "save"})"), store}, {"DISPLAY"});
    while (first.isRunning() && first.out().find(R"("op":"classify","points":400)") == std::string::npos)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    first.signal(SIGSTOP); // it has the store and has not saved
    ASSERT_EQ(first.out().find(R"("op":"save")"), std::string::npos);

    const std::string westToNine =
        R"({"op": "classify", "polygon": [[-9, -9], [100, -9], [100, 209], [-9, 209]], "to": 9})";
    const std::string process = "process " + std::to_string(first.process()) + " (brxview)";
    for (const std::string& edit : {R"({"op": "cull", )" + kAll + "}", westToNine}) {
        run(kTop + ", " + render("look.png") + ", " + edit, {"--force"});
        expectFailure(store + ": is being edited by ");
        expectFailure(process);
        EXPECT_EQ(lines.back()["done"], 3) << "it may look";
    }
    run(kTop + ", " + westToNine + R"(, {"op": "save"})", {"--edit-anyway"});
    expectSuccess();
    EXPECT_EQ(line(2)["points"], 200);

    first.signal(SIGCONT);
    finish(first.wait());
    expectFailure("somebody else has given 200 of the points another class");
    EXPECT_EQ(lines.back()["unsaved"], 200);
    VelBrx::PointCounts counts;
    ASSERT_TRUE(VelBrx::countPoints(store, counts));
    EXPECT_EQ(counts.byClass[9], 200u) << "as the second wrote them";
    EXPECT_EQ(counts.byClass[7], 200u);
}

TEST_F(ScriptRun, StopsAtAViewThatDoesNotSettleInTime)
{
    build();
    run(kTop + ", " + render("late.png") + R"(, {"op": "cull", )" + kAll + "}", {"--timeout", "0.000001"});
    expectFailure("operation 3 (render): not all points were there");
    EXPECT_FALSE(fs::exists(folder.file("late.png")));
    EXPECT_EQ(lines.back()["done"], 2);
}

TEST_F(ScriptRun, LeavesUnsavedClassesToTheJournalForTheNextRun)
{
    build();
    const Bytes before = readFile(store);
    run(kTop + ", " + kToSeven);
    expectSuccess();
    EXPECT_NE(result.err.find("the changed classes of 400 points are not saved"), std::string::npos)
        << result.err;
    EXPECT_EQ(lines.back()["unsaved"], 400);
    EXPECT_TRUE(readFile(store) == before);
    const std::string sevens = R"({"op": "mode", "mode": "class"}, )" + kTop + ", ";
    run(sevens + render("again.png") + R"(, {"op": "dropUnsaved"})");
    expectSuccess();
    EXPECT_GT(countOf(*picture("again.png"), osg::Vec3ub(255, 0, 255)), 50);
    EXPECT_EQ(line(4)["points"], 400);
    EXPECT_EQ(lines.back()["unsaved"], 0);
    run(R"({"op": "undo"})"); // the dropping
    const ProgramResult drawn =
        runProgram({BRXVIEW, "--render", folder.file("plain.png"), "--mode", "class", "--view", "top", store},
                   {"DISPLAY"});
    EXPECT_NE(drawn.err.find("400 points have classes that are not saved"), std::string::npos) << drawn.err;
    EXPECT_GT(countOf(*picture("plain.png"), osg::Vec3ub(255, 0, 255)), 50);
    run(R"({"op": "save"})");
    EXPECT_EQ(line(1)["points"], 400);
}

TEST_F(ScriptRun, DoesWhatTheJournalTellsAgainOnACopyOfTheStore)
{
    survey.step = 5;
    build();
    const std::string copy = folder.file("copy.brx");
    fs::copy(store, copy);
    const std::string part = R"("polygon": [[20, 30], [150, 10], [190, 120], [60, 180]])";
    const std::string other = R"("polygon": [[90, 60], [199, 60], [150, 190]])";
    const std::string corner = R"("polygon": [[0, 0], [199, 0], [199, 90]])";
    run(R"({"op": "camera", "eye": [1234490, 6543180, 150], "center": [1234510, 6543210, 100], "up": [0, 0, 1]},
           {"op": "classify", "to": 6, "from": [2, 5], )" +
        part + R"(},
           {"op": "cull", "side": "outside", )" +
        part + R"(},
           {"op": "uncull", )" +
        other + R"(},
           {"op": "camera", "view": "iso"}, {"op": "cull", )" +
        part + R"(}, {"op": "undo"}, {"op": "reset"},
           {"op": "select", )" +
        other + R"(}, {"op": "segment", "hide": "selected"},
           {"op": "clip", "planes": [[1, 0.5, 0, -4506100]]}, {"op": "showClasses", "classes": [3, 4, 6]},
           {"op": "cull", )" +
        corner + R"(},
           {"op": "select", )" +
        part + R"(}, {"op": "classify", "selected": true, "to": 9},
           {"op": "reach", "of": "everything"}, {"op": "classify", "from": [4, 9], "to": 17, )" +
        other + R"(},
           {"op": "classify", "points": {"box": [[1234500, 6543200, 0], [1234505.5, 6543205.5, 999]]}, "to": 18},
           {"op": "save"})");
    expectSuccess();
    for (const size_t edit : {2, 3, 4, 6, 8, 13, 15, 17, 18})
        EXPECT_GT(line(edit)["points"], 0) << lines[edit];
    VelBrx::EditHistory history;
    ASSERT_TRUE(VelBrx::readEditHistory(store, history));
    const ProgramResult told = runProgram(
        {BRX, "history", store, "--script", "1.." + std::to_string(history.entries.back().number)});
    ASSERT_EQ(told.exitStatus, 0) << told.err;
    json again = json::parse(told.out);
    EXPECT_EQ(again.size(), 8u) << "but the one that was undone";
    again.push_back({{"op", "save"}});
    const std::string text = again.dump();
    finish(
        runProgram({BRXVIEW, "--script", folder.write("again.json", Bytes(text.begin(), text.end())), copy},
                   {"DISPLAY"}));
    expectSuccess();
    size_t step = 0;
    for (const VelBrx::EditEntry& entry : history.entries) {
        if (entry.kind != VelBrx::EditEntry::Kind::CHANGE || !entry.isDone) continue;
        EXPECT_EQ(lines.at(step++)["points"], entry.points) << entry.operation;
    }
    EXPECT_TRUE(readFile(copy) == readFile(store));
}

TEST_F(ScriptRun, ReadsStandardInputForADash)
{
    build();
    const std::string text = "[" + kTop + R"(, {"op": "cull", )" + kAll + "}]";
    folder.write("edit.json", std::vector<uint8_t>(text.begin(), text.end()));
    finish(runProgram({"sh", "-c", "\"$0\" --script - --size 200x200 \"$1\" < \"$2\"", BRXVIEW, store,
                       folder.file("edit.json")},
                      {"DISPLAY"}));
    expectSuccess();
    EXPECT_EQ(lines.at(1)["points"], 400);
}

TEST_F(ScriptRun, LeavesEveryPointOldOrNewWhenItIsKilled)
{
    survey.side = 300;
    build();
    const LasRecords before(store);
    std::string steps = kTop;
    for (int i = 0; i < 500; ++i)
        steps += R"(, {"op": "cull", )" + kAll + R"(}, {"op": "undo"}, )" + kToSeven +
                 R"(, {"op": "save"}, {"op": "undo"}, {"op": "save"})";
    const std::string script = writeScript("long.json", steps);
    int rounds = 0; // that came to an edit
    for (double seconds = 0.3; rounds < 3 && seconds < 60; seconds *= 1.4) {
        RunningProgram program({BRXVIEW, "--script", script, store}, {"DISPLAY"});
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        program.signal(SIGKILL);
        const ProgramResult killed = program.wait(); // gone, and its lock with it
        EXPECT_EQ(killed.out.find("\"end\""), std::string::npos) << "it was not killed in time";
        rounds += killed.out.find("\"points\":90000") != std::string::npos;
        EXPECT_TRUE(VelBrx::verifyStore(store).empty());
        LasRecords restored(store);
        for (size_t i = 0; i < restored.size(); ++i) {
            EXPECT_TRUE(restored.flags(i) == before.flags(i) || restored.flags(i) == (before.flags(i) | 4))
                << i;
            EXPECT_TRUE(restored.classOf(i) == before.classOf(i) || restored.classOf(i) == 7) << i;
            restored.flags(i) = before.flags(i);
            restored.classOf(i) = before.classOf(i);
        }
        EXPECT_TRUE(restored.bytes() == before.bytes()) << "other bytes changed";
        run(R"({"op": "reset"})");
        expectSuccess();
    }
    EXPECT_EQ(rounds, 3) << "the program comes to no edit";
}

TEST_F(ScriptRun, ASignalEndsItBehindTheRunningEditAndTellsWhatIsUnsaved)
{
    survey.side = 1500;
    build();
    constexpr uint64_t kPoints = 2250000;
    const std::string hide = R"(, {"op": "cull", )" + kAll + "}";
    std::string steps = kTop + ", " + kToSeven;
    for (int i = 0; i < 500; ++i)
        steps += hide + R"(, {"op": "undo"})";
    const std::string script = writeScript("long.json", steps);
    VelBrx::PointCounts before;
    ASSERT_TRUE(VelBrx::countPoints(store, before));
    for (const int signal : {SIGINT, SIGTERM}) {
        for (const std::string after : {"cull", "undo"}) {
            SCOPED_TRACE("signal " + std::to_string(signal) + " after the first " + after);
            RunningProgram program({BRXVIEW, "--script", script, store}, {"DISPLAY"});
            while (program.isRunning() &&
                   program.out().find("\"op\":\"" + after + "\",\"points\"") == std::string::npos)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            program.signal(signal); // the next operation runs
            finish(program.wait());
            EXPECT_EQ(result.exitStatus, 1);
            ASSERT_GT(lines.size(), 4u) << result.out;
            const json& last = lines[lines.size() - 2];
            EXPECT_EQ(lines.back(), json({{"end", "interrupted"},
                                          {"operations", 1003},
                                          {"done", last["operation"]},
                                          {"unsaved", kPoints}}));
            EXPECT_NE(result.err.find("long.json: ended by a signal after "), std::string::npos)
                << result.err;
            EXPECT_NE(result.err.find("the changed classes of 2250000 points are not saved"),
                      std::string::npos)
                << result.err;
            VelBrx::PointCounts counts;
            EXPECT_TRUE(VelBrx::countPoints(store, counts));
            EXPECT_EQ(counts.hidden, last["op"] == "cull" ? kPoints : 0) << "half an edit is there";
            EXPECT_EQ(counts.byClass, before.byClass);
            run(R"({"op": "reset"})");
        }
    }
}

TEST_F(ScriptRun, OpensExportsAndClosesFilesBesideTheFirst)
{
    build();
    TestSurvey large = survey;
    large.x += 30;
    large.side = 200;
    ASSERT_TRUE(large.write(folder.file("large.las")));
    const auto file = [&](const char* name) { return "\"file\": \"" + folder.file(name) + "\""; };
    const std::string open = R"({"op": "open", )" + file("large.las") + "}";
    const std::string everything = R"("points": {"everywhere": true})";

    run(open +
        R"(, {"op": "camera", "view": "top", "projection": "orthographic", "height": 100}, {"op": "settle"}, {"op": "memory", "megabytes": 1.2}, {"op": "settle"},
        {"op": "classify", )" +
        everything + R"(, "to": 7}, {"op": "save"},
        {"op": "export", "cloud": "grid.brx", )" +
        file("grid-edited.laz") + R"(},
        {"op": "close", "cloud": ")" +
        store + R"("}, {"op": "report"})");
    expectSuccess();
    EXPECT_GT(line(3)["pointsDrawn"], 30000);
    EXPECT_LT(line(5)["pointsDrawn"], 1200000 / 44);
    EXPECT_NE(line(8)["message"].get<std::string>().find("grid-edited.laz: 400 points, 400 of them edited"),
              std::string::npos);
    ASSERT_EQ(line(10)["stores"].size(), 1u);
    EXPECT_EQ(line(10)["stores"][0]["store"], folder.file("large.las.brx"));
    buildStoreOf(folder.file("grid-edited.laz"), folder.file("again.brx"));
    VelBrx::PointCounts counts;
    ASSERT_TRUE(VelBrx::countPoints(folder.file("again.brx"), counts));
    EXPECT_EQ(counts.byClass[7], 400u);

    run(R"({"op": "export", )" + file("grid-edited.laz") + "}");
    expectFailure("grid-edited.laz: exists already");
    EXPECT_TRUE(lines.empty()) << "nothing is done";
    run(open + R"(, {"op": "export", )" + file("new.laz") + "}");
    expectFailure("say which \"cloud\": there are grid.brx, large.las.brx");
    run(R"({"op": "close", "cloud": "large.las.brx"})");
    expectFailure("large.las.brx: is not open; there are grid.brx");
    run(R"({"op": "open", )" + file("missing.las") + "}");
    expectFailure("missing.las: No such file");
    EXPECT_FALSE(fs::exists(folder.file("new.laz")));
}
