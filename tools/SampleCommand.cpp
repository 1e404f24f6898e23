#include "tools/Command.h"

#include "terminal/Text.h"
#include "tools/Talk.h"
#include "tools/Watch.h"

#include <VelBrx/SampleSurvey.h>

#include <iostream>
#include <memory>

namespace {

void runSample(VelBrx::SampleOptions options)
{
    Watch watch;
    watch.over(options);
    watch.end(VelBrx::writeSampleSurvey(options));
    unlessQuiet(std::cerr) << printable(options.output) << ": " << options.points << " points\n";
}

} // namespace

void addSampleCommand(CLI::App& app)
{
    const auto options = std::make_shared<VelBrx::SampleOptions>();
    CLI::App* const command =
        app.add_subcommand("sample", "Write a synthetic airborne survey as a LAS or LAZ file");
    command->add_option("OUT", options->output, "the LAS or LAZ (.laz) file to make")->required();
    command->add_option("--points", options->points, "number of points")->capture_default_str();
    command->add_option("--seed", options->seed, "another seed gives another landscape")
        ->capture_default_str();
    addThreadsOption(*command, options->threads);
    command->add_flag("--force", options->overwrite, "replace the file when it exists");
    command->callback([options] { runSample(*options); });
    command->footer(
        "The same seed and number of points give the same file. A failed or interrupted run leaves "
        "nothing behind.");
}
