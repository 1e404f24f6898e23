#include "tools/Command.h"

#include "terminal/Text.h"
#include "tools/Talk.h"
#include "tools/Watch.h"

#include <VelBrx/ExportLas.h>

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace {

nlohmann::ordered_json reportJson(const VelBrx::ExportReport& report)
{
    auto files = nlohmann::ordered_json::array();
    for (const VelBrx::ExportedFile& file : report.files)
        files.push_back({{"path", file.path}, {"points", file.points}, {"changed", file.changed}});
    return {{"files", files}, {"hiddenLeftOut", report.hiddenLeftOut}, {"notes", report.notes}};
}

void tell(const VelBrx::ExportReport& report, bool visibleOnly)
{
    for (const std::string& note : report.notes)
        unlessQuiet(std::cerr) << "brx: " << printable(note) << '\n';
    for (const VelBrx::ExportedFile& file : report.files)
        unlessQuiet(std::cerr) << printable(file.path) << ": " << file.points << " points, " << file.changed
                               << " of them changed\n";
    if (visibleOnly) unlessQuiet(std::cerr) << report.hiddenLeftOut << " hidden points left out\n";
}

void runExport(VelBrx::ExportOptions options, bool json)
{
    VelBrx::ExportReport report;
    Watch watch(json ? Progress::For::Programs : Progress::For::People);
    watch.over(options);
    watch.end(VelBrx::exportLas(options, report));
    if (json)
        printJson(reportJson(report));
    else
        tell(report, options.visibleOnly);
}

} // namespace

void addExportCommand(CLI::App& app)
{
    struct Options
    {
        VelBrx::ExportOptions run;
        bool split = false;
        bool las14 = false;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("export", "Write the points of a store back to LAS, LAZ or COPC");
    command->add_option("STORE", options->run.store, "the store, a .brx file")->required();
    command
        ->add_option("OUT", options->run.output,
                     "the file to make: LAS, LAZ (.laz) or COPC (.copc.laz); with --split a folder")
        ->required();
    CLI::Option* const split =
        command->add_flag("--split", options->split, "write a file for each source of the store");
    command
        ->add_flag("--las14", options->las14,
                   "write LAS 1.4, which has room for all classes, not the source's format")
        ->excludes(split);
    command->add_flag("--visible-only", options->run.visibleOnly, "leave hidden points out");
    command->add_flag("--force", options->run.overwrite, "replace files that exist");
    addMemoryOption(*command, options->run.memory, "1G");
    addThreadsOption(*command, options->run.threads);
    command->add_flag("--json", options->json,
                      "print a report as one JSON object, and progress as a line of JSON each");
    command->callback([options] {
        if (options->split) options->run.form = VelBrx::ExportForm::Split;
        if (options->las14) options->run.form = VelBrx::ExportForm::Merged;
        runExport(options->run, options->json);
    });
    command->footer(
        "A store of one source gives that source back: header, point format, order of points, VLRs and "
        "EVLRs; edits show in the class and in the withheld bit of hidden points. The sources of a store of "
        "several are merged into one LAS 1.4 file unless --split is given. A failed or interrupted export "
        "leaves nothing behind.");
}
