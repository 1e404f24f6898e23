#include <VelBrx/Builder.h>
#include <VelBrx/EditHistory.h>
#include <VelBrx/Normals.h>

#include "store/StoreIndex.h"
#include "store/builder/LoadInput.h"
#include "store/builder/SortedInput.h"
#include "store/io/OutputFile.h"
#include "store/journal/EditKeeper.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>

#include <sys/stat.h>

namespace VelBrx {

namespace {

/// Fails when `output` is one of `inputs` under whatever name.
Status checkNotInput(const std::string& output, const std::vector<std::string>& inputs)
{
    struct stat out
    {
    };
    if (stat(output.c_str(), &out) != 0) return {};
    for (const std::string& input : inputs) {
        struct stat in
        {
        };
        if (stat(input.c_str(), &in) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
            return Status::failure(output +
                                   ": is an input of the build as well; choose another name for the store");
    }
    return {};
}

/// Fails when a journal of edits has the place of the new store's: the edits of the old store would be lost.
Status checkNoEdits(const std::string& output)
{
    EditHistory history;
    const std::string path = journalPath(output);
    if (Status read = readEditHistory(output, history); !read) return read;
    if (!history.exists) return {};
    return Status::failure(
        path + ": is a journal of " + std::to_string(history.entries.size()) +
        " edits of the store that stood there before; use --keep-edits to have them in the "
        "new one, or move the journal away to build without them");
}

/// A line about edits whose points the new store has not.
void noteLost(const std::string& output, const KeptEdits& kept, std::vector<std::string>& notes)
{
    if (kept.lostPoints == 0) return;
    std::string note = output + ": " + std::to_string(kept.lostPoints) + " of " +
                       std::to_string(kept.points) + " edited points are not in the new store";
    if (kept.lostEdits > 0) note += ", and none of " + std::to_string(kept.lostEdits) + " edits";
    notes.push_back(note);
}

void append(std::vector<std::string>& notes, const std::vector<std::string>& more)
{
    notes.insert(notes.end(), more.begin(), more.end());
}

void makeReport(const BuildOptions& options, const LoadedInput& input, const SortedInput& points,
                BuildReport& report)
{
    report.points = input.sources.pointCount();
    report.cells = points.cells().size();
    report.levels = points.cells().back().level + 1u;
    append(report.notes, input.sources.notes());
    append(report.notes, input.notes);
    append(report.notes, input.grid.notes);
    if (input.sources.hasNarrowColors())
        report.notes.push_back(options.output +
                               ": the colours are 8-bit values; they were widened to 16 bits");
}

Status build(const BuildOptions& options, BuildReport& report)
{
    if (Status status = OutputFile::check(options.output, options.overwrite); !status) return status;
    if (Status status = checkNotInput(options.output, options.inputs); !status) return status;
    Journal::EditKeeper keeper(options.output);
    if (Status status = options.keepEdits ? keeper.open() : checkNoEdits(options.output); !status)
        return status;
    OutputFile::removeLeftovers(options.output);

    LoadedInput input;
    if (Status status = loadInput(options, input, report.badInputs); !status) return status;
    ParallelRun& run = *input.run;
    SortedInput points(input);
    if (Status status = points.sort(options); !status) return status;
    OutputFile file;
    if (Status status = file.create(options.output, options.overwrite, points.storeBytes()); !status)
        return status;
    if (Status status = points.write(file.disk()); !status) return status;
    if (options.keepEdits) {
        run.begin("keeping edits");
        if (Status status = keeper.write(file.temporaryPath(), input.memory.total / 2, run); !status)
            return status;
        report.kept = keeper.report();
        if (!keeper.note().empty()) input.notes.push_back(keeper.note());
        noteLost(options.output, report.kept, input.notes);
    }
    // Normals of a store that stood there before are in the order of that store's points.
    if (std::remove(normalsPath(options.output).c_str()) == 0)
        input.notes.push_back(normalsPath(options.output) +
                              ": was removed, as it belongs to the store that stood there before");
    makeReport(options, input, points, report); // may throw, which the store with its name may not see
    if (Status status = file.commit(); !status) return status;
    if (Status status = keeper.giveName(); !status) return status;
    run.begin("done");
    return {};
}

} // namespace

Status buildStore(const BuildOptions& options, BuildReport& report)
{
    report = BuildReport();
    return runToFile(options.output, " for the points of the input", [&] { return build(options, report); });
}

} // namespace VelBrx
