#include "store/builder/SortedInput.h"

#include "store/StoreIndex.h"
#include "store/builder/ChunkDivision.h"
#include "store/builder/ChunkLevels.h"

#include <random>

namespace VelBrx {

namespace {

uint64_t randomStoreId()
{
    std::random_device device;
    uint64_t id = 0;
    while (id == 0)
        id = uint64_t{device()} << 32 | device();
    return id;
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

} // namespace

SortedInput::SortedInput(LoadedInput& input)
    : _input(input), _places(input.grid), _gate(input.memory.pointsAtOnce)
{
}

Status SortedInput::sort(const BuildOptions& options)
{
    _input.run->begin("sorting");
    if (Status status = sortIntoCells(); !status) return status;
    if (Status status = checkCells(_cells.all(), options.output); !status) return status;
    _writer.emplace(StoreWriter::Content{_input.sources, _input.grid, _input.statistics,
                                         _input.plan->chunks(), _cells, _places, *_input.spool, _gate,
                                         options.coordinateSystem});
    return _writer->plan(options.storeId ? options.storeId : randomStoreId());
}

/// Decides the level of each point and orders the points of the spool by cells.
Status SortedInput::sortIntoCells()
{
    ChunkLevels levels(*_input.plan, _input.memory, _places, *_input.spool, _gate);
    if (Status status = levels.decideShared(*_input.run); !status) return status;
    return ChunkDivision(*_input.plan, _input.memory, levels, *_input.spool, _gate).run(*_input.run, _cells);
}

Status SortedInput::write(DiskFile& file)
{
    _input.run->begin("writing");
    return _writer->write(file, *_input.run);
}

} // namespace VelBrx
