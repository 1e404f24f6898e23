#include "tests/support/RunProgram.h"

#include "tests/support/TempFolder.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string contentOf(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// This process's environment with `changes` made.
std::vector<std::string> changedEnvironment(const std::vector<std::string>& changes)
{
    const auto name = [](const std::string& setting) { return setting.substr(0, setting.find('=')); };
    std::vector<std::string> settings;
    for (char** setting = environ; *setting; ++setting) {
        const bool changed = std::any_of(changes.begin(), changes.end(), [&](const std::string& change) {
            return name(change) == name(*setting);
        });
        if (!changed) settings.emplace_back(*setting);
    }
    for (const std::string& change : changes) {
        if (change.find('=') != std::string::npos) settings.push_back(change);
    }
    return settings;
}

std::vector<char*> pointersTo(std::vector<std::string>& words)
{
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

ProgramResult runProgram(const std::vector<std::string>& words, const std::vector<std::string>& environment)
{
    const TempFolder folder;
    const std::string out = folder.file("out"), err = folder.file("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_CREAT | O_WRONLY, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_CREAT | O_WRONLY, 0600);

    std::vector<std::string> copies = words;
    std::vector<std::string> settings = changedEnvironment(environment);
    const std::vector<char*> arguments = pointersTo(copies);
    const std::vector<char*> variables = pointersTo(settings);
    ProgramResult result;
    pid_t child = 0;
    int state = 0;
    rusage used{};
    std::ofstream("/proc/self/clear_refs") << 5; // the child's peak memory starts from this process's
    const bool started =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), variables.data()) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (started && wait4(child, &state, 0, &used) == child && WIFEXITED(state))
        result.exitStatus = WEXITSTATUS(state);
    result.peakMemory = used.ru_maxrss * 1024;
    result.out = contentOf(out);
    result.err = contentOf(err);
    return result;
}
