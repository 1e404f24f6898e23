#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "viewer/settings/Settings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

/// The program on a store that is built already.
class Window : public testing::Test
{
protected:
    Window()
    {
        EXPECT_TRUE(TestSurvey().write(survey));
        EXPECT_EQ(runProgram(render).exitStatus, 0) << "builds the store";
        std::filesystem::remove(picture);
    }

    const TempFolder folder;
    const std::string survey = folder.file("grid.las");
    const std::string picture = folder.file("a.png");
    const std::vector<std::string> render = {BRXVIEW, "--render", picture, survey};
    const std::vector<std::string> show =
        onDisplay({BRXVIEW, "--edl", "--window", "10", "10", "320", "240", survey});
    // The driver behind GLX keeps 240 bytes when it is unloaded.
    const std::vector<std::string> environment = {"OSG_RUN_FRAME_COUNT=10", "ASAN_OPTIONS=detect_leaks=0"};
};

} // namespace

TEST_F(Window, OpensOnADisplayAndEndsCleanly)
{
    for (const std::string threading : {"--SingleThreaded", "--DrawThreadPerContext"}) {
        std::vector<std::string> command = show;
        command.push_back(threading);
        const ProgramResult result = runProgram(command, environment);
        EXPECT_EQ(result.exitStatus, 0) << threading << ": " << result.err;
    }
}

/// Of a screen of 2400 x 1600, and at most all of it.
TEST_F(Window, TheFirstOneTakesThreeQuartersOfTheScreenAndLaterOnesTheSizeOfTheLast)
{
    const std::string file = folder.file("brxview/settings.json");
    const auto sizeOfNext = [&] {
        std::vector<std::string> ownSize = environment;
        ownSize.insert(ownSize.end(), {"OSG_WINDOW", "XDG_CONFIG_HOME=" + folder.path().string()});
        const ProgramResult result = runProgram(onDisplay({BRXVIEW, survey}, "2400x1600x24"), ownSize);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        const Settings kept(file);
        return std::pair(kept.get<int>("window.width").value_or(0),
                         kept.get<int>("window.height").value_or(0));
    };
    EXPECT_EQ(sizeOfNext(), std::pair(1800, 1200));
    const auto leave = [&](int width, int height) {
        Settings last(file);
        last.set("window.width", width);
        last.set("window.height", height);
        EXPECT_TRUE(last.save());
    };
    leave(700, 9000);
    EXPECT_EQ(sizeOfNext(), std::pair(700, 1600));
}

TEST_F(Window, ADisplayThatIsNotThereIsToldInOneLine)
{
    const ProgramResult result = runProgram({BRXVIEW, survey}, {"DISPLAY=:4711"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find("brxview: no window can be opened on display :4711"), std::string::npos)
        << result.err;
}

TEST_F(Window, TooLittleOpenGLIsToldInOneLineWithAndWithoutADisplay)
{
    std::vector<std::string> lowered = environment;
    lowered.push_back("MESA_GL_VERSION_OVERRIDE=3.3COMPAT");
    for (const std::vector<std::string>& command : {render, show}) {
        const ProgramResult result = runProgram(command, lowered);
        if (result.exitStatus == 0) GTEST_SKIP() << "this driver's version cannot be lowered";
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find("OpenGL 4.3"), std::string::npos) << result.err;
    }
    EXPECT_FALSE(std::filesystem::exists(picture));
}
