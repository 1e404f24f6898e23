#pragma once

#include "store/builder/PointSpool.h"
#include "store/builder/SourceSet.h"
#include "store/builder/StatisticsCollector.h"
#include "store/builder/StoreGrid.h"
#include "store/io/ParallelRun.h"

namespace VelBrx {

/// Reads all points of the sources, converts them to store records, appends each to its chunk in `spool`, and
/// writes what the records cannot hold there by ordinal. `statistics` receives what the store states of its
/// points. Succeeds too where the points of some source cannot be read, and notes that.
Status loadPoints(SourceSet& sources, const StoreGrid& grid, const ChunkPlan& plan, PointSpool& spool,
                  ParallelRun& run, StoreStatistics& statistics);

} // namespace VelBrx
