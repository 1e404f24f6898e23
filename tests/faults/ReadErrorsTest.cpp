// Disks that fail and files that are cut while they are read, processes without descriptors and memory: one
// line each, and nothing half done.

#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/File.h>
#include <VelBrx/FileWriter.h>
#include <VelBrx/ReadErrors.h>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

namespace {

/// A command and what it would make or change.
struct Job
{
    Words words;
    std::string reads;
    std::string makes;
};

/// Whether a text is one line of a program about a file; warnings may come before it.
testing::AssertionResult isOneLineOf(const std::string& text, const std::string& file)
{
    std::istringstream lines(text);
    std::string last;
    for (std::string line; std::getline(lines, line);)
        last = line;
    if (last.rfind("brx", 0) == 0 && last.find(file) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << text;
}

class ReadErrors : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(runProgram({VELBRX_BRX, "sample", survey, "--points", "60000"}).exitStatus, 0);
        ASSERT_EQ(runProgram({VELBRX_BRX, "build", survey, "-o", store}).exitStatus, 0);
        const std::string steps = R"([{"op": "window", "width": 100, "height": 100},
            {"op": "cull", "points": {"everywhere": true}}, {"op": "save"}])";
        script = folder.write("hide.json", {steps.begin(), steps.end()});
        stored = readFile(store);
        jobs = {{{VELBRX_BRX, "build", survey, "-o", out}, survey, out},
                {{VELBRX_BRX, "info", survey}, survey, ""},
                {{VELBRX_BRX, "verify", store}, store, ""},
                {{VELBRX_BRX, "export", store, out}, store, out},
                {{VELBRX_BRX, "export", store, out + ".copc.laz"}, store, out + ".copc.laz"},
                {{VELBRX_BRX, "normals", store, "--k", "8"}, store, store + ".normals"},
                {{VELBRX_VIEWER, store, "--render", picture, "--size", "1000x800"}, store, picture},
                {{VELBRX_VIEWER, store, "--script", script}, store, ""}};
    }

    void expectNothingDone(const Job& job)
    {
        EXPECT_TRUE(job.makes.empty() || !fs::exists(job.makes)) << job.makes;
        EXPECT_TRUE(readFile(store) == stored) << "the store was changed";
        fs::remove(store + ".edits");
    }

    const TempFolder folder;
    const std::string survey = folder.file("survey.las"), store = folder.file("survey.brx");
    const std::string out = folder.file("out"), picture = folder.file("out.png");
    std::string script;
    std::vector<uint8_t> stored;
    std::vector<Job> jobs;
};

} // namespace

TEST_F(ReadErrors, APageThatCannotBeReadEndsEachCommandInOneLine)
{
    if (VELBRX_WITH_SANITIZER) GTEST_SKIP() << "its runtime must be the first library";
    for (const Job& job : jobs) {
        for (const int share : {2, 3}) { // of the file is before the page
            SCOPED_TRACE(testing::PrintToString(job.words) + ", page at 1/" + std::to_string(share));
            const auto at = fs::file_size(job.reads) / static_cast<uintmax_t>(share);
            const ProgramResult result = runProgram(job.words, {"DISPLAY", "LD_PRELOAD=" VELBRX_FAILING_DISK,
                                                                "VELBRX_FAILING_FILE=" + job.reads,
                                                                "VELBRX_FAILING_AT=" + std::to_string(at)});
            EXPECT_EQ(result.exitStatus, 1) << result.err;
            if (job.words[1] == "verify")
                EXPECT_NE(result.out.find(store + ": "), std::string::npos) << result.out;
            else
                EXPECT_TRUE(isOneLineOf(result.err, job.reads));
            expectNothingDone(job);
        }
    }
}

/// With each limit a command ends well or in one line, and however it ends nothing is half done.
TEST_F(ReadErrors, TooFewDescriptorsOrTooLittleMemoryEndEachCommandInOneLine)
{
    if (VELBRX_WITH_SANITIZER) GTEST_SKIP() << "a sanitizer needs terabytes of addresses";
    int failures = 0;
    for (const Job& job : jobs) {
        for (const char* limit : {"-n 4", "-n 5", "-n 7", "-v 40000", "-v 150000", "-v 400000"}) {
            SCOPED_TRACE(testing::PrintToString(job.words) + ", ulimit " + limit);
            if (job.words[0] == VELBRX_VIEWER && limit[1] == 'v') continue; // graphics drivers end themselves
            Words words = {"/bin/sh", "-c", "ulimit $0; exec \"$@\"", limit};
            words.insert(words.end(), job.words.begin(), job.words.end());
            const ProgramResult result = runProgram(words, {"DISPLAY"});
            if (result.exitStatus == 127) continue; // the program itself cannot be loaded
            if (result.exitStatus == 0) {
                fs::remove(job.makes);
                fs::remove(store + ".edits");
                folder.write("survey.brx", stored);
                continue;
            }
            ++failures;
            EXPECT_EQ(result.exitStatus, 1) << result.err;
            EXPECT_TRUE(isOneLineOf(result.err, "")) << result.err;
            expectNothingDone(job);
        }
    }
    EXPECT_GT(failures, 5) << "the limits are too wide";
}

/// What is mapped and cut becomes zeros that are known to be none of the file's, in this process.
TEST(CutWhileMapped, BytesAreKnownToBeLostAndTakeNoEdit)
{
    const TempFolder folder;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const std::string path = folder.write("cut.brx", std::vector<uint8_t>(8 * page, 7));
    VelBrx::surviveReadErrors();
    VelBrx::File file(path.c_str());
    auto* const bytes = static_cast<uint8_t*>(file.map(0, static_cast<int64_t>(8 * page)));
    ASSERT_NE(bytes, nullptr);
    VelBrx::FileWriter writer(file);
    EXPECT_TRUE(VelBrx::checkReads(file));
    fs::resize_file(path, 3 * page);
    EXPECT_EQ(bytes[2 * page], 7);
    EXPECT_EQ(bytes[5 * page + 100], 0);
    EXPECT_TRUE(VelBrx::wasRead(bytes, static_cast<int64_t>(5 * page)));
    EXPECT_FALSE(VelBrx::wasRead(bytes + 4 * page, static_cast<int64_t>(page + 1)));
    EXPECT_TRUE(VelBrx::wasRead(bytes + 6 * page, 1)) << "nobody has tried it";
    const size_t places[] = {1, 6 * page};
    EXPECT_EQ(writer.set(bytes, 1, 0, places, 2, [](size_t, uint8_t) { return uint8_t{9}; }), 0u);
    EXPECT_NE(writer.problem(), "");
    fs::resize_file(path, 8 * page); // what comes back is not what was there
    EXPECT_EQ(file.map(static_cast<int64_t>(5 * page), 200), nullptr);
    EXPECT_NE(file.map(0, 200), nullptr);
    EXPECT_NE(VelBrx::checkReads(file).message().find("cannot be read in places"), std::string::npos);
    EXPECT_TRUE(VelBrx::checkReads(VelBrx::File(path.c_str())));
}

TEST(CutWhileMappedDeathTest, AHostsOwnHandlerGetsWhatNoStoreCaused)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto useBus = [] {
        std::signal(SIGBUS, [](int) { _exit(7); });
        VelBrx::surviveReadErrors();
        raise(SIGBUS);
    };
    EXPECT_EXIT(useBus(), testing::ExitedWithCode(7), "");
}
