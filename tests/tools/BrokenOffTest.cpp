// Programs that are ended from outside, and disks that are full: what they leave behind.

#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/RunBrx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include <signal.h>

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

/// Runs brx and sends it a signal after it has told of its progress `reports` times; not at all when it ends
/// before.
ProgramResult runAndSignal(Words words, int signal, int reports)
{
    words.insert(words.begin(), VELBRX_BRX);
    RunningProgram program(words);
    const auto told = [&] {
        const std::string err = program.err();
        return std::count(err.begin(), err.end(), '\n');
    };
    while (program.isRunning() && told() < reports)
        std::this_thread::yield();
    program.signal(signal);
    return program.wait();
}

/// `runAndSignal` until the signal comes before the command has made `result`.
ProgramResult interrupt(const Words& words, int signal, int reports, const std::string& result)
{
    constexpr int kAttempts = 20;
    ProgramResult ending = runAndSignal(words, signal, reports);
    for (int attempt = 1; fs::exists(result) && attempt < kAttempts; ++attempt) {
        fs::remove(result);
        ending = runAndSignal(words, signal, reports);
    }
    return ending;
}

std::string lastLine(const std::string& text)
{
    std::istringstream lines(text);
    std::string last;
    for (std::string line; std::getline(lines, line);)
        last = line;
    return last;
}

/// A command and the name of the file that it makes.
struct Job
{
    Words words;
    std::string result;
};

/// A survey and its store, made once; each test works in a folder beside them, with the store by a link.
class BrokenOff : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        shared = new TempFolder;
        ASSERT_EQ(brx({"sample", survey(), "--points", "300000"}).exitStatus, 0);
        ASSERT_EQ(brx({"build", survey(), "-o", shared->file("survey.brx")}).exitStatus, 0);
    }
    static void TearDownTestSuite()
    {
        delete shared;
        shared = nullptr;
    }

    void SetUp() override { fs::create_symlink(shared->file("survey.brx"), store); }
    void TearDown() override
    {
        EXPECT_TRUE(readFile(store) == stored) << "the store was only to be read";
        EXPECT_EQ(filesIn(*shared), (std::set<std::string>{"survey.brx", "survey.las"}));
    }

    static std::string survey() { return shared->file("survey.las"); }

    static std::set<std::string> filesIn(const TempFolder& at)
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(at.path()))
            if (!entry.is_symlink()) names.insert(entry.path().filename());
        return names;
    }

    const TempFolder folder;
    const std::string out = folder.file("out"), store = folder.file("link.brx"), normals = store + ".normals";
    const std::vector<uint8_t> stored = readFile(shared->file("survey.brx"));

    const std::vector<Job> jobs = {{{"build", survey(), "-o", out}, out},
                                   {{"export", store, out}, out},
                                   {{"export", store, out, "--memory", "24M", "--threads", "1"}, out},
                                   {{"sample", out, "--points", "300000"}, out},
                                   {{"normals", store, "--threads", "1", "--k", "8"}, normals}};

private:
    static inline TempFolder* shared = nullptr;
};

} // namespace

TEST_F(BrokenOff, AnInterruptedCommandSaysSoAndLeavesNothing)
{
    for (const Job& job : jobs) {
        for (const int signal : {SIGINT, SIGTERM}) {
            SCOPED_TRACE(job.words[0] + ", signal " + std::to_string(signal));
            const ProgramResult ending = interrupt(job.words, signal, 2, job.result);
            EXPECT_EQ(ending.exitStatus, 1);
            EXPECT_EQ(lastLine(ending.err), "brx: " + job.result + ": cancelled; nothing was written");
            EXPECT_EQ(filesIn(folder), std::set<std::string>());
        }
    }
}

/// Whenever it happens: the name stands for a whole file or for none, and the next run takes away what is
/// left.
TEST_F(BrokenOff, AKilledCommandLeavesNoHalfFileUnderItsName)
{
    for (const Job& job : jobs) {
        SCOPED_TRACE(job.words[0]);
        Words again = job.words;
        again.push_back("--force");
        ASSERT_EQ(brx(again).exitStatus, 0);
        const std::vector<uint8_t> whole = readFile(job.result);
        const auto isWhole = [&] { // every store has an identity of its own
            return job.words[0] == "build" ? brx({"verify", out}).exitStatus == 0
                                           : readFile(job.result) == whole;
        };
        for (const int reports : {1, 4}) {
            fs::remove(job.result);
            const ProgramResult ending = runAndSignal(job.words, SIGKILL, reports);
            EXPECT_LT(ending.exitStatus, 1) << ending.err; // -1: by the signal
            EXPECT_TRUE(!fs::exists(job.result) || isWhole()) << "killed after report " << reports;
            EXPECT_EQ(brx(again).exitStatus, 0);
            EXPECT_EQ(filesIn(folder), std::set<std::string>{fs::path(job.result).filename()});
            EXPECT_TRUE(isWhole()) << "made after one was killed";
        }
        fs::remove(job.result);
    }
}

/// The limit of a file's size stands for a disk that becomes full: where space can be reserved, before the
/// first byte, and in mid-write where it cannot.
TEST_F(BrokenOff, AFileThatCannotGrowEndsTheCommandInOneLine)
{
    std::vector<std::string> preloads = {""};
    if (!VELBRX_WITH_SANITIZER) preloads.push_back(VELBRX_NO_RESERVE); // which must be the first library
    std::vector<Job> all = jobs;
    all.push_back({{"build", survey(), "-o", out, "--normals"}, out});
    int failures = 0;
    for (const std::string& preload : preloads) {
        for (const Job& job : all) {
            for (const char* limit : {"8", "5000", "22000"}) { // half a kilobyte each, the survey 21000
                SCOPED_TRACE(job.words[0] + " within " + limit + " " + preload);
                Words words = {"/bin/sh",
                               "-c",
                               "ulimit -f $0; LD_PRELOAD=$1; export LD_PRELOAD; shift; "
                               "exec \"$@\"",
                               limit,
                               preload,
                               VELBRX_BRX};
                words.insert(words.end(), job.words.begin(), job.words.end());
                fs::remove(job.result);
                fs::remove(out + ".normals");
                const ProgramResult result = runProgram(words);
                if (result.exitStatus == 0) continue; // large enough
                ++failures;
                EXPECT_EQ(result.exitStatus, 1) << result.err;
                EXPECT_EQ(lastLine(result.err).rfind("brx: ", 0), 0u) << result.err;
                const auto left = filesIn(folder);
                EXPECT_TRUE(left.empty() || left == std::set<std::string>{"out"});
                if (!left.empty()) {
                    EXPECT_EQ(brx({"verify", out}).exitStatus, 0) << "a store without its normals";
                }
            }
            fs::remove(job.result);
        }
    }
    EXPECT_GT(failures, 12 * static_cast<int>(preloads.size()));
}

/// On a small disk of its own, which only processes that may make one can have.
TEST_F(BrokenOff, ADiskThatIsTooSmallIsNoticedBeforeTheFirstByte)
{
    const std::string disk = folder.file("disk");
    fs::create_directory(disk);
    const auto onDisk = [&](const std::string& command) {
        return runProgram({"unshare", "--map-root-user", "--mount", "/bin/sh", "-c",
                           "mount -t tmpfs -o size=2m tmpfs " + disk + " && { " + command +
                               "; status=$?; ls -A " + disk + "; exit $status; }"});
    };
    if (onDisk("true").exitStatus != 0) GTEST_SKIP() << "no disk can be mounted here";
    const std::string brxAt = std::string(VELBRX_BRX) + " ";
    for (const std::string& command : {brxAt + "build " + survey() + " -o " + disk + "/out",
                                       brxAt + "export " + store + " " + disk + "/out",
                                       brxAt + "sample " + disk + "/out --points 300000"}) {
        const ProgramResult result = onDisk(command);
        EXPECT_EQ(result.exitStatus, 1) << command;
        EXPECT_EQ(result.out, "") << "left on the disk by " << command;
        EXPECT_NE(lastLine(result.err).find(" MB of disk space"), std::string::npos) << result.err;
    }
}
