#include "tests/support/RunProgram.h"

#include "tests/support/TempFolder.h"

#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string contentOf(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace

ProgramResult runProgram(const std::vector<std::string>& words)
{
    const TempFolder folder;
    const std::string out = folder.file("out"), err = folder.file("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_CREAT | O_WRONLY, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_CREAT | O_WRONLY, 0600);

    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    for (std::string& word : copies)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ProgramResult result;
    pid_t child = 0;
    int state = 0;
    const bool started = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (started && waitpid(child, &state, 0) == child && WIFEXITED(state))
        result.exitStatus = WEXITSTATUS(state);
    result.out = contentOf(out);
    result.err = contentOf(err);
    return result;
}
