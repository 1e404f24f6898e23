#pragma once

#include "tests/support/RunProgram.h"

/// Runs brx with these words and waits for its end.
inline ProgramResult brx(std::vector<std::string> words)
{
    words.insert(words.begin(), VELBRX_BRX);
    return runProgram(words);
}
