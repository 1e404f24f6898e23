#include "tools/Command.h"

#include "crs/CoordinateSystem.h"
#include "terminal/Text.h"
#include "tools/Talk.h"
#include "tools/Watch.h"

#include <VelBrx/Builder.h>
#include <VelBrx/Normals.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>
#include <iostream>
#include <memory>
#include <string>

namespace {

/// Computes the normals of the store that was just built.
void buildNormals(const VelBrx::BuildOptions& build, Progress::For readers)
{
    VelBrx::NormalsOptions options;
    options.store = build.output;
    options.overwrite = build.overwrite;
    options.threads = build.threads;
    Watch watch(readers);
    watch.over(options);
    watch.end(VelBrx::writeNormals(options), "; the store is complete");
}

void tellBad(const VelBrx::BuildReport& report)
{
    for (const std::string& bad : report.badInputs)
        std::cerr << "brx: " << printable(bad) << '\n';
}

void tell(const VelBrx::BuildOptions& options, const VelBrx::BuildReport& report, double seconds)
{
    for (const std::string& note : report.notes)
        unlessQuiet(std::cerr) << "brx: " << printable(note) << '\n';
    unlessQuiet(std::cerr) << printable(options.output) << ": " << report.points << " points in "
                           << report.cells << " cells on " << report.levels << " levels, "
                           << std::llround(seconds * 1000) << " ms\n";
    if (options.keepEdits)
        unlessQuiet(std::cerr) << printable(options.output) << ": " << report.kept.edits
                               << (report.kept.edits == 1 ? " edit" : " edits") << " kept\n";
}

/// The store is to state the system with this code.
void stateSystem(const std::string& code, VelBrx::BuildOptions& build)
{
    std::optional<CoordinateSystem> system;
    if (const VelBrx::Status found = CoordinateSystem::find(code, system); !found)
        throw CommandError("--crs: " + found.message());
    build.coordinateSystem = system->wkt();
    if (build.coordinateSystem.empty())
        throw CommandError("--crs: " + code + ": cannot be told in the WKT of LAS files; give another code");
}

void printReport(const VelBrx::BuildOptions& options, const VelBrx::BuildReport& report, double seconds)
{
    nlohmann::ordered_json told = {{"store", options.output},      {"points", report.points},
                                   {"cells", report.cells},        {"levels", report.levels},
                                   {"seconds", seconds},           {"notes", report.notes},
                                   {"badInputs", report.badInputs}};
    if (options.keepEdits)
        told["edits"] = {{"kept", report.kept.edits},
                         {"points", report.kept.points},
                         {"lost", report.kept.lostEdits},
                         {"lostPoints", report.kept.lostPoints}};
    printJson(told);
}

void runBuild(VelBrx::BuildOptions options, bool withNormals, bool json)
{
    const auto start = std::chrono::steady_clock::now();
    const auto readers = json ? Progress::For::Programs : Progress::For::People;
    VelBrx::BuildReport report;
    {
        Watch watch(readers);
        watch.over(options);
        options.forecast = [&](const VelBrx::BuildForecast& forecast) {
            if (json) return;
            watch.clear();
            unlessQuiet(std::cerr) << printable(options.output) << ": " << forecast.points
                                   << " points to come, which take about " << bytesText(forecast.storeBytes)
                                   << '\n';
        };
        const VelBrx::Status built = VelBrx::buildStore(options, report);
        if (!built && !options.skipBad && report.badInputs.size() > 1) {
            watch.clear();
            tellBad(report);
            throw CommandError(std::to_string(report.badInputs.size()) +
                               " inputs cannot be used; mend them, or use --skip-bad to build of the others");
        }
        watch.end(built);
    }

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!json) tell(options, report, seconds);
    if (withNormals) buildNormals(options, readers);
    if (json) printReport(options, report, seconds);
    if (report.badInputs.empty()) return;
    if (!json) tellBad(report);
    throw CommandError(options.output + ": was built without " + std::to_string(report.badInputs.size()) +
                       (report.badInputs.size() == 1 ? " input that" : " inputs that") + " cannot be used");
}

} // namespace

void addBuildCommand(CLI::App& app)
{
    struct Options
    {
        VelBrx::BuildOptions build;
        std::string crs;
        bool normals = false;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("build", "Build one store from LAS and LAZ files");
    command
        ->add_option("IN", options->build.inputs,
                     "LAS 1.0 to 1.4 and LAZ files, point formats 0 to 10, or folders of them")
        ->required();
    command->add_option("-o,--output", options->build.output, "the store to make, a .brx file")->required();
    CLI::Option* const force =
        command->add_flag("--force", options->build.overwrite,
                          "replace the store when it exists, unless a journal tells of edits");
    command
        ->add_flag("--keep-edits", options->build.keepEdits,
                   "with --force: do the edits of the store again in the new one, where it has their points")
        ->needs(force);
    command
        ->add_option("--crs", options->crs,
                     "coordinate system of the points by its code, whatever the files state")
        ->type_name("EPSG:CODE");
    command->add_flag("--skip-bad", options->build.skipBad,
                      "build of the inputs that can be read, list the others, and end with status 1");
    addThreadsOption(*command, options->build.threads);
    addMemoryOption(*command, options->build.memory, "half of the machine's");
    command->add_flag("--normals", options->normals,
                      "compute the points' normals as well, as brx normals does");
    command->add_flag("--json", options->json,
                      "print a report as one JSON object, and progress as a line of JSON each");
    command->callback([options] {
        options->build.compareSystems = differenceOfSystems;
        if (!options->crs.empty()) stateSystem(options->crs, options->build);
        runBuild(options->build, options->normals, options->json);
    });
    command->footer(
        "Every input point is in the store once, with all its attributes. What had to be repaired or "
        "changed is told on standard error. A failed or interrupted build leaves nothing behind. The input "
        "may be larger than the memory: the points stand in the store's folder meanwhile, which needs room "
        "for two and a quarter times the store.");
}
