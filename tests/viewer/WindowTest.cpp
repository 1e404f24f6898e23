#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

TEST(Window, OpensOnADisplayAndEndsCleanly)
{
    const TempFolder folder;
    ASSERT_TRUE(TestSurvey().write(folder.file("grid.las")));
    for (const std::string threading : {"--SingleThreaded", "--DrawThreadPerContext"}) {
        const ProgramResult result =
            runProgram({"xvfb-run", "-a", BRXVIEW, "--edl", "--mode", "class", threading, "--window", "10",
                        "10", "320", "240", folder.file("grid.las")},
                       // The driver behind GLX keeps 240 bytes when it is unloaded.
                       {"OSG_RUN_FRAME_COUNT=10", "ASAN_OPTIONS=detect_leaks=0"});
        EXPECT_EQ(result.exitStatus, 0) << threading << ": " << result.err;
    }
}

TEST(Window, ADisplayThatIsNotThereIsToldInOneLine)
{
    const TempFolder folder;
    ASSERT_TRUE(TestSurvey().write(folder.file("grid.las")));
    const std::string path = folder.file("grid.las");
    ASSERT_EQ(runProgram({BRXVIEW, "--render", folder.file("a.png"), path}).exitStatus, 0)
        << "builds the store";
    const ProgramResult result = runProgram({BRXVIEW, path}, {"DISPLAY=:4711"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find("brxview: no window can be opened on display :4711"), std::string::npos)
        << result.err;
}

TEST(Window, TooLittleOpenGLIsToldInOneLineWithAndWithoutADisplay)
{
    const TempFolder folder;
    ASSERT_TRUE(TestSurvey().write(folder.file("grid.las")));
    const std::string path = folder.file("grid.las");
    const std::vector<std::string> lowered = {"MESA_GL_VERSION_OVERRIDE=3.3COMPAT", "OSG_RUN_FRAME_COUNT=3",
                                              "ASAN_OPTIONS=detect_leaks=0"};
    const std::vector<std::string> render = {BRXVIEW, "--render", folder.file("a.png"), path};
    ASSERT_EQ(runProgram(render).exitStatus, 0) << "builds the store";
    std::filesystem::remove(folder.file("a.png"));
    for (const std::vector<std::string>& command :
         {render, {"xvfb-run", "-a", BRXVIEW, "--edl", "--window", "10", "10", "320", "240", path}}) {
        const ProgramResult result = runProgram(command, lowered);
        if (result.exitStatus == 0) GTEST_SKIP() << "this driver's version cannot be lowered";
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find("OpenGL 4.3"), std::string::npos) << result.err;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.file("a.png")));
}
