#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace VelBrx {

/// What `writeSampleSurvey` writes, and with what.
struct SampleOptions
{
    std::string output; ///< a LAS file, or LAZ where the name ends in ".laz"
    uint64_t points = 10000000;
    uint64_t seed = 1; ///< the same seed and number of points give the same file
    bool overwrite = false;
    unsigned threads = 0;                                        ///< 0: all processors
    std::function<void(uint64_t done, uint64_t total)> progress; ///< called on the caller's thread
    const std::atomic<bool>* cancel = nullptr; ///< set by the caller: the work ends soon and leaves nothing
};

/// Most points of a sample survey.
constexpr uint64_t kMaxSamplePoints = 100000000000;

/// Writes a synthetic airborne laser survey for demonstrations, tests and benchmarks: a valley with a river,
/// a road, a village, fields, forest and a power line, scanned from overlapping flight lines and a cross
/// line. LAS 1.4, point format 7, ETRS89 / UTM zone 32N, millimetres. Up to about 56 million points the area
/// grows with their number, beyond that their density. Memory does not depend on the number of points. Any
/// thread may call it.
VEL_BRX_EXPORT Status writeSampleSurvey(const SampleOptions& options);

} // namespace VelBrx
