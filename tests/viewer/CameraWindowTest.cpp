// Views by name, flights and the clip box in the program's own window, with its panel.

#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/LasRecords.h"
#include "tests/support/PanelSettings.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/TestSurvey.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <osgDB/WriteFile>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <optional>
#include <thread>

namespace {

constexpr int kWidth = 900;
constexpr int kHeight = 700;

/// Of the panel with the section View alone unfolded, from its top left.
constexpr int kFirstView = 290;
constexpr int kRow = 19;
constexpr int kName = 293; ///< the field for a view's name, without views above it
constexpr int kRename = 178;
constexpr int kDelete = 241;
constexpr int kSave = 219;
constexpr int kClipBox = 323; ///< likewise

/// 20 x 20 points a metre apart.
class CameraWindow : public testing::Test
{
protected:
    CameraWindow()
    {
        TestSurvey survey;
        survey.side = 20;
        survey.slope = 0.1;
        EXPECT_TRUE(survey.write(folder.file("grid.las")));
        buildStoreOf(folder.file("grid.las"), store);
        unfoldAlone(folder, "View");
        open();
    }

    void TearDown() override
    {
        const char* const kept = std::getenv("VELBRX_KEPT_PICTURES");
        if (kept && window) osgDB::writeImageFile(*window->picture(), std::string(kept) + "/camera.png");
    }

    void open()
    {
        window.emplace(std::vector<std::string>{BRXVIEW, "--view", "top", "--no-legend", "--point-size", "4",
                                                "--window", "0", "0", std::to_string(kWidth),
                                                std::to_string(kHeight), store},
                       folder.path().string(), kWidth, kHeight);
        window->stillPicture();
    }

    void close()
    {
        window->press("Ctrl+q");
        EXPECT_TRUE(eventually([&] { return !window->program().isRunning(); }));
        EXPECT_EQ(window->program().wait().exitStatus, 0);
    }

    void clickPanel(int x, int y) { window->click(x, kHeight - 1 - y); }

    /// Types a name and Enter into the field that has the keyboard.
    void type(const std::string& name)
    {
        window->stillPicture();
        for (const char letter : name)
            window->press(std::string(1, letter));
        window->press("Return");
        window->stillPicture();
    }

    /// The middle of the picture, where no handle, panel or tool tip is; the mouse lies beside it.
    osg::ref_ptr<osg::Image> points()
    {
        window->moveTo(kWidth - 5, 100);
        const osg::ref_ptr<osg::Image> whole = window->stillPicture();
        const osg::ref_ptr<osg::Image> part = new osg::Image;
        constexpr int kSide = 360;
        part->allocateImage(kSide, kSide, 1, GL_RGB, GL_UNSIGNED_BYTE);
        for (int y = 0; y < kSide; ++y)
            std::copy_n(whole->data(420, 180 + y), 3 * kSide, part->data(0, y));
        return part;
    }

    bool shows(const osg::Image& wanted)
    {
        return eventually([&] { return samePixels(*points(), wanted); });
    }

    std::vector<std::string> keptViews() const
    {
        std::ifstream stream(folder.path() / "config" / "brxview" / "settings.json");
        std::vector<std::string> names;
        const auto settings = nlohmann::json::parse(stream);
        for (const auto& [name, view] : settings.at("views:" + store).items())
            names.push_back(name);
        return names;
    }

    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
    std::optional<ProgramWindow> window;
};

} // namespace

TEST_F(CameraWindow, KeepsViewsByNameAndGoesBackFromAFlight)
{
    const auto fromAbove = points();
    clickPanel(100, kName);
    type("roof");
    window->press("I");
    const auto aslant = points();
    EXPECT_FALSE(samePixels(*aslant, *fromAbove));
    clickPanel(100, kName + kRow);
    type("aside");
    window->press("N");
    points();
    clickPanel(100, kName + 2 * kRow);
    for (const char letter : std::string("gone"))
        window->press(std::string(1, letter));
    clickPanel(kSave, kName + 2 * kRow);
    window->press("Ctrl+1"); // by name: aside, gone, roof
    EXPECT_TRUE(shows(*aslant));

    clickPanel(kRename, kFirstView + kRow);
    type("z"); // instead of the old name
    clickPanel(kDelete, kFirstView);

    // A flight goes on while its key is held, and is one step back.
    window->press("3");
    const auto start = points();
    window->down("Up");
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    window->up("Up");
    const auto flown = points();
    EXPECT_FALSE(samePixels(*flown, *start));
    window->press("Alt+Left");
    EXPECT_TRUE(shows(*start));
    window->press("Alt+Right");
    EXPECT_TRUE(shows(*flown));
    close();
    EXPECT_EQ(keptViews(), (std::vector<std::string>{"roof", "z"}));
    open();
    window->press("I");
    window->press("Ctrl+1");
    EXPECT_TRUE(shows(*fromAbove));
}

TEST_F(CameraWindow, DragsAFaceOfTheClipBoxAndEditsWhatIsInside)
{
    clickPanel(18, kClipBox);
    window->moveTo(kWidth - 5, 100);
    const osg::ref_ptr<osg::Image> picture = window->stillPicture();
    // The handle of the eastern face is the rightmost red.
    const osg::Vec3ub red(224, 92, 82);
    osg::Vec2i handle(0, 0);
    for (int x = kWidth - 1; x > 300 && handle.x() == 0; --x)
        for (int y = 0; y < kHeight; ++y)
            if (pixel(*picture, x, y) == red) handle.set(x - 4, y);
    ASSERT_GT(handle.x(), 0);
    window->drag(handle.x(), handle.y(), handle.x() - 150, handle.y());
    window->press("E");
    window->press("A");
    window->drag(310, 40, kWidth - 3, kHeight - 3);
    window->press("9");
    window->press("K");
    EXPECT_TRUE(eventually([&] { return window->title().rfind("* ", 0) == 0; }));
    EXPECT_TRUE(eventually([&] {
        window->press("W");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return window->title().rfind("* ", 0) != 0;
    }));
    const LasRecords records(store);
    double inside = -std::numeric_limits<double>::max();
    double outside = std::numeric_limits<double>::max();
    for (size_t i = 0; i < records.size(); ++i) {
        const double x = records.position(i).x();
        if (records.classOf(i) == 9)
            inside = std::max(inside, x);
        else
            outside = std::min(outside, x);
    }
    EXPECT_LT(inside, outside) << "one face was moved, and along its axis";
    EXPECT_GT(outside, 1234500 + 5);
    EXPECT_LT(outside, 1234500 + 19);
}
