#pragma once

#include "tests/support/TempFolder.h"

#include <string>
#include <vector>

#include <sys/types.h>

/// What a program that has ended left behind.
struct ProgramResult
{
    int exitStatus = -1; ///< -1: it could not be started, or a signal ended it
    std::string out;     ///< what it wrote to standard output
    std::string err;     ///< and to standard error
    long peakMemory = 0; ///< the most of its memory that was resident, bytes; at least what this process had
};

/// Runs a program and waits for its end. The first word is its path, or its name in the search path; no shell
/// is between. `environment` are settings NAME=VALUE that add to this process's own, and names alone that are
/// taken out of it.
ProgramResult runProgram(const std::vector<std::string>& words,
                         const std::vector<std::string>& environment = {});

/// Words that run a program on an X server of its own. The server's number is of this process: programs that
/// look for the first free one at the same time meet on the same. It is not reset when a client looks at the
/// screen and leaves, as none is where people work.
std::vector<std::string> onDisplay(const std::vector<std::string>& words,
                                   const std::string& screen = "640x480x24");

/// A program that runs beside the test; it is ended with this object.
class RunningProgram
{
public:
    /// As `runProgram`; `folder` is the program's working folder, this process's where it is empty.
    explicit RunningProgram(const std::vector<std::string>& words,
                            const std::vector<std::string>& environment = {},
                            const std::string& folder = std::string());
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    bool isRunning() const;
    void signal(int number) const;
    pid_t process() const { return _process; }

    /// Waits for its end.
    ProgramResult wait();

    std::string out() const; ///< what it has written to standard output so far
    std::string err() const; ///< and to standard error

private:
    const TempFolder _files;
    pid_t _process = -1; ///< -1: has ended
};
