#pragma once

#include <string>
#include <vector>

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
