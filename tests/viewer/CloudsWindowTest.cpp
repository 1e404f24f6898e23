// Files in the window: opened, built, saved, exported and closed by keys.

#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/PointCounts.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

/// Pixels of points, right of the panel.
int pointsIn(const osg::Image& picture)
{
    int points = 0;
    for (int y = 100; y < picture.t() - 100; ++y)
        for (int x = 400; x < picture.s(); ++x) {
            const osg::Vec3ub color = pixel(picture, x, y);
            points += color.x() > 150 && color.z() < 60; // the survey's are orange
        }
    return points;
}

class CloudsWindow : public testing::Test
{
protected:
    CloudsWindow()
    {
        TestSurvey survey;
        survey.side = 40;
        survey.classes = 4;
        EXPECT_TRUE(survey.write(folder.file("tile.las")));
    }

    void open(const std::vector<std::string>& words = {}, const std::string& view = "top")
    {
        std::vector<std::string> all = {BRXVIEW, "--view", view, "--window", "0", "0", "800", "600"};
        all.insert(all.end(), words.begin(), words.end());
        window.emplace(all, folder.path().string());
    }

    void type(const std::string& text)
    {
        for (const char letter : text)
            window->press(std::string(1, letter));
        window->press("Return");
    }

    bool becomesTitle(const std::string& title)
    {
        return eventually([&] { return window->title() == title; });
    }

    bool tells(const std::string& text)
    {
        return eventually([&] { return window->program().err().find(text) != std::string::npos; });
    }

    uint64_t savedAs(uint8_t code) const
    {
        VelBrx::PointCounts counts;
        EXPECT_TRUE(VelBrx::countPoints(store, counts));
        return counts.byClass[code];
    }

    const TempFolder folder;
    const std::string store = folder.file("tile.las.brx");
    const std::string exported = folder.file("tile-edited.laz");
    std::optional<ProgramWindow> window;
};

} // namespace

TEST_F(CloudsWindow, FromAnEmptyWindowToADeliveredFile)
{
    open();
    EXPECT_TRUE(becomesTitle("brxview"));
    EXPECT_EQ(pointsIn(*window->stillPicture()), 0);
    window->press("Ctrl+o");
    window->stillPicture();
    type("til");
    EXPECT_TRUE(becomesTitle("tile.las.brx - brxview")) << window->program().err();
    EXPECT_TRUE(eventually([&] { return pointsIn(*window->picture()) > 1000; }));
    window->stillPicture();

    window->press("Tab"); // points under the panel are out of reach
    window->press("E");
    window->press("A");
    window->drag(10, 10, 790, 590);
    window->stillPicture();
    window->press("9");
    window->press("K");
    EXPECT_TRUE(becomesTitle("* tile.las.brx - brxview")) << "not saved";
    EXPECT_EQ(savedAs(9), 0u);
    window->press("Ctrl+S");
    window->stillPicture();
    window->press("Return"); // save, then export
    EXPECT_TRUE(becomesTitle("tile.las.brx - brxview"));
    EXPECT_EQ(savedAs(9), 1600u);
    window->stillPicture();
    window->press("Return"); // the name that is offered
    EXPECT_TRUE(tells("wrote " + exported + ": 1 600 points, 1 600 of them edited"))
        << window->program().err();
    const std::string other = folder.file("other.laz");
    EXPECT_EQ(runProgram({BRX, "export", store, other}).exitStatus, 0);
    EXPECT_EQ(readFile(exported), readFile(other));

    const auto written = fs::last_write_time(exported);
    window->press("Ctrl+S");
    window->stillPicture();
    window->press("Return");
    window->stillPicture();
    window->press("Escape"); // do not replace it
    window->stillPicture();
    EXPECT_EQ(fs::last_write_time(exported), written);
    window->press("Ctrl+w");
    EXPECT_TRUE(becomesTitle("brxview"));
    EXPECT_EQ(pointsIn(*window->stillPicture()), 0);
    window->press("Ctrl+q");
    EXPECT_EQ(window->program().wait().exitStatus, 0);
    const std::vector<uint8_t> settings = readFile(folder.file("config/brxview/settings.json"));
    EXPECT_NE(std::string(settings.begin(), settings.end()).find(folder.file("tile.las") + "\""),
              std::string::npos);
}

TEST_F(CloudsWindow, ALargeFileIsLookedAtWhileItsStoreIsBuiltAndEditedAfterwards)
{
    TestSurvey large;
    large.side = 1800; // points; from a million on there is a preview
    ASSERT_TRUE(large.write(folder.file("large.las")));
    const std::string built = folder.file("large.las.brx");
    open();
    EXPECT_TRUE(becomesTitle("brxview"));
    const auto dropAndSee = [&] {
        EXPECT_TRUE(window->drop({folder.file("large.las")}));
        EXPECT_TRUE(becomesTitle("large.las (preview) - brxview"));
        EXPECT_TRUE(eventually([&] { return pointsIn(*window->picture()) > 1000; }));
        EXPECT_FALSE(fs::exists(built)) << "seen while it is built";
    };
    dropAndSee();
    window->click(742, 62); // Cancel, beside the bar
    EXPECT_TRUE(becomesTitle("brxview"));
    EXPECT_TRUE(tells("large.las: cancelled"));
    EXPECT_EQ(pointsIn(*window->stillPicture()), 0);
    EXPECT_FALSE(fs::exists(built));

    dropAndSee();
    const auto classifyAll = [&] {
        window->press("A");
        window->drag(360, 60, 790, 590);
        window->press("K");
    };
    window->press("E");
    window->press("9");
    classifyAll(); // an edit that reached the store would not be saved
    EXPECT_TRUE(becomesTitle("large.las.brx - brxview"));
    EXPECT_GT(pointsIn(*window->stillPicture()), 1000);
    window->press("Escape");
    classifyAll();
    EXPECT_TRUE(becomesTitle("* large.las.brx - brxview"));
    window->press("z");
    EXPECT_TRUE(becomesTitle("large.las.brx - brxview"));
    window->press("Ctrl+q");
    EXPECT_EQ(window->program().wait().exitStatus, 0);
}

TEST_F(CloudsWindow, WhatCannotBeOpenedIsToldInALineAndTheOthersAreShown)
{
    folder.write("note.las", {'t', 'e', 'x', 't'});
    folder.write("empty.las", {});
    folder.write("cut.brx", readFile(folder.file("tile.las")));
    fs::resize_file(folder.file("cut.brx"), 600);
    open({folder.file("cut.brx"), folder.file("tile.las")});
    EXPECT_TRUE(becomesTitle("tile.las.brx - brxview"));
    EXPECT_TRUE(tells(folder.file("cut.brx") + ": ")) << window->program().err();
    for (const std::string name : {"note.las", "empty.las", "gone.las"}) {
        window->press("Ctrl+o");
        window->stillPicture();
        type(folder.file(name));
        const bool isThere = name != "gone.las"; // the dialog itself says that
        if (isThere) {
            EXPECT_TRUE(tells(folder.file(name) + ": is neither a store nor a LAS or LAZ file"));
            continue;
        }
        window->stillPicture();
        window->press("Escape");
    }
    fs::create_directory(folder.file("drag me"));
    fs::copy(store, folder.file("drag me/again.brx"));
    fs::copy(store, folder.file("second.brx"));
    EXPECT_TRUE(window->drop({folder.file("drag me/again.brx"), folder.file("second.brx")}));
    EXPECT_TRUE(becomesTitle("tile.las.brx and 2 more - brxview"));
    window->press("Ctrl+o");
    window->stillPicture();
    type(store);
    EXPECT_TRUE(tells(store + ": is the same file as " + store + ", which is shown"));
    EXPECT_GT(pointsIn(*window->stillPicture()), 1000);
    window->press("Ctrl+q");
    EXPECT_EQ(window->program().wait().exitStatus, 0);
    EXPECT_FALSE(fs::exists(folder.file("note.las.brx")));
}

TEST_F(CloudsWindow, StoresThatComeIntoAFolderAreShownAndOnesBuiltAnewTakeTheirPlace)
{
    const auto put = [this](const std::string& name, int side, double east = 0) {
        TestSurvey survey;
        survey.side = side;
        survey.x += east;
        ASSERT_TRUE(survey.write(folder.file("next.las")));
        buildStoreOf(folder.file("next.las"), folder.file("next"));
        fs::rename(folder.file("next"), folder.file("stores/" + name));
    };
    fs::create_directories(folder.file("stores/west"));
    put("west/a.brx", 40);
    open({folder.file("stores") + "/"});
    EXPECT_TRUE(becomesTitle("a.brx - brxview"));
    EXPECT_TRUE(eventually([&] { return pointsIn(*window->picture()) > 1000; }));

    put("west/b.brx", 41);
    EXPECT_TRUE(becomesTitle("a.brx and 1 more - brxview")) << "in a folder of the folder";
    put("c.brx", 42);
    EXPECT_TRUE(becomesTitle("a.brx and 2 more - brxview"));
    put("west/a.brx", 4);
    EXPECT_TRUE(tells("west/a.brx: was built anew, and is shown so"));
    EXPECT_TRUE(becomesTitle("b.brx and 2 more - brxview"));

    const std::vector<uint8_t> whole = readFile(folder.file("stores/c.brx"));
    const auto middle = whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2);
    const auto append = [&](auto from, auto to) {
        std::ofstream(folder.file("stores/slow.brx"), std::ios::app | std::ios::binary)
            .write(reinterpret_cast<const char*>(&*from), to - from);
    };
    append(whole.begin(), middle);
    EXPECT_TRUE(tells("slow.brx: is tried again when it is written to"));
    append(middle, whole.end());
    EXPECT_TRUE(becomesTitle("b.brx and 3 more - brxview")) << "a copy that takes its time";
    fs::remove(folder.file("stores/slow.brx"));
    fs::remove(folder.file("stores/c.brx"));
    window->press("Ctrl+q");
    EXPECT_EQ(window->program().wait().exitStatus, 0);
    EXPECT_EQ(window->program().err().find("cannot"), std::string::npos) << window->program().err();

    // With an index file a store waits until it is seen: nobody misses its file before.
    put("far.brx", 43, 300);
    EXPECT_EQ(runProgram({BRX, "index", folder.file("stores")}).exitStatus, 0);
    const TestSurvey first;
    const auto place = [&](double up) {
        return std::to_string(first.x + 20) + "," + std::to_string(first.y + 20) + "," +
               std::to_string(first.z + up);
    };
    open({folder.file("stores")}, place(80) + "," + place(0) + ",0,1,0");
    EXPECT_TRUE(becomesTitle("far.brx and 2 more - brxview"));
    EXPECT_TRUE(eventually([&] { return pointsIn(*window->picture()) > 1000; }));
    fs::rename(folder.file("stores/far.brx"), folder.file("far"));
    window->stillPicture();
    EXPECT_EQ(window->program().err().find("far.brx"), std::string::npos) << window->program().err();
    window->press("T");
    EXPECT_TRUE(tells("far.brx: cannot be opened"));
    EXPECT_TRUE(becomesTitle("a.brx and 1 more - brxview"));
    window->press("Ctrl+q");
    EXPECT_EQ(window->program().wait().exitStatus, 0);
}
