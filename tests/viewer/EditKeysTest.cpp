#include "viewer/window/EditKeys.h"

#include "tests/support/DocsPage.h"
#include "tests/support/LasRecords.h"
#include "tests/support/OtherEditor.h"
#include "tests/viewer/ShownSurvey.h"
#include "viewer/operation/EditOperations.h"
#include "viewer/operation/Operations.h"
#include "viewer/window/CloseRequests.h"
#include "viewer/window/SectionTool.h"
#include "viewer/window/ToolMemory.h"
#include "viewer/window/Window.h"

#include <VelBrx/PointCounts.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <set>

namespace {

constexpr int kEscape = osgGA::GUIEventAdapter::KEY_Escape;
constexpr int kEnter = osgGA::GUIEventAdapter::KEY_Return;
constexpr int kBackspace = osgGA::GUIEventAdapter::KEY_BackSpace;
constexpr int kLeft = 1;
const Polygon kAll = {{-10, -10}, {210, -10}, {210, 210}, {-10, 210}};

class EditKeysTest : public testing::Test
{
protected:
    EditKeysTest()
    {
        osg::Vec3d eye;
        osg::Vec3d center;
        osg::Vec3d up;
        shown.host.camera().getViewMatrixAsLookAt(eye, center, up);
        views.emplace(*shown.host.viewer, shown.scene, Look{eye, center, up});
        session.emplace(shown.scene, *shown.host.viewer);
        keys = new EditKeys(*session, shown.scene, *shown.host.viewer, *views, *shown.overlay, classes,
                            measuring);
        help = addHandlers(*shown.host.viewer, *keys, shown.scene, *views, *shown.overlay, false);
        shown.show();
    }

    void TearDown() override
    {
        finish();
        session->undoAll();
        session->wait();
        session.reset();
    }

    osgGA::EventQueue& events() { return *shown.host.window->getEventQueue(); }

    /// Draws until the running operation has ended and its outcome has been taken.
    void finish()
    {
        shown.host.frame();
        while (session->isBusy())
            shown.host.frame();
    }

    void press(int key)
    {
        events().keyPress(key);
        events().keyRelease(key);
        finish();
    }

    void type(const std::string& text)
    {
        for (const char key : text)
            press(key);
    }

    /// Pixels from the top left, as window systems have them.
    void click(float x, float y)
    {
        events().mouseButtonPress(x, y, kLeft);
        shown.host.frame();
        events().mouseButtonRelease(x, y, kLeft);
        shown.host.frame();
    }

    /// A polygon around all points, closed.
    void drawAll()
    {
        press('a');
        for (const auto& [x, y] : {std::pair(1, 1), {199, 1}, {199, 199}, {1, 199}})
            click(x, y);
        press(kEnter);
    }

    uint64_t unsaved() { return session->unsavedPoints()[shown.store()]; }

    /// Points that a select of everything finds: those that are not hidden.
    uint64_t visiblePoints()
    {
        session->select(kAll, true);
        const uint64_t points = session->wait().points;
        session->undo();
        session->wait();
        return points;
    }

    bool isDone() { return shown.host.viewer->done(); }

    ShownSurvey shown{osgViewer::ViewerBase::SingleThreaded, 3};
    std::optional<Views> views;
    std::optional<SceneEditing> session;
    ClassChoice classes;
    Measuring measuring{shown.scene};
    osg::ref_ptr<EditKeys> keys;
    osg::ref_ptr<HelpKey> help;
};

/// The keys that the help lists, apart: "a / A" are two.
std::multiset<std::string> keysOf(const HelpKey& help)
{
    std::multiset<std::string> keys;
    for (const KeyList& list : help.lists())
        for (auto [text, description] : list.keys) {
            for (size_t end; (end = text.find(" / ")) != std::string::npos; text.erase(0, end + 3))
                keys.insert(text.substr(0, end));
            keys.insert(text);
        }
    return keys;
}

/// The sheet of the guide: what the help shows, a table for each of its lists.
std::string sheetOf(const HelpKey& help)
{
    std::string page =
        "# Keys and mouse\n\nWhat `h` shows in the window. `VELBRX_WRITE_PAGES=1 ctest -R EditKeys` "
        "writes this page.\n";
    for (const KeyList& list : help.lists()) {
        page += "\n## " + list.title + "\n\n| | |\n|---|---|\n";
        for (const auto& [keys, words] : list.keys)
            page += "| `" + keys + "` | " + words + " |\n";
    }
    return page;
}

} // namespace

TEST_F(EditKeysTest, ToolsReachWhatIsDrawnWithThem)
{
    const auto drag = [&](const Polygon& way) {
        events().mouseMotion(way.front().x(), way.front().y());
        events().mouseButtonPress(way.front().x(), way.front().y(), kLeft);
        for (const osg::Vec2d& place : way) {
            events().mouseMotion(place.x(), place.y());
            shown.host.frame();
        }
        events().mouseButtonRelease(way.back().x(), way.back().y(), kLeft);
        finish();
    };
    const auto clicks = [&](const Polygon& places) {
        for (const osg::Vec2d& place : places)
            click(place.x(), place.y());
        press(kEnter);
    };
    const auto counted = [&] {
        press('D');
        const uint64_t points = keys->counts() ? keys->counts()->selected : 0;
        press(kEscape);
        return points;
    };
    VelOsgDBBrx::Classification dryRun;
    dryRun.dryRun = true;
    const auto under = [&](const Polygon& polygon) {
        session->classify(Outline(polygon), dryRun);
        return session->wait().classes->selected;
    };
    press('E');
    press('C');
    drag({{100, 100}, {100, 120}, {130, 140}});
    const auto circle = [](double radius) {
        Polygon polygon;
        for (int i = 0; i < 360; ++i)
            polygon.push_back(
                osg::Vec2d(100 + radius * std::cos(i * M_PI / 180), 100 + radius * std::sin(i * M_PI / 180)));
        return polygon;
    };
    const uint64_t inCircle = counted();
    EXPECT_GE(inCircle, under(circle(49)));
    EXPECT_LE(inCircle, under(circle(51)));
    EXPECT_GT(inCircle, 50u);
    press('t');
    drag({{60, 60}, {140, 60}, {140, 140}, {60, 140}, {60, 61}});
    EXPECT_EQ(counted(), under({{60, 60}, {140, 60}, {140, 140}, {60, 140}, {60, 61}}));

    // The corners of a line are clicked out of order.
    press(';');
    clicks({{150, 130}, {50, 90}, {100, 70}});
    EXPECT_EQ(counted(), under({{50, 90}, {100, 70}, {150, 130}, {150, 0}, {50, 0}}));
    press(kEnter);
    ASSERT_TRUE(keys->tools().kind());
    EXPECT_EQ(keys->tools().kind()->key, ';') << "the last tool again";
    press('\'');
    clicks({{150, 130}, {50, 90}, {100, 70}});
    EXPECT_EQ(counted(), under({{50, 90}, {100, 70}, {150, 130}, {150, 200}, {50, 200}}));
    press('/');
    clicks({{40, 60}, {160, 60}});
    clicks({{100, 140}, {180, 100}});
    EXPECT_EQ(counted(), under({{100, 60}, {160, 60}, {160, 110}, {100, 140}}));

    // Each stroke of the brush is a step.
    press('7');
    press('b');
    const uint64_t inside = under({{60, 100}, {140, 100}, {140, 119}, {60, 119}});
    const uint64_t around = under({{38, 78}, {162, 78}, {162, 122}, {38, 122}});
    const size_t before = session->steps().size();
    drag({{60, 100}, {80, 100}, {140, 100}});
    const uint64_t painted = unsaved();
    EXPECT_GT(painted, inside);
    EXPECT_LT(painted, around);
    drag({{60, 30}, {140, 30}});
    EXPECT_GT(unsaved(), painted);
    EXPECT_EQ(session->steps().size(), before + 2);
    press('z');
    EXPECT_EQ(unsaved(), painted);
    press('z');
    EXPECT_EQ(unsaved(), 0u);
    press(kEscape);
    EXPECT_FALSE(keys->tools().tool());

    // What is not in a range is left out.
    drawAll();
    const uint64_t all = under(kAll);
    press('J');
    EXPECT_TRUE(shown.scene.editLimits().front);
    EXPECT_EQ(under(kAll), all) << "all of a plane is seen";
    press('J');
    EXPECT_FALSE(shown.scene.editLimits().front);
    EXPECT_EQ(under(kAll), all);
    Request first(*findOperation("where"));
    first.set("returns", VelOsgDBBrx::ValueRange{2, 15});
    keys->act(first);
    EXPECT_LT(under(kAll), all);
    keys->act(Request(*findOperation("where")));
    EXPECT_EQ(under(kAll), all);

    press('Y');
    const osg::BoundingBoxd& bounds = shown.scene.bounds();
    const osg::Vec2d corner =
        *windowViewOf(shown.host.camera())->pixelOf({bounds.xMin(), bounds.yMin(), bounds.zMin()});
    click(static_cast<float>(corner.x()), static_cast<float>(corner.y()));
    for (int i = 0; i < 5; ++i)
        finish();
    ASSERT_TRUE(keys->tools().grow() && keys->tools().grow()->isClosed());
    keys->tools().settings().growLimit = 50;
    keys->tools().settings().growAngle.reset();
    EXPECT_EQ(counted(), 50u);
}

TEST_F(EditKeysTest, DigitsChooseTheToClassAndListsTheFromClassesAndTheClassesShown)
{
    press('E');
    drawAll();
    type("64"); // a class of two digits
    press('F');
    type("3");
    press(kEnter);
    press('D');
    EXPECT_EQ(unsaved(), 0u) << "a dry run";
    press('K');
    EXPECT_EQ(unsaved(), 140u) << "columns 1, 4, ... 19";
    session->classify(kAll, {1, {64}, true});
    EXPECT_EQ(session->wait().classes->before[64], 140u);

    drawAll();
    type("2569"); // 256 is none: 6 begins anew
    press('F');
    type("-64,3");
    press(kBackspace);
    type("2");
    press(kEnter);
    press('V');
    type("-4");
    press(kEnter);
    EXPECT_EQ(shown.scene.shownClasses().count(), 255u);
    press('K');
    EXPECT_EQ(unsaved(), 140u) << "class 64 and 2 may not change, class 4 is not shown";
    press('V');
    press(kEnter);
    EXPECT_TRUE(shown.scene.shownClasses().all());
    drawAll();
    press('K');
    EXPECT_EQ(unsaved(), 140u + 120u);
    session->classify(kAll, {1, {}, true});
    EXPECT_EQ(session->wait().classes->before[69], 120u);
}

TEST_F(EditKeysTest, AnotherRequestToCloseStaysInTheQueueWhileAFrameIsBegun)
{
    events().closeWindow(events().getTime() + 1000);
    shown.host.frame();
    EXPECT_TRUE(shown.host.window->valid());
    EXPECT_TRUE(takeCloseRequests(*shown.host.viewer));
    EXPECT_FALSE(takeCloseRequests(*shown.host.viewer));
    press('E');
    EXPECT_FALSE(isDone()) << "other events are left";
}

TEST_F(EditKeysTest, APolygonHasThePointsThatItIsDrawnOver)
{
    const Polygon corner = {{2, 90}, {2, 3}, {120, 5}};
    press('a'); // begins edit mode, too
    for (const osg::Vec2d& vertex : corner)
        click(static_cast<float>(vertex.x()), static_cast<float>(vertex.y()));
    press('x');
    const LasRecords records(shown.store());
    for (size_t i = 0; i < records.size(); ++i) {
        const osg::Vec2d pixel = shown.onScreen(records.position(i));
        EXPECT_EQ(records.flags(i) != 0, contains(corner, pixel.x(), pixel.y()))
            << pixel.x() << ", " << pixel.y();
    }
}

TEST_F(EditKeysTest, ADrawingGoesWithThePictureItWasDrawnOn)
{
    press('E');
    drawAll();
    press('N'); // another view
    press('x');
    EXPECT_EQ(visiblePoints(), 400u);
}

TEST_F(EditKeysTest, AStoreThatAnotherProgramEditsIsEditedOnlyWhereThatIsChosen)
{
    OtherEditor other(shown.store());
    ASSERT_TRUE(other.edits());
    press('E');
    for (const char operation : {'x', 'K'}) {
        drawAll();
        press(operation);
        press('e' - 'a' + 'A'); // no answer
        press(kEscape);
        press(kEscape);
    }
    EXPECT_EQ(visiblePoints(), 400u);
    EXPECT_EQ(unsaved(), 0u);
    drawAll();
    press('9');
    press('K');
    press('e');
    EXPECT_EQ(unsaved(), 400u) << "the operation that was refused";
    drawAll();
    press('x');
    EXPECT_EQ(visiblePoints(), 0u) << "the choice holds";
}

TEST_F(EditKeysTest, EscapeTakesTheRunningEditBack)
{
    press('E');
    bool cancelled = false;
    for (int time = 0; time < 20 && !cancelled; ++time) { // it may come too late
        drawAll();
        events().keyPress('x');
        events().keyPress(kEscape);
        finish();
        cancelled = visiblePoints() == 400;
        if (!cancelled) press('z');
    }
    EXPECT_TRUE(cancelled);
}

TEST_F(EditKeysTest, AKeyDuringAnEditWaitsForItAndTheWindowClosesAfterBoth)
{
    const auto savedAs = [&](uint8_t code) {
        VelBrx::PointCounts counts;
        EXPECT_TRUE(VelBrx::countPoints(shown.store(), counts));
        return counts.byClass[code];
    };
    press('E');
    type("9");
    drawAll();
    for (const int key : {'K', 'W', 'z'}) { // one waits, not a row
        events().keyPress(key);
        events().keyRelease(key);
    }
    finish();
    EXPECT_EQ(savedAs(9), 400u);
    EXPECT_EQ(unsaved(), 0u);

    type("7");
    drawAll();
    for (const int key : {int{'K'}, int{'W'}, 'Q' - '@'}) {
        events().keyPress(key);
        events().keyRelease(key);
    }
    finish();
    EXPECT_EQ(savedAs(7), 400u);
    EXPECT_TRUE(isDone()) << "nothing is left to ask";
    shown.host.viewer->setDone(false);
}

TEST_F(EditKeysTest, NoKeyHasTwoMeaningsAndTheHelpAndThePagesListTheSame)
{
    const std::multiset<std::string> keysOfHelp = keysOf(*help);
    const std::set<std::string> listed(keysOfHelp.begin(), keysOfHelp.end());
    for (const std::string& key : listed)
        EXPECT_EQ(keysOfHelp.count(key), 1u) << key;
    for (const KeyList& list : help->lists())
        for (const auto& line : list.keys)
            EXPECT_LE(line.first.size(), 22u) << line.first << ": no room is left for the words";
    std::set<std::string> onPages;
    for (const std::string page : {"viewing", "editing"})
        for (const std::string& key : keysInTables(VELBRX_SOURCE_DIR "/docs/" + page + ".md"))
            onPages.insert(key);
    EXPECT_EQ(onPages, listed);
    const std::string sheet = VELBRX_SOURCE_DIR "/docs/guide/keys.md";
    if (std::getenv("VELBRX_WRITE_PAGES")) std::ofstream(sheet) << sheetOf(*help);
    EXPECT_EQ(readText(sheet), sheetOf(*help)) << "write it anew with VELBRX_WRITE_PAGES=1";
}

TEST_F(EditKeysTest, ToolsComeBackAsTheyWereLeftWithoutWhatIsOfOneSurvey)
{
    using VelOsgDBBrx::ValueRange;
    const Stage stage{shown.scene, *session, {}};
    ToolUse left(shown.scene, *views);
    left.settings() = {{25, true}, 1.5, std::nullopt, 5000};
    left.setLast(findTool('b'));
    Request where(*findOperation("where"));
    where.set("intensity", ValueRange{10});
    where.set("height", ValueRange{100, 200});
    where.set("classes", ClassSet().set(2).set(250));
    carryOut(where, stage);
    Request depth(*findOperation("depth"));
    depth.set("of", std::string("front"));
    depth.set("tolerance", 0.5);
    carryOut(depth, stage);
    const std::string file = shown.folder.file("settings.json");
    Settings settings(file);
    keepTools(left, shown.scene, settings);
    ASSERT_TRUE(settings.save());

    shown.scene.setEditLimits({});
    ToolUse taken(shown.scene, *views);
    recallTools(Settings(file), taken, stage);
    EXPECT_EQ(taken.settings().brush.radius, 25);
    EXPECT_TRUE(taken.settings().brush.isInWorld);
    EXPECT_EQ(taken.settings().growDistance, 1.5);
    EXPECT_FALSE(taken.settings().growAngle);
    EXPECT_EQ(taken.settings().growLimit, 5000);
    EXPECT_EQ(taken.last(), findTool('b'));
    const Request ranges = rangesOf(shown.scene);
    ASSERT_TRUE(ranges.has("intensity") && ranges.has("classes"));
    EXPECT_EQ(ranges.get<ValueRange>("intensity").low, 10);
    EXPECT_EQ(ranges.get<ValueRange>("intensity").high, ValueRange().high);
    EXPECT_EQ(ranges.get<ClassSet>("classes"), ClassSet().set(2).set(250));
    EXPECT_FALSE(ranges.has("height"));
    ASSERT_TRUE(shown.scene.editLimits().front);
    EXPECT_EQ(shown.scene.editLimits().front->tolerance, 0.5);

    // What nobody can have meant stays as it is.
    std::ofstream(file) << R"({"tools.brush.radius": 1e9, "tools.grow.angle": 400, "tools.grow.limit": -1,
        "tools.last": 1, "tools.ranges": {"mud": [1, 2], "returns": [9, 1]}, "tools.classes": [-1, 900]})";
    shown.scene.setEditLimits({});
    ToolUse plain(shown.scene, *views);
    recallTools(Settings(file), plain, stage);
    EXPECT_EQ(plain.settings().brush.radius, BrushSize().radius);
    EXPECT_EQ(plain.settings().growAngle, ToolSettings().growAngle);
    EXPECT_EQ(plain.settings().growLimit, ToolSettings().growLimit);
    EXPECT_EQ(plain.last(), nullptr);
    EXPECT_FALSE(rangesOf(shown.scene).has("classes"));
    EXPECT_FALSE(shown.scene.editLimits().front);
}

TEST_F(EditKeysTest, ASectionIsClickedFasterThanItsPointsAreFound)
{
    const osg::ref_ptr<SectionTool> tool = new SectionTool(shown.scene, *views);
    shown.host.viewer->getEventHandlers().push_front(tool);
    views->drawSection();
    for (const float x : {60.0f, 140.0f}) {
        events().mouseButtonPress(x, 100, kLeft);
        events().mouseButtonRelease(x, 100, kLeft);
    }
    for (int frame = 0; frame < 10 && !views->section(); ++frame)
        shown.host.frame();
    ASSERT_TRUE(views->section());
    EXPECT_GT(views->section()->to.x(), views->section()->from.x());
}
