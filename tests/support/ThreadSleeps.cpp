#include "tests/support/ThreadSleeps.h"

#include <filesystem>
#include <fstream>
#include <string>

long sleepsOfThreads(pid_t process)
{
    long all = 0;
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream status(thread.path() / "status");
        std::string word;
        long sleeps = 0;
        while (status >> word)
            if (word == "voluntary_ctxt_switches:" && status >> sleeps) all += sleeps;
    }
    return all;
}
