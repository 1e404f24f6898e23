#include <VelBrx/Builder.h>

#include "store/StoreIndex.h"
#include "store/build/BuildRun.h"
#include "store/build/OutputFile.h"
#include "store/build/PointTable.h"
#include "store/build/SourceSet.h"
#include "store/build/StoreGrid.h"
#include "store/build/StoreHeader.h"
#include "store/build/StoreWriter.h"

#include <algorithm>
#include <new>
#include <random>

#include <sys/stat.h>

namespace VelBrx {

namespace {

constexpr uint64_t kPasses = 5; ///< a point is counted when it is scanned, loaded, sorted twice and written

uint64_t randomStoreId()
{
    std::random_device device;
    uint64_t id = 0;
    while (id == 0)
        id = uint64_t{device()} << 32 | device();
    return id;
}

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

void append(std::vector<std::string>& notes, const std::vector<std::string>& more)
{
    notes.insert(notes.end(), more.begin(), more.end());
}

/// Cells that a draw call could not take come of points without extent alone.
Status checkCells(const std::vector<TreeCell>& cells, const std::string& output)
{
    for (const TreeCell& cell : cells)
        if (cell.pointCount > static_cast<uint64_t>(kMaxCellPoints))
            return Status::failure(output + ": would have " + std::to_string(cell.pointCount) +
                                   " points in one place, more than a cell takes; thin the input");
    return {};
}

Status build(const BuildOptions& options, BuildReport& report)
{
    if (Status status = OutputFile::check(options.output, options.overwrite); !status) return status;
    if (Status status = checkNotInput(options.output, options.inputs); !status) return status;

    BuildRun run(options.threads, options.progress, options.cancel);
    SourceSet sources;
    if (Status status = sources.open(options.inputs); !status) return status;
    std::vector<std::string> notes;
    if (Status status = checkCompatible(sources.files(), notes); !status) return status;
    run.setTotal(kPasses * sources.pointCount());

    run.begin("scanning");
    if (Status status = sources.scan(run); !status) return status;
    StoreGrid grid;
    if (Status status = makeStoreGrid(sources.extents(), grid); !status) return status;

    run.begin("reading");
    PointTable table(sources, grid);
    if (Status status = table.load(run); !status) return status;
    run.begin("sorting");
    if (Status status = table.divide(run); !status) return status;
    if (Status status = checkCells(table.cells(), options.output); !status) return status;

    run.begin("writing");
    StoreWriter writer(sources, grid, table);
    if (Status status = writer.plan(options.storeId ? options.storeId : randomStoreId()); !status)
        return status;
    OutputFile file;
    if (Status status = file.create(options.output, options.overwrite, writer.fileSize()); !status)
        return status;
    if (Status status = writer.write(file, run); !status) return status;
    if (Status status = file.commit(); !status) return status;
    run.begin("done");

    report.points = table.pointCount();
    report.cells = table.cells().size();
    report.levels = table.cells().back().level + 1u;
    append(report.notes, sources.notes());
    append(report.notes, notes);
    append(report.notes, grid.notes);
    if (sources.hasNarrowColors())
        report.notes.push_back(options.output +
                               ": the colours are 8-bit values; they were widened to 16 bits");
    return {};
}

} // namespace

Status buildStore(const BuildOptions& options, BuildReport& report)
{
    report = BuildReport();
    try {
        const Status status = build(options, report);
        if (!status && options.cancel && *options.cancel)
            return Status::failure(options.output + ": cancelled; nothing was written");
        return status;
    } catch (const std::bad_alloc&) {
        return Status::failure(options.output + ": there is not enough memory for the points of the input");
    }
}

} // namespace VelBrx
