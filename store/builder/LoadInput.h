#pragma once

#include <VelBrx/Builder.h>

#include "store/builder/BuildMemory.h"
#include "store/builder/ChunkPlan.h"
#include "store/builder/PointSpool.h"
#include "store/builder/SourceSet.h"
#include "store/builder/StatisticsCollector.h"
#include "store/builder/StoreGrid.h"
#include "store/io/ParallelRun.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace VelBrx {

/// The points of a build's inputs, in its temporary file, and how they are divided.
struct LoadedInput
{
    SourceSet sources;
    BuildMemory memory;
    std::optional<ParallelRun> run; ///< of the whole build; two of its passes are done
    StoreGrid grid;
    std::unique_ptr<ChunkPlan> plan;
    std::unique_ptr<PointSpool> spool;
    StoreStatistics statistics;
    std::vector<std::string> notes;
};

/// Reads the inputs of a build. With `options.skipBad` those that cannot be read are left out: where one
/// turns out so, the others are read anew. `bad` receives a line about each.
Status loadInput(const BuildOptions& options, LoadedInput& input, std::vector<std::string>& bad);

/// Reads the points of `input.sources` in the stead of the inputs that `options` names. Succeeds too where
/// some of them cannot be read.
Status loadSources(const BuildOptions& options, LoadedInput& input);

} // namespace VelBrx
