#pragma once

#include <VelBrx/Builder.h>

#include <string>

/// Shows the progress of a build on stderr: one line that is written over on a terminal, else a line for
/// every tenth of the work.
class ProgressLine
{
public:
    explicit ProgressLine(std::string title);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(const VelBrx::BuildProgress& progress);

private:
    const std::string _title;
    const bool _terminal;
    int _shown = -1; ///< per cent
};
