// Programs that are ended from outside, and disks that are full: what they leave behind.

#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

ProgramResult brx(Words words)
{
    words.insert(words.begin(), VELBRX_BRX);
    return runProgram(words);
}

/// What a program wrote to stderr, and how it ended.
struct Ending
{
    int state = 0;
    std::string err;
};

/// Runs brx and sends it a signal after it has told of its progress `reports` times; not at all when it ends
/// before.
Ending runAndSignal(Words words, int signal, int reports)
{
    words.insert(words.begin(), VELBRX_BRX);
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe can be made");
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        execv(VELBRX_BRX, arguments.data());
        _exit(127);
    }
    close(ends[1]);
    Ending ending;
    for (char letter = 0; read(ends[0], &letter, 1) == 1;) {
        ending.err += letter;
        if (letter == '\n' && --reports == 0) kill(child, signal);
    }
    close(ends[0]);
    waitpid(child, &ending.state, 0);
    return ending;
}

/// `runAndSignal` until the signal comes before the command has made `result`.
Ending interrupt(const Words& words, int signal, int reports, const std::string& result)
{
    constexpr int kAttempts = 20;
    Ending ending = runAndSignal(words, signal, reports);
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

/// A folder with a survey and its store, made once; each test works in a folder beside them.
class BrokenOff : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        shared = new TempFolder;
        ASSERT_EQ(brx({"sample", survey(), "--points", "300000"}).exitStatus, 0);
        ASSERT_EQ(brx({"build", survey(), "-o", store()}).exitStatus, 0);
    }
    static void TearDownTestSuite()
    {
        delete shared;
        shared = nullptr;
    }

    static std::string survey() { return shared->file("survey.las"); }
    static std::string store() { return shared->file("survey.brx"); }

    std::set<std::string> filesIn(const fs::path& path) const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(path))
            names.insert(entry.path().filename());
        return names;
    }

    const TempFolder folder;
    const std::string out = folder.file("out");

    /// Commands that write `out`.
    const std::vector<Words> commands = {{"build", survey(), "-o", out},
                                         {"export", store(), out},
                                         {"export", store(), out, "--memory", "24M", "--threads", "1"},
                                         {"sample", out, "--points", "300000"}};

private:
    static inline TempFolder* shared = nullptr;
};

} // namespace

TEST_F(BrokenOff, AnInterruptedCommandSaysSoAndLeavesNothing)
{
    for (const Words& command : commands) {
        for (const int signal : {SIGINT, SIGTERM}) {
            const Ending ending = interrupt(command, signal, 2, out);
            ASSERT_TRUE(WIFEXITED(ending.state)) << command[0] << ", signal " << signal;
            EXPECT_EQ(WEXITSTATUS(ending.state), 1) << command[0];
            EXPECT_EQ(lastLine(ending.err), "brx: " + out + ": cancelled; nothing was written") << command[0];
            EXPECT_EQ(filesIn(folder.path()), std::set<std::string>()) << command[0];
        }
    }
}

TEST_F(BrokenOff, InterruptedNormalsLeaveTheStoreAlone)
{
    const std::set<std::string> before = filesIn(fs::path(store()).parent_path());
    for (const int signal : {SIGINT, SIGTERM}) {
        const Ending ending =
            interrupt({"normals", store(), "--threads", "1", "--k", "48"}, signal, 1, store() + ".normals");
        ASSERT_TRUE(WIFEXITED(ending.state));
        EXPECT_EQ(WEXITSTATUS(ending.state), 1);
        EXPECT_EQ(lastLine(ending.err), "brx: " + store() + ".normals: cancelled; nothing was written");
        EXPECT_EQ(filesIn(fs::path(store()).parent_path()), before);
    }
}

/// Whenever it happens: the name stands for a whole file or for none, and the next run takes away what is
/// left.
TEST_F(BrokenOff, AKilledCommandLeavesNoHalfFileUnderItsName)
{
    const Words& build = commands.front();
    for (int reports = 1; reports <= 10; reports += 3) {
        const Ending ending = runAndSignal(build, SIGKILL, reports);
        EXPECT_TRUE(WIFSIGNALED(ending.state) || WEXITSTATUS(ending.state) == 0);
        if (fs::exists(out)) {
            EXPECT_EQ(brx({"verify", out}).exitStatus, 0);
        }
        Words again = build;
        again.push_back("--force");
        EXPECT_EQ(brx(again).exitStatus, 0);
        EXPECT_EQ(filesIn(folder.path()), std::set<std::string>{"out"}) << "killed after report " << reports;
        EXPECT_EQ(brx({"verify", out}).exitStatus, 0);
        fs::remove(out);
    }
}

/// The limit of a file's size stands for a disk that becomes full, which cannot be had without a disk.
TEST_F(BrokenOff, AFileThatCannotGrowEndsTheCommandInOneLine)
{
    std::vector<Words> all = commands;
    all.push_back({"build", survey(), "-o", out, "--normals"});
    for (const Words& command : all) {
        for (const char* limit : {"8", "22000", "28000"}) { // blocks of 512 bytes, the survey has 21000
            Words words = {"/bin/sh", "-c", "ulimit -f $0; exec \"$@\"", limit, VELBRX_BRX};
            words.insert(words.end(), command.begin(), command.end());
            fs::remove(out);
            const ProgramResult result = runProgram(words);
            if (result.exitStatus == 0) continue; // large enough
            EXPECT_EQ(result.exitStatus, 1) << command[0] << ' ' << limit << ' ' << result.err;
            EXPECT_EQ(lastLine(result.err).rfind("brx: ", 0), 0u) << result.err;
            const auto left = filesIn(folder.path());
            EXPECT_TRUE(left.empty() || left == std::set<std::string>{"out"}) << command[0] << ' ' << limit;
            if (!left.empty()) {
                EXPECT_EQ(brx({"verify", out}).exitStatus, 0) << "a store without its normals";
            }
        }
    }
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
                                       brxAt + "export " + store() + " " + disk + "/out",
                                       brxAt + "sample " + disk + "/out --points 300000"}) {
        const ProgramResult result = onDisk(command);
        EXPECT_EQ(result.exitStatus, 1) << command;
        EXPECT_EQ(result.out, "") << "left on the disk by " << command;
        EXPECT_NE(lastLine(result.err).find(" MB of disk space"), std::string::npos) << result.err;
    }
}
