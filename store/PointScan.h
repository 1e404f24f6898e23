#pragma once

#include "store/io/FileReader.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace VelBrx {

/// Consecutive points of one owner, such as a cell's segment.
struct PointRun
{
    int64_t first;
    int64_t count;
    size_t owner;
};

/// Called with a part of a run and the records of that part. `worker` counts from 0, for data of its own.
using RunVisitor = std::function<void(unsigned worker, const PointRun& part, const uint8_t* records)>;

/// Workers that `scanPoints` uses at most: the processors, at least one.
unsigned scanWorkers();

/// Reads the records of `runs`, ascending and disjoint, in blocks shared out among the workers, each block by
/// one read. The parts of a run reach `visit` in no fixed order and from several threads at once; `visit`
/// must not throw. False when a part of the file cannot be read; the rest is then left out.
bool scanPoints(const FileReader& file, int64_t pointDataStart, const std::vector<PointRun>& runs,
                const RunVisitor& visit);

} // namespace VelBrx
