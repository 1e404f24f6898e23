// The program in a window of its own, worked by keys and mouse, as docs/viewing.md and its neighbours say.

#include "tests/support/ProgramWindow.h"

#include "tests/support/BuildStore.h"
#include "tests/support/DocsPage.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/Normals.h>
#include <VelBrx/PointCounts.h>

#include <gtest/gtest.h>
#include <osg/Vec2i>
#include <osgDB/ReadFile>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <regex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace {

using Picture = osg::ref_ptr<osg::Image>;

constexpr int kWidth = 700;
constexpr int kHeight = 500;
const osg::Vec3ub kBackground(28, 31, 36);

/// 20 x 20 points a metre apart, of the classes 2 to 5 by column, seen from above.
class Viewer
{
public:
    explicit Viewer(const std::function<void(const std::string& store)>& prepare = nullptr)
    {
        survey.side = 20;
        survey.classes = 4;
        if (!survey.write(folder.file("grid.las"))) throw std::runtime_error("no survey");
        buildStoreOf(folder.file("grid.las"), store);
        if (prepare) prepare(store);
        window.emplace(std::vector<std::string>{BRXVIEW, "--no-panel", "--view", "top", "--window", "20",
                                                "20", std::to_string(kWidth), std::to_string(kHeight), store},
                       folder.path().string());
        EXPECT_TRUE(eventually([&] { return window->title() == "grid.brx - brxview"; })) << "opened";
    }

    /// The part of the window that no panel covers.
    Picture points() const { return crop(*window->stillPicture()); }

    static Picture crop(const osg::Image& whole)
    {
        constexpr int kX = 170, kY = 100, kCropWidth = 170, kCropHeight = 240;
        const Picture part = new osg::Image;
        part->allocateImage(kCropWidth, kCropHeight, 1, GL_RGB, GL_UNSIGNED_BYTE);
        for (int y = 0; whole.s() == kWidth && y < kCropHeight; ++y)
            std::copy_n(whole.data(kX, kY + y), 3 * kCropWidth, part->data(0, y));
        return part;
    }

    bool shows(const osg::Image& wanted) const
    {
        return eventually([&] { return samePixels(*crop(*window->picture()), wanted); });
    }

    /// Does something that changes the points, or the whole of the picture with its panels.
    void expectChange(const std::function<void()>& act)
    {
        const Picture before = points();
        act();
        EXPECT_TRUE(eventually([&] { return !samePixels(*crop(*window->picture()), *before); }));
    }
    void expectChangeAnywhere(const std::function<void()>& act)
    {
        const Picture before = window->stillPicture();
        act();
        EXPECT_TRUE(eventually([&] { return !samePixels(*window->picture(), *before); }));
    }

    void press(const std::string& key) { window->press(key); }
    void type(const std::string& text)
    {
        for (const char letter : text)
            press(std::string(1, letter));
        press("Return");
    }

    /// Presses a key until something holds: a key of an edit does nothing while another one runs.
    void pressUntil(const std::string& key, const std::function<bool()>& holds)
    {
        EXPECT_TRUE(eventually([&] {
            if (holds()) return true;
            press(key);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return holds();
        })) << key;
    }
    void pressUntilHidden(const std::string& key, uint64_t points)
    {
        pressUntil(key, [&] { return counts().hidden == points; });
    }
    void pressUntilChange(const std::string& key)
    {
        const Picture before = points();
        pressUntil(key, [&] { return !samePixels(*crop(*window->picture()), *before); });
    }

    VelBrx::PointCounts counts() const
    {
        VelBrx::PointCounts counts;
        EXPECT_TRUE(VelBrx::countPoints(store, counts));
        return counts;
    }
    /// Around the rows 0 to 9, not closed.
    void drawLowerHalf()
    {
        press("a");
        for (const auto& [x, y] : {std::pair(2, 2), {kWidth - 3, 2}, {kWidth - 3, 249}, {2, 249}})
            window->click(x, y);
    }
    void hideLowerHalf()
    {
        drawLowerHalf();
        pressUntilHidden("x", 200);
    }

    /// The program ends, and by itself.
    void expectEnd()
    {
        EXPECT_TRUE(eventually([&] { return !window->program().isRunning(); }));
        EXPECT_EQ(window->program().wait().exitStatus, 0);
    }

    /// Takes the picture of the start: on a busy machine points may come late, and pictures be still before.
    void begin()
    {
        start = points();
        EXPECT_TRUE(eventually([&] {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            const Picture before = std::exchange(start, points());
            return samePixels(*start, *before);
        }));
    }

    /// Nothing drawn, typed, selected or changed; as at the start.
    void restore()
    {
        press("Escape");
        press("Escape");
        pressUntil("Z", [&] { return counts().hidden == 0 && samePixels(*points(), *start); });
    }

    /// What a click on a point prints.
    std::string pick(int x, int y)
    {
        const size_t before = window->program().out().size();
        window->click(x, y);
        EXPECT_TRUE(eventually([&] { return window->program().out().size() > before; }));
        return window->program().out().substr(before);
    }

    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
    TestSurvey survey;
    std::optional<ProgramWindow> window;
    Picture start; ///< the points, when the first key is tried
};

using Check = std::function<void(Viewer&)>;

void changes(Viewer& viewer, const std::string& key)
{
    viewer.expectChange([&] { viewer.press(key); });
}

/// Moves the camera, and back.
Check moves(const std::function<void(Viewer&)>& move)
{
    return [move](Viewer& viewer) {
        viewer.expectChange([&] { move(viewer); });
        viewer.press("T");
        EXPECT_TRUE(viewer.shows(*viewer.start));
    };
}

Check drags(int button)
{
    return moves([button](Viewer& viewer) {
        const std::string before = viewer.window->program().out();
        viewer.window->drag(350, 250, 420, 300, button);
        EXPECT_EQ(viewer.window->program().out(), before) << "a drag is no click";
    });
}

/// Chooses a colour mode other than the one at the start, and that again.
Check colours(const std::string& key)
{
    return [key](Viewer& viewer) {
        viewer.expectChangeAnywhere([&] { viewer.press(key); });
        viewer.press("r");
        EXPECT_TRUE(viewer.shows(*viewer.start));
    };
}

/// Draws a polygon, gives it a class and saves that; `expected` points have it then.
void classifyAndSave(Viewer& viewer, const std::string& digits, uint64_t expected)
{
    viewer.drawLowerHalf();
    for (const char digit : digits)
        viewer.press(std::string(1, digit));
    const auto code = static_cast<size_t>(std::stoi(digits));
    const uint64_t before = viewer.counts().byClass[code];
    viewer.expectChangeAnywhere([&] { viewer.press("K"); });
    EXPECT_EQ(viewer.counts().byClass[code], before) << "not saved yet";
    const auto saveUntil = [&](uint64_t wanted) {
        viewer.pressUntil("W", [&] { return viewer.counts().byClass[code] == wanted; });
    };
    saveUntil(before + expected);
    viewer.window->stillPicture();
    viewer.press("z");
    saveUntil(before);
}

void closes(Viewer& viewer, const std::function<void()>& closePolygon)
{
    viewer.press("a");
    for (const auto& [x, y] : {std::pair(200, 100), {300, 100}, {300, 300}})
        viewer.window->click(x, y);
    viewer.window->moveTo(180, 200);
    viewer.expectChange(closePolygon);
    const Picture closed = viewer.points();
    const Picture window = viewer.window->picture();
    for (const auto& [x, y] : {std::pair(200, 100), {300, 100}, {300, 300}})
        EXPECT_EQ(pixel(*window, x, y), osg::Vec3ub(255, 221, 64)) << x << ", " << y;
    viewer.window->moveTo(190, 60); // which nothing follows any more
    viewer.press("h");
    viewer.press("h");
    EXPECT_TRUE(viewer.shows(*closed));
}

/// Takes a tool, which tells how to draw with it.
Check drawsWith(const std::string& key)
{
    return [key](Viewer& viewer) {
        viewer.expectChangeAnywhere([&] { viewer.press(key); });
        viewer.press("Escape");
    };
}

/// Draws a line across the middle of the points; what lies on its side of it is hidden.
Check hidesBesideLine(const std::string& key)
{
    return [key](Viewer& viewer) {
        viewer.press(key);
        viewer.window->click(2, 249);
        viewer.window->click(kWidth - 3, 249);
        viewer.press("Return");
        viewer.pressUntilHidden("x", 200);
    };
}

Check undoes(const std::string& key)
{
    return [key](Viewer& viewer) {
        viewer.hideLowerHalf();
        viewer.pressUntilHidden(key, 0);
    };
}

Check redoes(const std::string& key)
{
    return [key](Viewer& viewer) {
        undoes("z")(viewer);
        viewer.pressUntilHidden(key, 200);
    };
}

/// Selects the lower half of the points, which alone or all but which a key leaves in the picture.
Check segments(const std::string& key, bool selectedOnly)
{
    return [=](Viewer& viewer) {
        viewer.drawLowerHalf();
        viewer.pressUntilChange("q");
        viewer.pressUntilChange(key);
        const auto showsAny = [&](int firstRow, int rows) {
            const Picture seen = viewer.points();
            int points = 0;
            for (int y = firstRow; y < firstRow + rows; ++y)
                for (int x = 0; x < seen->s(); ++x)
                    points += pixel(*seen, x, y) != kBackground;
            return points > 0;
        };
        EXPECT_EQ(showsAny(0, 140), selectedOnly);
        EXPECT_EQ(showsAny(160, 80), !selectedOnly);
    };
}

void turnsToTheHorizon(Viewer& viewer)
{
    const auto turned = [&](const std::string& manipulator) {
        viewer.press("I");
        viewer.press(manipulator);
        viewer.window->drag(350, 250, 450, 350);
        return viewer.points();
    };
    const Picture freely = turned("1");
    const Picture level = turned("2");
    EXPECT_FALSE(samePixels(*freely, *level));
    EXPECT_TRUE(samePixels(*turned("1"), *freely));
    viewer.press("T");
}

/// A pixel that a point covers, at least its distance from the edges of the window.
osg::Vec2i findPoint(const osg::Image& picture)
{
    const osg::Vec3ub orange(255, 128, 0);
    for (int y = 200; y < 300; ++y)
        for (int x = 200; x < 300; ++x)
            if (pixel(picture, x, y) == orange) return osg::Vec2i(x, y);
    throw std::runtime_error("no point is seen");
}

void zoomsAtTheMouse(Viewer& viewer)
{
    const auto seen = [&] { return countOtherThan(*viewer.points(), kBackground); };
    const int before = seen();
    const osg::Vec2i mouse = findPoint(*viewer.window->stillPicture());
    const auto pick = [&] {
        const std::string told = viewer.pick(mouse.x(), mouse.y());
        viewer.window->click(3, 60); // beside all points: what is told of the one goes
        viewer.window->stillPicture();
        return told;
    };
    const std::string point = pick();
    viewer.expectChange([&] { viewer.window->turnWheel(mouse.x(), mouse.y(), 4); });
    EXPECT_LT(seen(), before / 2) << "away from the hand is nearer";
    EXPECT_EQ(pick(), point) << "what is under the mouse stays there";
    viewer.window->turnWheel(mouse.x(), mouse.y(), -6);
    viewer.window->stillPicture();
    EXPECT_GT(seen(), before);
    EXPECT_EQ(pick(), point);
    viewer.press("T");
    EXPECT_TRUE(viewer.shows(*viewer.start));
}

/// Every point has the class of its column.
void picks(Viewer& viewer)
{
    const osg::Vec2i place = findPoint(*viewer.window->stillPicture());
    const std::string printed = viewer.pick(place.x(), place.y());
    const std::regex line(
        R"((\d+)\.000  65432\d\d\.000  100\.000\tGPS time 0\.000000 s\tclass (\d) [a-z ]+, )"
        "intensity 0, return 1 of 1, source 0\t.*\tpoint of file \\d+ of grid\\.las, format \\d\tcloud 1, "
        ".*/grid\\.brx\n");
    std::smatch found;
    ASSERT_TRUE(std::regex_match(printed, found, line)) << printed;
    EXPECT_EQ(std::stoi(found[2]), 2 + (std::stoi(found[1]) - 1234500) % 4) << printed;
    viewer.expectChangeAnywhere([&] { viewer.window->click(3, 3); });
}

/// What is done next is told until the measuring ends.
Check measures(const std::string& key)
{
    return [key](Viewer& viewer) {
        viewer.expectChangeAnywhere([&] { viewer.press(key); });
        viewer.expectChangeAnywhere([&] { viewer.press("Escape"); });
    };
}

/// Clicks go on to pick until something is drawn.
void entersAndLeavesEditing(Viewer& viewer)
{
    for (int time = 0; time < 2; ++time) {
        viewer.expectChangeAnywhere([&] { viewer.press("E"); });
        const osg::Vec2i place = findPoint(*viewer.window->stillPicture());
        EXPECT_NE(viewer.pick(place.x(), place.y()), "");
        viewer.expectChangeAnywhere([&] { viewer.window->click(3, 3); });
    }
    const std::string before = viewer.window->program().out();
    viewer.press("a");
    viewer.expectChange([&] { viewer.window->click(250, 250); });
    EXPECT_EQ(viewer.window->program().out(), before);
}

/// Level ground is a line to who looks north from beside it.
void looksNorth(Viewer& viewer)
{
    viewer.expectChange([&] { viewer.press("N"); });
    const Picture seen = viewer.points();
    int rows = 0;
    for (int y = 0; y < seen->t(); ++y) {
        bool any = false;
        for (int x = 0; x < seen->s(); ++x)
            any = any || pixel(*seen, x, y) != kBackground;
        rows += any;
    }
    EXPECT_LT(rows, 10);
}

void drawsASection(Viewer& viewer)
{
    viewer.press("S");
    viewer.window->click(40, 238);
    viewer.window->stillPicture();
    viewer.expectChange([&] { viewer.window->click(kWidth - 40, 238); });
    for (const std::string key : {"period", "greater", "Alt+Up", "Alt+Down", "less", "comma"})
        viewer.expectChangeAnywhere([&] { viewer.press(key); });
    viewer.press("F10");
    EXPECT_TRUE(viewer.shows(*viewer.start));
}

void fillsTheScreen(Viewer& viewer)
{
    const auto hasSize = [&](int width, int height) {
        const ProgramWindow::Area area = viewer.window->area();
        return area.width == width && area.height == height;
    };
    viewer.press("f");
    EXPECT_TRUE(
        eventually([&] { return hasSize(ProgramWindow::kScreenWidth, ProgramWindow::kScreenHeight); }));
    EXPECT_EQ(viewer.window->area().x, 0);
    viewer.press("f");
    EXPECT_TRUE(eventually([&] { return hasSize(kWidth, kHeight); }));
    viewer.window->down("Shift_L"); // F is another key, also when Shift is let go first
    viewer.window->down("f");
    viewer.window->up("Shift_L");
    viewer.window->up("f");
    viewer.expectChangeAnywhere([&] { viewer.press("h"); });
    viewer.press("h");
    EXPECT_TRUE(hasSize(kWidth, kHeight));
}

void savesThePicture(Viewer& viewer)
{
    viewer.expectChangeAnywhere([&] { viewer.press("h"); });
    const Picture screen = viewer.window->stillPicture();
    for (const std::string name : {"brxview-1.png", "brxview-2.png"}) {
        viewer.press("F9");
        const auto isTold = [&] {
            return viewer.window->program().err().find("saved " + name) != std::string::npos;
        };
        EXPECT_TRUE(eventually(isTold));
        const Picture saved = osgDB::readRefImageFile(viewer.folder.file(name));
        ASSERT_TRUE(saved) << name;
        EXPECT_TRUE(samePixels(*saved, *screen)) << name << ": with what is drawn over the points";
    }
    viewer.press("h");
}

void cancelsOnly(Viewer& viewer)
{
    for (int i = 0; i < 3; ++i)
        viewer.press("Escape");
    const Picture before = viewer.window->stillPicture();
    viewer.expectChangeAnywhere([&] { viewer.press("h"); });
    viewer.press("Escape");
    EXPECT_TRUE(samePixels(*viewer.window->stillPicture(), *before)) << "hides the keys";
    EXPECT_TRUE(viewer.window->program().isRunning());
}

void asksBeforeItCloses(Viewer& viewer)
{
    viewer.press("E");
    viewer.drawLowerHalf();
    viewer.press("9");
    viewer.expectChangeAnywhere([&] { viewer.press("K"); });
    const Picture before = viewer.window->stillPicture();
    viewer.expectChangeAnywhere([&] { viewer.press("Ctrl+q"); });
    viewer.press("Escape");
    EXPECT_TRUE(samePixels(*viewer.window->stillPicture(), *before));
    viewer.press("Z");
    viewer.press("E");
}

/// What the key on a page does, in the window of a program.
const std::map<std::string, Check> kChecks = {
    {"Wheel", zoomsAtTheMouse},
    {"Left drag", drags(1)},
    {"Middle drag", drags(2)},
    {"Right drag", drags(3)},
    {"T", moves([](Viewer& viewer) { viewer.window->drag(350, 250, 420, 300); })},
    {"N", moves(looksNorth)},
    {"I", moves([](Viewer& viewer) { viewer.press("I"); })},
    {"O", moves([](Viewer& viewer) { viewer.press("O"); })},
    {"Space",
     [](Viewer& viewer) {
         viewer.expectChange([&] { viewer.window->drag(350, 250, 420, 300); });
         viewer.press("space");
         EXPECT_TRUE(viewer.shows(*viewer.start));
     }},
    {"Double click", moves([](Viewer& viewer) {
         viewer.window->click(250, 200);
         viewer.window->click(250, 200);
     })},
    {"Home",
     [](Viewer& viewer) {
         changes(viewer, "Prior");
         changes(viewer, "Home");
         viewer.press("T");
     }},
    {"Alt+Left",
     [](Viewer& viewer) {
         viewer.press("Prior");
         viewer.press("I");
         viewer.expectChange([&] { viewer.press("Alt+Left"); });
         viewer.expectChange([&] { viewer.press("Alt+Right"); });
         viewer.press("T");
     }},
    {"Alt+Right", [](Viewer&) {}}, // with Alt+Left
    {"Arrows",
     [](Viewer& viewer) {
         viewer.press("I"); // from above the points stand so that a step shows the same picture
         changes(viewer, "Left");
         viewer.press("T");
     }},
    {"PageUp", moves([](Viewer& viewer) { viewer.press("Prior"); })},
    {"PageDown", moves([](Viewer& viewer) { viewer.press("Next"); })},
    {"c",
     [](Viewer& viewer) {
         viewer.press("I");
         changes(viewer, "c");
         changes(viewer, "c");
         viewer.press("T");
     }},
    // The panel saves views.
    {"Ctrl+1 ... Ctrl+9", [](Viewer&) {}},
    {"S", drawsASection},
    {".", [](Viewer&) {}}, // with S, as the next ones
    {",", [](Viewer&) {}},
    {">", [](Viewer&) {}},
    {"<", [](Viewer&) {}},
    {"Alt+Up", [](Viewer&) {}},
    {"Alt+Down", [](Viewer&) {}},
    {"F10", [](Viewer&) {}},
    {"Drag in a section", [](Viewer&) {}}, // in SectionWindowTest.cpp
    {"Double click, section", [](Viewer&) {}},
    {"1", turnsToTheHorizon},
    {"2", turnsToTheHorizon},
    {"3",
     [](Viewer& viewer) {
         viewer.press("3");
         changes(viewer, "Up");
         viewer.press("2");
         viewer.press("T");
     }},
    {"r", colours("o")},
    {"o", colours("o")},
    {"e", colours("e")},
    {"i", colours("i")},
    {"k", colours("k")},
    {"n", colours("n")},
    {"u", colours("u")},
    {"p", colours("p")},
    {"l", colours("l")},
    {"g", colours("g")},
    {"m", colours("m")},
    {"s",
     [](Viewer& viewer) {
         changes(viewer, "s");
         changes(viewer, "s");
     }},
    {"+",
     [](Viewer& viewer) {
         changes(viewer, "plus");
         changes(viewer, "minus");
     }},
    {"-", [](Viewer&) {}}, // with +
    {"P",
     [](Viewer& viewer) {
         changes(viewer, "P");
         changes(viewer, "P");
     }},
    {"d",
     [](Viewer& viewer) {
         changes(viewer, "N"); // points one behind the other
         changes(viewer, "d");
         changes(viewer, "bracketright");
         changes(viewer, "bracketleft");
         changes(viewer, "d");
         viewer.press("T");
     }},
    {"[", [](Viewer&) {}}, // with d
    {"]", [](Viewer&) {}},
    {"B",
     [](Viewer& viewer) {
         viewer.press("I");
         for (int light = 0; light < 3; ++light)
             changes(viewer, "B");
         viewer.press("T");
     }},
    {"L",
     [](Viewer& viewer) {
         viewer.press("k");
         viewer.expectChangeAnywhere([&] { viewer.press("L"); });
         viewer.expectChangeAnywhere([&] { viewer.press("L"); });
         viewer.press("r");
     }},
    {"Left click", picks},
    {"Tab",
     [](Viewer& viewer) {
         viewer.expectChangeAnywhere([&] { viewer.press("Tab"); });
         viewer.expectChangeAnywhere([&] { viewer.press("Tab"); });
     }},
    {"F6", measures("F6")},
    {"F7", measures("F7")},
    {"F8", measures("F8")},
    {"h",
     [](Viewer& viewer) {
         viewer.expectChangeAnywhere([&] { viewer.press("h"); });
         viewer.expectChangeAnywhere([&] { viewer.press("h"); });
     }},
    {"F1",
     [](Viewer& viewer) {
         viewer.expectChangeAnywhere([&] { viewer.press("F1"); });
         viewer.expectChangeAnywhere([&] { viewer.press("k"); }); // searches
         viewer.press("F1");
     }},
    {"F9", savesThePicture},
    {"f", fillsTheScreen},
    {"Escape", cancelsOnly},
    {"Ctrl+Q", asksBeforeItCloses},

    // In edit mode.
    {"E", entersAndLeavesEditing},
    {"a", [](Viewer& viewer) { viewer.expectChange([&] { viewer.drawLowerHalf(); }); }},
    {"A",
     [](Viewer& viewer) {
         viewer.press("A");
         viewer.window->drag(2, 2, kWidth - 3, 249);
         viewer.pressUntilHidden("x", 200);
     }},
    {"Backspace",
     [](Viewer& viewer) {
         viewer.drawLowerHalf();
         viewer.window->click(300, 300);
         viewer.window->moveTo(180, 300);
         changes(viewer, "BackSpace");
     }},
    {"Enter, right click",
     [](Viewer& viewer) {
         closes(viewer, [&] { viewer.press("Return"); });
         closes(viewer, [&] { viewer.window->click(180, 200, 3); });
     }},
    {"x", [](Viewer& viewer) { viewer.hideLowerHalf(); }},
    {"X",
     [](Viewer& viewer) {
         viewer.drawLowerHalf();
         viewer.pressUntilHidden("X", 200);
         viewer.drawLowerHalf();
         viewer.pressUntilHidden("x", 400);
     }},
    {"v",
     [](Viewer& viewer) {
         viewer.hideLowerHalf();
         viewer.drawLowerHalf();
         viewer.pressUntilHidden("v", 0);
     }},
    {"q",
     [](Viewer& viewer) {
         viewer.drawLowerHalf();
         viewer.pressUntilChange("q");
     }},
    {"Q",
     [](Viewer& viewer) {
         viewer.drawLowerHalf();
         viewer.pressUntilChange("q");
         viewer.drawLowerHalf();
         viewer.pressUntil("Q", [&] { return samePixels(*viewer.points(), *viewer.start); });
     }},
    {"G", segments("G", true)},
    {"H", segments("H", false)},
    {"j",
     [](Viewer& viewer) {
         viewer.press("a");
         viewer.window->click(180, 150);
         viewer.window->click(330, 300);
         viewer.pressUntilChange("j");
     }},
    {"t", drawsWith("t")},
    {"C",
     [](Viewer& viewer) {
         viewer.press("C");
         viewer.window->drag(250, 200, 330, 200);
         viewer.pressUntilChange("x");
     }},
    {"b", drawsWith("b")},
    {"Insert",
     [](Viewer& viewer) {
         viewer.press("b");
         viewer.expectChangeAnywhere([&] { viewer.press("Insert"); });
         viewer.press("Insert");
         viewer.press("Escape");
     }},
    {";", hidesBesideLine("semicolon")},
    {"'", hidesBesideLine("apostrophe")},
    {"/", drawsWith("slash")},
    {"Y", drawsWith("Y")},
    {"J",
     [](Viewer& viewer) {
         viewer.expectChangeAnywhere([&] { viewer.press("J"); });
         viewer.press("J");
     }},
    {"z", undoes("z")},
    {"Z", undoes("Z")},
    {"Ctrl+Z", undoes("Ctrl+z")},
    {"y", redoes("y")},
    {"Ctrl+Y", redoes("Ctrl+y")},
    {"Ctrl+Shift+Z", redoes("Ctrl+Z")},
    {"U",
     [](Viewer& viewer) {
         viewer.expectChangeAnywhere([&] { viewer.press("U"); });
         viewer.press("Tab");
     }},
    {"M",
     [](Viewer& viewer) {
         viewer.press("V");
         viewer.type("2");
         viewer.drawLowerHalf();
         viewer.expectChangeAnywhere([&] { viewer.press("M"); });
         viewer.pressUntilHidden("x", 200);
         viewer.press("M");
         viewer.pressUntilHidden("Z", 0);
         viewer.drawLowerHalf();
         viewer.pressUntilHidden("x", 50);
         viewer.press("V");
         viewer.press("Return");
     }},
    {"R",
     [](Viewer& viewer) {
         viewer.hideLowerHalf();
         viewer.press("R"); // asks
         viewer.pressUntilHidden("R", 0);
     }},
    {"0 ... 255", [](Viewer& viewer) { classifyAndSave(viewer, "64", 200); }},
    {"F",
     [](Viewer& viewer) {
         viewer.press("F");
         viewer.type("3");
         classifyAndSave(viewer, "9", 50);
         viewer.press("F");
         viewer.press("Return");
     }},
    {"V",
     [](Viewer& viewer) {
         viewer.expectChange([&] {
             viewer.press("V");
             viewer.type("2");
         });
         viewer.press("V");
         viewer.press("Return");
     }},
    {"D",
     [](Viewer& viewer) {
         viewer.drawLowerHalf();
         viewer.expectChangeAnywhere([&] { viewer.press("D"); });
     }},
    {"K", [](Viewer& viewer) { classifyAndSave(viewer, "7", 200); }},
    {"W", [](Viewer& viewer) { classifyAndSave(viewer, "17", 200); }},
    {"w",
     [](Viewer& viewer) {
         const Picture before = viewer.window->stillPicture();
         viewer.drawLowerHalf();
         viewer.press("9");
         viewer.expectChangeAnywhere([&] { viewer.press("K"); });
         viewer.window->stillPicture();
         viewer.expectChangeAnywhere([&] { viewer.press("w"); });
     }},
};

std::string page(const std::string& name)
{
    return VELBRX_SOURCE_DIR "/docs/" + name + ".md";
}

void tryKeys(Viewer& viewer, const std::string& pageName)
{
    const std::vector<std::string> keys = keysInTables(page(pageName));
    EXPECT_GT(keys.size(), 7u);
    for (const std::string& key : keys) {
        SCOPED_TRACE(pageName + ": " + key);
        const auto check = kChecks.find(key);
        if (check == kChecks.end()) {
            ADD_FAILURE() << "nobody tries this key";
            continue;
        }
        check->second(viewer);
        viewer.restore();
        ASSERT_FALSE(testing::Test::HasFailure()) << "the next keys would fail for this one";
    }
}

} // namespace

TEST(ProgramWindow, KeysForLookingDoWhatTheirPageSays)
{
    Viewer viewer([](const std::string& store) {
        VelBrx::NormalsOptions options;
        options.store = store;
        ASSERT_TRUE(VelBrx::writeNormals(options));
    });
    viewer.begin();
    tryKeys(viewer, "viewing");
    viewer.press("E");
    viewer.drawLowerHalf();
    viewer.press("9");
    viewer.expectChangeAnywhere([&] { viewer.press("K"); });
    viewer.press("Ctrl+q");
    viewer.press("s");
    viewer.expectEnd();
    EXPECT_EQ(viewer.counts().byClass[9], 200u) << "saved by choice";
}

TEST(ProgramWindow, KeysForEditingDoWhatTheirPageSays)
{
    Viewer viewer;
    viewer.begin();
    viewer.press("E");
    tryKeys(viewer, "editing");
    viewer.drawLowerHalf();
    viewer.expectChangeAnywhere([&] { viewer.press("K"); });
    viewer.window->stillPicture();
    viewer.expectChangeAnywhere([&] { viewer.window->clickCloseButton(); });
    viewer.press("k");
    viewer.expectEnd();
    const ProgramResult next = runProgram({BRX, "history", viewer.store}, {"DISPLAY"});
    EXPECT_NE(next.out.find("(not saved)"), std::string::npos) << "kept by choice: " << next.out;
    EXPECT_EQ(viewer.counts().byClass[2], 100u);
}

TEST(ProgramWindow, TellsOfPointsThatAStoreHidesAndHowToBringThemBack)
{
    Viewer viewer([](const std::string& store) {
        const TempFolder folder;
        const std::string steps = R"([{"op": "window", "width": 200, "height": 200},
            {"op": "camera", "view": "top"},
            {"op": "cull", "polygon": [[-9, -9], [209, -9], [209, 100], [-9, 100]]}])";
        const std::string script =
            folder.write("hide.json", std::vector<uint8_t>(steps.begin(), steps.end()));
        EXPECT_EQ(runProgram({BRXVIEW, "--script", script, store}, {"DISPLAY"}).exitStatus, 0);
    });
    EXPECT_TRUE(eventually([&] {
        return viewer.window->program().err().find("brxview: 200 points of " + viewer.store +
                                                   " are hidden\n") != std::string::npos;
    })) << viewer.window->program().err();
    viewer.press("E");
    viewer.press("R");
    viewer.press("Escape");
    viewer.press("R");
    EXPECT_EQ(viewer.counts().hidden, 200u) << "asked anew";
    viewer.pressUntilHidden("R", 0);
    viewer.press("Ctrl+q");
    viewer.expectEnd();
}
