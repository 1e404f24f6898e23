#include "tools/Watch.h"

#include "terminal/Text.h"
#include "tools/Command.h"

void Watch::end(const VelBrx::Status& status, const std::string& hint)
{
    _progress.clear();
    if (!status) throw CommandError(printable(status.message()) + hint);
}

void Watch::show(const VelBrx::BuildProgress& state)
{
    _progress.show(state.stage, state.pointsDone, state.pointsTotal);
}

void Watch::show(uint64_t done, uint64_t total)
{
    _progress.show("surveying", done, total);
}

void addThreadsOption(CLI::App& command, unsigned& threads)
{
    command.add_option("--threads", threads, "threads to use; all processors when not given");
}

void addMemoryOption(CLI::App& command, uint64_t& memory, const std::string& byDefault)
{
    command
        .add_option("--memory", memory,
                    "memory to use at most, like 2G or 800M; " + byDefault + " when not given")
        ->transform(CLI::AsSizeValue(false))
        ->option_text("SIZE");
}
