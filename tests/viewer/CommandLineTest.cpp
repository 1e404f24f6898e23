#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

/// Runs the viewer in an empty folder, whatever lies in the test's.
ProgramResult brxview(std::vector<std::string> arguments)
{
    const TempFolder empty;
    const fs::path before = fs::current_path();
    arguments.insert(arguments.begin(), BRXVIEW);
    fs::current_path(empty.path());
    const ProgramResult result = runProgram(arguments, {"DISPLAY"});
    EXPECT_TRUE(fs::is_empty(empty.path())) << "a wrong command line leaves no file behind";
    fs::current_path(before);
    return result;
}

long countLines(const std::string& text)
{
    return std::count(text.begin(), text.end(), '\n');
}

struct BadCommandLine
{
    std::vector<std::string> arguments;
    std::string said; ///< what the line on stderr must name
};

const BadCommandLine kBadCommandLines[] = {
    {{"--render", "a.png"}, "no file"},
    {{"--render", "a.png", "missing.brx"}, "missing.brx"},
    {{"--render", "a.png", "/dev/null"}, "/dev/null: is not a file"},
    {{"--render", "a.png", BRXVIEW}, "neither a store nor a LAS or LAZ file"},
    {{"--render", "a.xyz", "s.brx"}, "a.xyz"},
    {{"--render"}, "--render needs a value"},
    {{"--render", "a.png", "--size", "10", "s.brx"}, "--size 10"},
    {{"--render", "a.png", "--size", "0x10", "s.brx"}, "--size 0x10"},
    {{"--render", "a.png", "--size", "10x10x10", "s.brx"}, "--size 10x10x10"},
    {{"--render", "a.png", "--timeout", "-1", "s.brx"}, "--timeout -1"},
    {{"--size", "10x10", "s.brx"}, "--render"},
    {{"--script"}, "--script needs a value"},
    {{"--script", "/nowhere/edit.json", "s.brx"}, "/nowhere/edit.json: cannot be read"},
    {{"--script", "/", "s.brx"}, "/: cannot be read"},
    {{"--script", "e.json", "--render", "a.png", "s.brx"}, "exclude each other"},
    {{"--mode", "sepia", "s.brx"}, "--mode sepia"},
    {{"--color", "#12345", "s.brx"}, "--color #12345"},
    {{"--color", "1,2,300", "s.brx"}, "--color 1,2,300"},
    {{"--point-size", "0", "s.brx"}, "--point-size 0"},
    {{"--point-size", "2px", "s.brx"}, "--point-size 2px"},
    {{"--point-sizing", "spacing,0", "s.brx"}, "--point-sizing spacing,0"},
    {{"--point-sizing", "spacings", "s.brx"}, "--point-sizing spacings"},
    {{"--memory", "4", "s.brx"}, "--memory 4"},
    {{"--memory", "1K", "s.brx"}, "--memory 1K"},
    {{"--light", "315,0", "s.brx"}, "--light 315,0"},
    {{"--edl-strength", "-1", "s.brx"}, "--edl-strength -1"},
    {{"--budget", "many", "s.brx"}, "--budget many"},
    {{"--budget", "nan", "s.brx"}, "--budget nan"},
    {{"--view", "1,2,3", "s.brx"}, "--view 1,2,3"},
    {{"--view", "0,0,5,0,0,0,0,0,1", "s.brx"}, "--view 0,0,5"},
    {{"--render", "a.png", "--frobnicate", "s.brx"}, "--frobnicate"},
    {{"--render", "a.png", "--normals", "n", "s.brx", "t.brx"}, "--normals n"},
    {{"s.brx"}, "--render"}};

} // namespace

TEST(CommandLine, ThatIsWrongEndsWithOneLineThatNamesWhatIsWrong)
{
    for (const auto& [arguments, said] : kBadCommandLines) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const ProgramResult result = brxview(arguments);
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(countLines(result.err), 1) << result.err;
        EXPECT_EQ(result.err.rfind("brxview: ", 0), 0u) << result.err;
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
    }
}

TEST(CommandLine, APictureThatExistsIsNotReplacedWithoutForce)
{
    const TempFolder folder;
    const fs::path picture = folder.file("existing.png");
    std::ofstream(picture) << "mine";
    const ProgramResult result = brxview({"--render", picture.string(), "s.brx"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find(picture.string() + ": exists"), std::string::npos) << result.err;
    std::string text;
    std::ifstream(picture) >> text;
    EXPECT_EQ(text, "mine");
}

TEST(CommandLine, HelpAndVersionArePrintedOnStdout)
{
    const ProgramResult help = brxview({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.err, "");
    for (const char* option : {"--mode", "--window"}) // of its own, and of every viewer
        EXPECT_NE(help.out.find(option), std::string::npos) << option;
    const ProgramResult version = brxview({"--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(version.out.rfind("brxview ", 0), 0u);
    EXPECT_EQ(countLines(version.out), 1);
}
