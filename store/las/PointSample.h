#pragma once

#include "store/las/PointSource.h"

#include <atomic>
#include <memory>

namespace VelBrx {

/// How a sample of a file's points is read.
struct PointSampling
{
    uint64_t points = 0; ///< of the sample, about; a file with fewer gives all
    double seconds = 0;  ///< that reading takes at most, about
    unsigned threads = 1;
    const std::atomic<bool>* cancel = nullptr; ///< null: never
};

/// Reads points spread evenly over a LAS or LAZ file, and keeps them in memory: `sample` gives them as if
/// they were all that the file has, and nothing were behind them. Where time runs out they are fewer, and
/// spread as evenly. Fails where records cannot be read, and for a file whose points are compressed in such
/// large pieces that there is time for the first of each alone.
Status readPointSample(const PointSource& source, const PointSampling& how,
                       std::unique_ptr<PointSource>& sample);

} // namespace VelBrx
