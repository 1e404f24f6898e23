#pragma once

#include <CLI/CLI.hpp>

#include <stdexcept>

/// Ends a command: `what()` is the one line that the user reads behind "brx: ", and the program exits with 1.
class CommandError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// \name The commands of brx
/// Each adds its subcommand, with a callback that does the work: data goes to stdout, all else to stderr.
/// A callback that fails throws a CommandError.
/// @{
void addBuildCommand(CLI::App& app);
void addExportCommand(CLI::App& app);
void addHistoryCommand(CLI::App& app);
void addIndexCommand(CLI::App& app);
void addInfoCommand(CLI::App& app);
void addNormalsCommand(CLI::App& app);
void addRevertCommand(CLI::App& app);
void addSampleCommand(CLI::App& app);
void addVerifyCommand(CLI::App& app);
/// @}
