#include <VelBrx/Builder.h>
#include <VelBrx/EditHistory.h>
#include <VelBrx/Normals.h>

#include "store/StoreIndex.h"
#include "store/builder/BuildMemory.h"
#include "store/builder/ChunkDivision.h"
#include "store/builder/ChunkLevels.h"
#include "store/builder/ChunkPlan.h"
#include "store/builder/ColumnCounts.h"
#include "store/builder/LoadPoints.h"
#include "store/builder/PointSpool.h"
#include "store/builder/SourceSet.h"
#include "store/builder/StoreGrid.h"
#include "store/builder/StoreHeader.h"
#include "store/builder/StoreWriter.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelRun.h"
#include "store/journal/EditKeeper.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>

#include <sys/stat.h>

namespace VelBrx {

namespace {

constexpr unsigned kPasses = 4; ///< points are scanned, loaded, sorted and written

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

/// Only points without extent make a cell larger than a draw call takes.
Status checkCells(const std::vector<StoreCell>& cells, const std::string& output)
{
    for (const StoreCell& cell : cells)
        if (cell.pointCount > static_cast<uint64_t>(kMaxCellPoints))
            return Status::failure(output + ": would have " + std::to_string(cell.pointCount) +
                                   " points in one place, more than a cell takes; thin the input");
    return {};
}

/// Bytes a point that store records and flags do not hold, by source.
std::vector<uint32_t> restLengths(const SourceSet& sources, const StoreGrid& grid)
{
    constexpr uint32_t kCoordinatesLength = 12;
    std::vector<uint32_t> lengths;
    for (size_t i = 0; i < sources.sources().size(); ++i)
        lengths.push_back((grid.isExact(i) ? 0 : kCoordinatesLength) +
                          sources.sources()[i].format.restLength());
    return lengths;
}

/// About the bytes of the store, and of the points that gather in the spool when the store is written.
uint64_t expectedStoreSize(const SourceSet& sources, const PointSpool& spool)
{
    const uint64_t flagsClassIndex = 3;
    const uint64_t gathered = spool.itemSize() / 10;
    uint64_t size = sources.pointCount() * (spool.itemSize() + flagsClassIndex + gathered);
    for (size_t i = 0; i < sources.sources().size(); ++i) {
        const LasFile& file = sources.sources()[i].points->file();
        size +=
            file.pointCount * spool.restLength(i) + file.pointDataStart + file.fileSize - file.pointDataEnd();
    }
    return size;
}

/// Whether points have the same places in both.
bool areSame(const StoreGrid& a, const StoreGrid& b)
{
    for (size_t source = 0; source < a.mappings.size(); ++source)
        for (size_t axis = 0; axis < 3; ++axis)
            if (a.mappings[source][axis].exact != b.mappings[source][axis].exact) return false;
    return a.cubeSize == b.cubeSize && std::equal(a.scale, a.scale + 3, b.scale) &&
           std::equal(a.offset, a.offset + 3, b.offset) && std::equal(a.min, a.min + 3, b.min);
}

/// Scans all points once: fixes the grid and divides columns into chunks. Columns are counted in the same
/// scan on the grid that the headers promise, and once more where the headers are wrong. Crowded columns are
/// counted again, more finely.
Status scanSources(SourceSet& sources, const BuildMemory& memory, ParallelRun& run, StoreGrid& grid,
                   std::unique_ptr<ChunkPlan>& plan)
{
    const bool needsCounts = sources.pointCount() > memory.chunkPoints;
    plan = needsCounts ? std::make_unique<ChunkPlan>() : std::make_unique<ChunkPlan>(sources.pointCount());
    std::unique_ptr<ColumnCounts> counts;
    const auto count = [&](size_t source, const PointBatch& batch) {
        if (!counts) return;
        const size_t stride = sources.sources()[source].format.recordLength();
        counts->add(source, batch.records.data(), batch.records.size() / stride, stride);
    };
    StoreGrid stated;
    if (needsCounts && makeStoreGrid(sources.statedExtents(), stated))
        counts = std::make_unique<ColumnCounts>(stated, *plan);
    run.begin("scanning");
    if (Status status = sources.scan(run, count); !status) return status;
    if (Status status = makeStoreGrid(sources.extents(), grid); !status) return status;
    if (counts && !areSame(stated, grid)) counts.reset();
    for (unsigned passes = kPasses + 1; plan->openCount() > 0; ++passes) {
        if (!counts) {
            counts = std::make_unique<ColumnCounts>(grid, *plan);
            run.setTotal(sources.pointCount(), passes);
            run.begin("counting");
            if (Status status = sources.read(run, count); !status) return status;
        }
        counts->accumulate();
        plan->divide(*counts, memory.chunkPoints, memory.columnPoints);
        counts.reset();
    }
    return {};
}

/// Fails when a chunk that cannot be divided is too large for the memory.
Status checkChunks(const ChunkPlan& plan, const BuildMemory& memory)
{
    uint64_t largest = 0;
    for (const Chunk& chunk : plan.chunks())
        largest = std::max(largest, chunk.pointCount);
    return memory.checkFits(largest);
}

/// Decides the level of each point and orders the points of the spool by cells.
Status sortIntoCells(const ChunkPlan& plan, const BuildMemory& memory, const GridPlaces& places,
                     PointSpool& spool, PointGate& gate, ParallelRun& run, StoreCells& cells)
{
    ChunkLevels levels(plan, memory, places, spool, gate);
    if (Status status = levels.decideShared(run); !status) return status;
    return ChunkDivision(plan, memory, levels, spool, gate).run(run, cells);
}

Status build(const BuildOptions& options, BuildReport& report)
{
    if (Status status = OutputFile::check(options.output, options.overwrite); !status) return status;
    if (Status status = checkNotInput(options.output, options.inputs); !status) return status;
    Journal::EditKeeper keeper(options.output);
    if (Status status = options.keepEdits ? keeper.open() : checkNoEdits(options.output); !status)
        return status;
    OutputFile::removeLeftovers(options.output);

    SourceSet sources;
    if (Status status = sources.open(options.inputs); !status) return status;
    std::vector<std::string> notes;
    if (Status status = checkCompatible(sources.files(), options, notes); !status) return status;
    BuildMemory memory;
    if (Status status = BuildMemory::plan(options, sources.pointCount(), memory); !status) return status;
    ParallelRun run(memory.threads, options.progress, options.cancel);
    run.setTotal(sources.pointCount(), kPasses);

    StoreGrid grid;
    std::unique_ptr<ChunkPlan> plan;
    if (Status status = scanSources(sources, memory, run, grid, plan); !status) return status;
    if (Status status = checkChunks(*plan, memory); !status) return status;

    PointSpool spool(sources, *plan, restLengths(sources, grid));
    if (Status status =
            OutputFile::checkSpace(options.output, spool.size() + expectedStoreSize(sources, spool));
        !status)
        return status;
    if (Status status = spool.create(options.output, memory.bufferBytes); !status) return status;
    StoreStatistics statistics;
    run.begin("reading");
    if (Status status = loadPoints(sources, grid, *plan, spool, run, statistics); !status) return status;
    const GridPlaces places(grid);
    PointGate gate(memory.pointsAtOnce);
    StoreCells cells;
    run.begin("sorting");
    if (Status status = sortIntoCells(*plan, memory, places, spool, gate, run, cells); !status) return status;
    if (Status status = checkCells(cells.all(), options.output); !status) return status;

    run.begin("writing");
    StoreWriter writer(
        {sources, grid, statistics, plan->chunks(), cells, places, spool, gate, options.coordinateSystem});
    if (Status status = writer.plan(options.storeId ? options.storeId : randomStoreId()); !status)
        return status;
    OutputFile file;
    if (Status status = file.create(options.output, options.overwrite, writer.fileSize()); !status)
        return status;
    if (Status status = writer.write(file, run); !status) return status;
    if (options.keepEdits) {
        run.begin("keeping edits");
        if (Status status = keeper.write(file.temporaryPath(), memory.total / 2, run); !status) return status;
        report.kept = keeper.report();
        if (!keeper.note().empty()) notes.push_back(keeper.note());
        noteLost(options.output, report.kept, notes);
    }
    // Normals of a store that stood there before are in the order of that store's points.
    if (std::remove(normalsPath(options.output).c_str()) == 0)
        notes.push_back(normalsPath(options.output) +
                        ": was removed, as it belongs to the store that stood there before");
    if (Status status = file.commit(); !status) return status;
    if (Status status = keeper.giveName(); !status) return status;
    run.begin("done");

    report.points = sources.pointCount();
    report.cells = cells.all().size();
    report.levels = cells.all().back().level + 1u;
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
    return runToFile(options.output, " for the points of the input", [&] { return build(options, report); });
}

} // namespace VelBrx
