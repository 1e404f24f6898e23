#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace VelBrx {

/// Counts over the point records of a store as they are now, edits included.
struct PointCounts
{
    std::array<uint64_t, 256> byClass{};
    std::array<uint64_t, 16> byReturn{};          ///< by return number, 0 included
    std::array<uint64_t, 16> byNumberOfReturns{}; ///< 0 included
    uint64_t hidden = 0;                          ///< points with a hidden bit
};

/// Reads every record of the store at `path` on all processors. A failure names the file, what is wrong and
/// what to do, and leaves `counts` unchanged. Any thread may call it.
VEL_BRX_EXPORT Status countPoints(const std::string& path, PointCounts& counts);

/// Counts what edits change, `byClass` and `hidden` alone, on the calling thread, to leave the processors to
/// others, and gives up, with a failure, once `cancel` is true. `done`, when not null, grows by the points as
/// they are read. Failures as of `countPoints`. Any thread may call it.
VEL_BRX_EXPORT Status countClassesAndHidden(const std::string& path, const std::atomic<bool>& cancel,
                                            PointCounts& counts, std::atomic<uint64_t>* done = nullptr);

} // namespace VelBrx
