#include "tests/tools/RunBrx.h"

#include <VelBrx/Version.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace {

/// Checks for one line that starts as every message of brx does.
void expectOneLine(const std::string& text)
{
    EXPECT_EQ(text.rfind("brx: ", 0), 0u) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

} // namespace

TEST(Brx, TellsItsVersionAndItsCommandsOnStandardOutput)
{
    const ProgramResult version = brx({"--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(version.out.rfind("brx " VEL_BRX_VERSION, 0), 0u) << version.out;
    EXPECT_EQ(version.err, "");

    const ProgramResult help = brx({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.err, "");
    for (const std::string command : {"build", "export", "history", "info", "verify"}) {
        EXPECT_NE(help.out.find("\n  " + command + " "), std::string::npos) << command;
        const ProgramResult own = brx({command, "--help"});
        EXPECT_EQ(own.exitStatus, 0);
        EXPECT_NE(own.out.find("--json"), std::string::npos) << command;
        EXPECT_EQ(own.err, "");
    }
}

TEST(Brx, EndsInOneLineWhenItIsCalledWrongly)
{
    const std::pair<std::vector<std::string>, std::string> calls[] = {
        {{}, "a command is missing; see 'brx --help'"},
        {{"frobnicate"}, "frobnicate: unknown command; see 'brx --help'"},
        {{"--frobnicate"}, "--frobnicate: unknown option; see 'brx --help'"},
        {{"info"}, "see 'brx info --help'"},
        {{"verify"}, "see 'brx verify --help'"},
        {{"info", "a.brx", "b.brx"}, "b.brx; see 'brx info --help'"},
        {{"build"}, "see 'brx build --help'"},
        {{"normals", "a.brx", "--k", "2"}, "see 'brx normals --help'"},
        {{"revert", "a.brx"}, "see 'brx revert --help'"},
        {{"export", "a.brx", "--frobnicate"}, "see 'brx export --help'"}};
    for (const auto& [call, said] : calls) {
        const ProgramResult result = brx(call);
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(result.out, "");
        expectOneLine(result.err);
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
    }
}

TEST(Brx, FailsWhenItsOutputCannotBeWritten)
{
    const ProgramResult result =
        runProgram({"/bin/sh", "-c", VELBRX_BRX " --help > /dev/full; echo status $?"});
    EXPECT_EQ(result.out, "status 1\n");
    expectOneLine(result.err);
}
