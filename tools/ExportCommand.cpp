#include "tools/Command.h"

#include "terminal/ClassList.h"
#include "terminal/Text.h"
#include "tools/GeoJson.h"
#include "tools/Talk.h"
#include "tools/Watch.h"

#include <VelBrx/ExportLas.h>

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

nlohmann::ordered_json reportJson(const VelBrx::ExportReport& report)
{
    auto files = nlohmann::ordered_json::array();
    for (const VelBrx::ExportedFile& file : report.files)
        files.push_back({{"path", file.path}, {"points", file.points}, {"changed", file.changed}});
    return {{"files", files},
            {"leftOut", report.leftOut},
            {"hiddenLeftOut", report.hiddenLeftOut},
            {"notes", report.notes}};
}

void tell(const VelBrx::ExportReport& report, bool visibleOnly)
{
    for (const std::string& note : report.notes)
        unlessQuiet(std::cerr) << "brx: " << printable(note) << '\n';
    for (const VelBrx::ExportedFile& file : report.files)
        unlessQuiet(std::cerr) << printable(file.path) << ": " << file.points << " points, " << file.changed
                               << " of them changed\n";
    if (visibleOnly) unlessQuiet(std::cerr) << report.hiddenLeftOut << " hidden points left out\n";
    if (report.leftOut > report.hiddenLeftOut)
        unlessQuiet(std::cerr) << report.leftOut - report.hiddenLeftOut
                               << " points of the store are not in the part that was asked for\n";
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
        tell(report, options.part.visibleOnly);
}

/// Which points are written, as it is typed.
struct TypedPart
{
    std::vector<double> bounds;
    std::vector<std::string> polygons;
    std::string classes;
};

void addPartOptions(CLI::App& command, TypedPart& typed, VelBrx::StorePart& part)
{
    const std::string group = "Part of the store";
    command.add_flag("--visible-only,--no-hidden", part.visibleOnly, "leave hidden points out")->group(group);
    command
        .add_option("--bounds", typed.bounds,
                    "only the points in a box: the lowest x and y, the highest x and y; or the lowest x, y "
                    "and z, the highest x, y and z")
        ->delimiter(',')
        ->type_name("X,Y,X,Y")
        ->allow_extra_args(false)
        ->group(group);
    command
        .add_option("--polygon", typed.polygons,
                    "only the points in the polygons of a GeoJSON file, in map coordinates; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->group(group);
    command
        .add_option("--classes", typed.classes,
                    "only points of these classes, such as 2,6, or -7,18 for all but these")
        ->type_name("LIST")
        ->group(group);
    command
        .add_option("--thin", part.spacing,
                    "thin the points: of every cube of this edge length only the one nearest to its centre")
        ->type_name("SPACING")
        ->check(CLI::PositiveNumber)
        ->group(group);
}

void readPart(const TypedPart& typed, VelBrx::StorePart& part)
{
    const size_t axes = typed.bounds.size() / 2;
    if (!typed.bounds.empty() && typed.bounds.size() != 4 && typed.bounds.size() != 6)
        throw CommandError("--bounds takes 4 or 6 numbers, separated by commas");
    for (size_t axis = 0; axis < axes; ++axis) {
        part.low[axis] = typed.bounds[axis];
        part.high[axis] = typed.bounds[axes + axis];
    }
    for (const std::string& path : typed.polygons)
        for (const VelBrx::MapPolygon& polygon : readPolygons(path))
            part.polygons.push_back(polygon);
    const std::optional<ClassSet> classes = parseClasses(typed.classes);
    if (!classes)
        throw CommandError("--classes " + typed.classes + ": give classes of 0 to 255, such as 2,6 or -7,18");
    part.classes = *classes;
}

} // namespace

void addExportCommand(CLI::App& app)
{
    struct Options
    {
        VelBrx::ExportOptions run;
        TypedPart part;
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
    addPartOptions(*command, options->part, options->run.part);
    command->add_flag("--force", options->run.overwrite, "replace files that exist");
    addMemoryOption(*command, options->run.memory, "1G");
    addThreadsOption(*command, options->run.threads);
    command->add_flag("--json", options->json,
                      "print a report as one JSON object, and progress as a line of JSON each");
    command->callback([options] {
        if (options->split) options->run.form = VelBrx::ExportForm::Split;
        if (options->las14) options->run.form = VelBrx::ExportForm::Merged;
        readPart(options->part, options->run.part);
        runExport(options->run, options->json);
    });
    command->footer(
        "A store of one source gives that source back: header, point format, order of points, VLRs and "
        "EVLRs; edits show in the class and in the withheld bit of hidden points. The sources of a store of "
        "several are merged into one LAS 1.4 file unless --split is given. Where only a part is written, its "
        "points stay in their order, and headers tell of them. A failed or interrupted export "
        "leaves nothing behind.");
}
