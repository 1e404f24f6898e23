#pragma once

#include <ostream>

/// Whether the user wants failures alone, and what a command was asked for: --quiet.
bool& isQuiet();

/// What people may want to know besides goes to `stream`; where they do not, to nowhere.
std::ostream& unlessQuiet(std::ostream& stream);
