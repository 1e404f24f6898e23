#include "tools/Command.h"

#include "terminal/Text.h"
#include "tools/Talk.h"
#include "tools/Watch.h"

#include <VelBrx/Normals.h>

#include <iostream>
#include <memory>

namespace {

void runNormals(VelBrx::NormalsOptions options)
{
    Watch watch;
    watch.over(options);
    watch.end(VelBrx::writeNormals(options));
    unlessQuiet(std::cerr) << printable(VelBrx::normalsPath(options.store)) << ": complete\n";
}

} // namespace

void addNormalsCommand(CLI::App& app)
{
    const auto options = std::make_shared<VelBrx::NormalsOptions>();
    CLI::App* const command = app.add_subcommand("normals", "Compute the normals of a store's points");
    command->add_option("STORE", options->store, "the store, a .brx file")->required();
    command
        ->add_option("--k", options->neighbours,
                     "points that a plane is fitted to, the point itself included")
        ->check(CLI::Range(VelBrx::kLeastNeighbours, VelBrx::kMostNeighbours))
        ->capture_default_str();
    command->add_flag("--force", options->overwrite, "replace the normals when they exist");
    addThreadsOption(*command, options->threads);
    command->callback([options] { runNormals(*options); });
    command->footer(
        "The normals go to STORE.normals, where the viewer finds them. They point upwards. A failed or "
        "interrupted run leaves nothing behind.");
}
