// The panel, worked by mouse and keys as people do.

#include "tests/support/BuildStore.h"
#include "tests/support/Eventually.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace {

using Picture = osg::ref_ptr<osg::Image>;

constexpr int kWidth = 780;
constexpr int kHeight = 560;

// Rows of the panel, pixels from the window's top.
constexpr int kMode = 43;
constexpr int kRow = 19; ///< of a list
constexpr int kLow = 155;

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
        buildStoreOf(folder.file("grid.las"), folder.file("grid.brx"));
        window = std::make_unique<ProgramWindow>(
            std::vector<std::string>{BRXVIEW, "--view", "top", "--mode", "elevation", "--no-legend",
                                     "--window", "10", "10", std::to_string(kWidth), std::to_string(kHeight),
                                     folder.file("grid.brx")},
            folder.path().string());
    }

    /// The middle of the points, beside the panel and above the status line.
    static Picture points(const osg::Image& whole)
    {
        constexpr int kX = 450, kY = 200, kSide = 150;
        const Picture part = new osg::Image;
        part->allocateImage(kSide, kSide, 1, GL_RGB, GL_UNSIGNED_BYTE);
        for (int y = 0; whole.s() == kWidth && y < kSide; ++y)
            std::copy_n(whole.data(kX, kY + y), 3 * kSide, part->data(0, y));
        return part;
    }
    Picture points() const { return points(*window->stillPicture()); }

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
    EXPECT_FALSE(shown.changesPoints([&] { // over the empty end of the panel
        window.drag(100, 60, 200, 160);
        window.turnWheel(100, 60, 5);
        window.click(120, 70);
    })) << "the camera stands";
    EXPECT_TRUE(shown.changesPoints([&] {
        shown.click(120, kMode);
        shown.click(60, kMode + 3 * kRow);
    })) << "another mode, from the list";
    window.press("e");
    EXPECT_FALSE(shown.changesPoints([&] {
        shown.click(60, kLow);
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
    const Picture open = window.stillPicture();
    window.press("Tab");
    EXPECT_TRUE(eventually([&] { return !samePixels(*window.picture(), *open); }));
    window.press("Tab");
    EXPECT_TRUE(eventually([&] { return samePixels(*window.picture(), *open); }));
    EXPECT_EQ(window.program().out(), "") << "nothing was picked";
}
