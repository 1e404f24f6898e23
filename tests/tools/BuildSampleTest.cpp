#include "tests/support/RestoreSources.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

ProgramResult brx(std::vector<std::string> words)
{
    words.insert(words.begin(), VELBRX_BRX);
    return runProgram(words);
}

class BuildSampleTest : public testing::Test
{
protected:
    TempFolder folder;
    const std::string las = folder.file("sample.las");
    const std::string store = folder.file("sample.brx");

    ProgramResult sample() const { return brx({"sample", las, "--points", "50000", "--seed", "3"}); }

    void expectOneLine(const ProgramResult& result, const std::string& file) const
    {
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("brx: " + file + ": ", 0), 0u) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
};

} // namespace

TEST_F(BuildSampleTest, MakesAStoreOfASampleThatIsSound)
{
    const ProgramResult sampled = sample();
    EXPECT_EQ(sampled.exitStatus, 0) << sampled.err;
    EXPECT_EQ(sampled.out, "");
    const ProgramResult built = brx({"build", las, "-o", store, "--threads", "2", "--json"});
    EXPECT_EQ(built.exitStatus, 0) << built.err;
    EXPECT_NE(built.err.find("100 %"), std::string::npos) << built.err;
    const auto report = nlohmann::json::parse(built.out);
    EXPECT_EQ(report["points"], 50000);
    EXPECT_GT(report["levels"], 1);
    EXPECT_EQ(brx({"verify", store}).exitStatus, 0);
}

TEST_F(BuildSampleTest, ReplacesFilesOnlyWhenForced)
{
    sample();
    ASSERT_EQ(brx({"build", las, "-o", store}).exitStatus, 0);
    const std::vector<uint8_t> there = readFile(store);
    expectOneLine(sample(), las);
    expectOneLine(brx({"build", las, "-o", store}), store);
    EXPECT_TRUE(readFile(store) == there);
    EXPECT_EQ(brx({"build", las, "-o", store, "--force"}).exitStatus, 0);
    EXPECT_EQ(brx({"sample", las, "--points", "10", "--force"}).exitStatus, 0);
}

TEST_F(BuildSampleTest, EndsInOneLineForInputThatCannotBeUsed)
{
    expectOneLine(brx({"build", las, "-o", store}), las);
    expectOneLine(brx({"build", folder.write("text.las", {'h', 'e', 'l', 'l', 'o'}), "-o", store}),
                  folder.file("text.las"));
    expectOneLine(brx({"sample", folder.file("none/sample.las"), "--points", "5"}),
                  folder.file("none/sample.las"));
    EXPECT_FALSE(std::filesystem::exists(store));
}

TEST_F(BuildSampleTest, BuildsFoldersOfTilesWithinAGivenMemory)
{
    std::filesystem::create_directory(folder.file("tiles"));
    for (const char* seed : {"1", "2"})
        ASSERT_EQ(brx({"sample", folder.file("tiles/") + seed + ".las", "--points", "20000", "--seed", seed})
                      .exitStatus,
                  0);
    const ProgramResult built =
        brx({"build", folder.file("tiles"), "-o", store, "--memory", "200M", "--json"});
    EXPECT_EQ(built.exitStatus, 0) << built.err;
    EXPECT_EQ(nlohmann::json::parse(built.out)["points"], 40000);
    expectOneLine(brx({"build", folder.file("tiles"), "-o", folder.file("b.brx"), "--memory", "64M"}),
                  folder.file("b.brx"));
    EXPECT_EQ(brx({"build", las, "-o", store, "--memory", "much"}).exitStatus, 2);
}

/// A store of their own for each of many tiles, by as many programs at once as the machine has room for.
TEST_F(BuildSampleTest, BuildsTilesSideBySide)
{
    std::filesystem::create_directories(folder.file("tiles"));
    std::filesystem::create_directories(folder.file("stores"));
    for (const char* seed : {"1", "2", "3", "4"})
        ASSERT_EQ(brx({"sample", folder.file("tiles/") + seed + ".las", "--points", "5000", "--seed", seed})
                      .exitStatus,
                  0);
    const std::string spread =
        runProgram({"/bin/sh", "-c", "parallel --version | grep -q GNU"}).exitStatus == 0
            ? "parallel --jobs 3 %s build {} -o stores/{/.}.brx"
            : "xargs -P 3 -I {} sh -c '%s build {} -o stores/$(basename {} .las).brx'";
    std::string command = spread;
    command.replace(command.find("%s"), 2, VELBRX_BRX);
    const ProgramResult result = runProgram(
        {"/bin/sh", "-c", "cd " + folder.path().string() + " && find tiles -name '*.las' | " + command});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    for (const char* seed : {"1", "2", "3", "4"})
        EXPECT_EQ(brx({"verify", folder.file("stores/") + seed + ".brx"}).exitStatus, 0);
}

TEST_F(BuildSampleTest, TakesItsTemporaryFilesAlongWhenKilled)
{
    ASSERT_EQ(brx({"sample", las, "--points", "400000"}).exitStatus, 0);
    for (int signal : {SIGINT, SIGKILL}) {
        const pid_t child = fork();
        if (child == 0) {
            execl(VELBRX_BRX, VELBRX_BRX, "build", las.c_str(), "-o", store.c_str(), nullptr);
            _exit(127);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        if (signal == SIGKILL) {
            EXPECT_EQ(brx({"build", las, "-o", store, "--force"}).exitStatus, 0);
        }
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            EXPECT_TRUE(entry.path() == las || entry.path() == store) << entry.path();
    }
}

TEST_F(BuildSampleTest, LeavesNothingBehindWhenInterrupted)
{
    for (int signal : {SIGINT, SIGTERM}) {
        const pid_t child = fork();
        if (child == 0) {
            execl(VELBRX_BRX, VELBRX_BRX, "sample", las.c_str(), "--points", "5000000", nullptr);
            _exit(127);
        }
        while (std::filesystem::is_empty(folder.path()))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 1);
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}
