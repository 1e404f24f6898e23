#pragma once

#include <VelBrx/ClassTable.h>

#include <CLI/CLI.hpp>

#include <string>

/// \name The names of the classes, for commands that tell of classes
/// @{
void addClassesOption(CLI::App& command, std::string& file);

/// Of `file`, or without one as they are chosen for `input`; throws a CommandError.
VelBrx::ClassTable classTableFor(const std::string& input, const std::string& file);
/// @}
