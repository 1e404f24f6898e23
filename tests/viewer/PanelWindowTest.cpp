// The panel, worked by mouse and keys as people do.

#include "tests/support/BuildStore.h"
#include "tests/support/Eventually.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "tests/support/ThreadSleeps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>

namespace {

using Picture = osg::ref_ptr<osg::Image>;

constexpr int kWidth = 780;
constexpr int kHeight = 560;

// From the histogram of the colours, pixels downwards, in a panel 290 wide.
constexpr int kMode = -38;
constexpr int kEntry = kMode + 45; ///< the second of the list of modes
constexpr int kLow = 70;
constexpr int kBackground = 199; ///< the buttons of the background

/// A window with the panel open, from above on 20 x 20 points that have a class each two columns.
struct PanelWindow
{
    PanelWindow()
    {
        TestSurvey survey;
        survey.side = 20;
        survey.classes = 4;
        survey.slope = 0.5;
        if (!survey.write(folder.file("grid.las"))) throw std::runtime_error("no survey");
        const auto config = folder.path() / "config" / "brxview";
        std::filesystem::create_directories(config);
        std::ofstream(config / "settings.json")
            << R"({"panel.sections": {"Clouds": false, "Classes": false, "History": false, "Tools": false,)"
            << R"("View": false, "Section": false, "Surface": false, "Measure": false}, "panel.width": 290})";
        buildStoreOf(folder.file("grid.las"), folder.file("grid.brx"));
        window = std::make_unique<ProgramWindow>(
            std::vector<std::string>{BRXVIEW, "--view", "top", "--mode", "elevation", "--no-legend",
                                     "--window", "10", "10", std::to_string(kWidth), std::to_string(kHeight),
                                     folder.file("grid.brx")},
            folder.path().string());
    }

    /// A square of the picture.
    static Picture crop(const osg::Image& whole, int x, int y)
    {
        constexpr int kSide = 150;
        const Picture part = new osg::Image;
        part->allocateImage(kSide, kSide, 1, GL_RGB, GL_UNSIGNED_BYTE);
        for (int row = 0; whole.s() == kWidth && row < kSide; ++row)
            std::copy_n(whole.data(x, y + row), 3 * kSide, part->data(0, row));
        return part;
    }

    /// Of the points, beside the panel and its tool tips, and above the status line.
    Picture points() const { return crop(*window->stillPicture(), 500, 200); }
    Picture panel() const { return crop(*window->stillPicture(), 40, 350); }

    /// Where the histogram is, from the window's top, once it is drawn: the first row with many blue pixels.
    int histogram() const
    {
        int row = 0;
        const auto isThere = [&] {
            const Picture picture = window->picture();
            for (row = 0; row < picture->t(); ++row) {
                int blue = 0;
                for (int x = 10; x < 200; ++x) {
                    const unsigned char* const rgb = picture->data(x, picture->t() - 1 - row);
                    blue += rgb[2] > rgb[0] + 60;
                }
                if (blue > 40) return true;
            }
            return false;
        };
        EXPECT_TRUE(eventually(isThere)) << "no histogram";
        return row;
    }

    bool changesPoints(const std::function<void()>& act) const
    {
        const Picture before = points();
        act();
        return !samePixels(*points(), *before);
    }

    /// Pixels from the window's top left.
    void click(int x, int y) const { window->click(x, kHeight - 1 - y); }

    void type(const std::string& text) const
    {
        for (const char letter : text)
            window->press(std::string(1, letter));
    }

    const TempFolder folder;
    std::unique_ptr<ProgramWindow> window;
};

} // namespace

TEST(PanelWindow, TakesMouseAndKeysThatAreMeantForItAndNoOthers)
{
    const PanelWindow shown;
    ProgramWindow& window = *shown.window;
    const int histogram = shown.histogram();
    const int besides = kHeight - 1 - histogram; // at the right of the histogram the panel is empty
    const pid_t program = window.program().process();
    const auto sleepsInASecond = [program] {
        const long before = sleepsOfThreads(program);
        std::this_thread::sleep_for(std::chrono::seconds(1));
        return sleepsOfThreads(program) - before;
    };
    EXPECT_TRUE(eventually([&] { return sleepsInASecond() < 60; })) << "a still window works all the time";
    EXPECT_FALSE(shown.changesPoints([&] {
        window.drag(230, besides - 10, 270, besides - 50);
        window.turnWheel(250, besides - 20, 5);
        window.click(250, besides - 30);
    })) << "the camera stands";
    const Picture elevation = shown.points();
    EXPECT_TRUE(shown.changesPoints([&] {
        shown.click(120, histogram + kMode);
        shown.click(60, histogram + kEntry);
    })) << "another mode, from the list";
    window.press("e");
    EXPECT_TRUE(eventually([&] { return samePixels(*shown.points(), *elevation); }));
    const auto hasBackground = [&](const osg::Vec3ub& color) {
        return eventually([&] { return pixel(*window.stillPicture(), kWidth - 3, kHeight / 2) == color; });
    };
    shown.click(101, histogram + kBackground);
    EXPECT_TRUE(hasBackground(osg::Vec3ub(244, 244, 241))) << "light";
    shown.click(54, histogram + kBackground);
    EXPECT_TRUE(hasBackground(osg::Vec3ub(28, 31, 36))) << "dark";
    EXPECT_FALSE(shown.changesPoints([&] {
        shown.click(60, histogram + kLow);
        shown.type("k");
    })) << "a letter in a field is no key";
    EXPECT_TRUE(shown.changesPoints([&] {
        window.press("Ctrl+a");
        shown.type("1");
        window.press("Return");
    })) << "another range";
    EXPECT_TRUE(shown.changesPoints([&] {
        window.click(700, 520);
        window.press("k");
    })) << "the keys are the scene's again";
    const Picture open = shown.panel();
    window.press("Tab");
    EXPECT_FALSE(samePixels(*shown.panel(), *open));
    window.press("Tab");
    EXPECT_TRUE(samePixels(*shown.panel(), *open));
    EXPECT_EQ(window.program().out(), "") << "nothing was picked";
}
