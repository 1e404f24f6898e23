#pragma once

#include <VelBrx/Version.h>

#include <string>

/// The commit of the sources, abbreviated; empty where they were in no clone and no archive of one.
const char* buildCommit();

/// What a program says to `--version`: "brx 1.2.3 (0123abcde)".
inline std::string versionLine(const std::string& program)
{
    const std::string commit = buildCommit();
    return program + " " VEL_BRX_VERSION + (commit.empty() ? "" : " (" + commit + ")");
}
