#include "viewer/scene/ProgressLine.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

ProgressLine::ProgressLine(std::string title)
    : _title(std::move(title)), _terminal(isatty(STDERR_FILENO) != 0)
{
}

ProgressLine::~ProgressLine()
{
    if (_terminal && _shown >= 0) std::fputc('\n', stderr);
}

void ProgressLine::show(const VelBrx::BuildProgress& progress)
{
    if (progress.pointsTotal == 0) return;
    const int percent = static_cast<int>(100.0 * static_cast<double>(progress.pointsDone) /
                                         static_cast<double>(progress.pointsTotal));
    const int step = _terminal ? percent : percent / 10 * 10;
    if (step == _shown) return;
    _shown = step;
    std::fprintf(stderr, _terminal ? "\r%s: %3d %% (%s)\033[K" : "%s: %d %% (%s)\n", _title.c_str(), step,
                 progress.stage);
}
