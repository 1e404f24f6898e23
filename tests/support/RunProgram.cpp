#include "tests/support/RunProgram.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <signal.h>
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

std::vector<std::string> onDisplay(const std::vector<std::string>& words, const std::string& screen)
{
    const std::string number = std::to_string(1000 + getpid() % 50000);
    std::vector<std::string> all = {"xvfb-run", "-a", "-n", number, "-s", "-noreset -screen 0 " + screen};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

ProgramResult runProgram(const std::vector<std::string>& words, const std::vector<std::string>& environment)
{
    std::ofstream("/proc/self/clear_refs") << 5; // the child's peak memory starts from this process's
    return RunningProgram(words, environment).wait();
}

RunningProgram::RunningProgram(const std::vector<std::string>& words,
                               const std::vector<std::string>& environment, const std::string& folder)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const auto create = O_CREAT | O_WRONLY;
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, _files.file("out").c_str(), create, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, _files.file("err").c_str(), create, 0600);
    if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());

    std::vector<std::string> copies = words;
    std::vector<std::string> settings = changedEnvironment(environment);
    const std::vector<char*> arguments = pointersTo(copies);
    const std::vector<char*> variables = pointersTo(settings);
    if (posix_spawnp(&_process, arguments[0], &actions, nullptr, arguments.data(), variables.data()) != 0)
        _process = -1;
    posix_spawn_file_actions_destroy(&actions);
}

RunningProgram::~RunningProgram()
{
    signal(SIGKILL);
    wait();
}

bool RunningProgram::isRunning() const
{
    siginfo_t ended{};
    return _process > 0 &&
           waitid(P_PID, static_cast<id_t>(_process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

void RunningProgram::signal(int number) const
{
    if (_process > 0) kill(_process, number);
}

ProgramResult RunningProgram::wait()
{
    ProgramResult result;
    int state = 0;
    rusage used{};
    if (_process > 0 && wait4(_process, &state, 0, &used) == _process && WIFEXITED(state))
        result.exitStatus = WEXITSTATUS(state);
    _process = -1;
    result.peakMemory = used.ru_maxrss * 1024;
    result.out = out();
    result.err = err();
    return result;
}

std::string RunningProgram::out() const
{
    return contentOf(_files.file("out"));
}

std::string RunningProgram::err() const
{
    return contentOf(_files.file("err"));
}
