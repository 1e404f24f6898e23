#pragma once

#include "terminal/EndSignals.h"
#include "terminal/Progress.h"
#include "tools/Talk.h"

#include <VelBrx/Builder.h>
#include <VelBrx/Status.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

/// What people see of long work, and how they end it: while it lives, the progress of work that was given its
/// options goes to stderr, and SIGINT, SIGTERM and SIGHUP cancel it. At most one at a time.
class Watch
{
public:
    explicit Watch(Progress::For readers = Progress::For::People)
        : _progress(isQuiet() ? Progress::For::Nobody : readers)
    {
    }

    /// Sets `progress` and `cancel` of the options of a function of the library.
    template <class Options>
    void over(Options& options)
    {
        options.cancel = &_signals.received();
        options.progress = [this](const auto&... state) { this->show(state...); };
    }

    /// Takes the progress away, so that lines can be printed.
    void clear() { _progress.clear(); }

    /// Takes the progress away. A failure ends the command, with `hint` behind its line.
    void end(const VelBrx::Status& status, const std::string& hint = std::string());

private:
    void show(const VelBrx::BuildProgress& state);
    void show(uint64_t done, uint64_t total);

    const EndSignals _signals;
    Progress _progress;
};

/// \name Options that long commands have in common
/// @{
void addThreadsOption(CLI::App& command, unsigned& threads);
void addMemoryOption(CLI::App& command, uint64_t& memory, const std::string& byDefault);
/// @}
