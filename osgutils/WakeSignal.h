#pragma once

#include <VelOsgUtils/Export.h>

#include <chrono>
#include <cstdint>

namespace VelOsgUtils {

/// Ends the sleep of the threads that page, all over the process: raised by whatever may give them work, such
/// as a drawn frame, a camera that moved, a request, an edit. One that sleeps notes the count before it looks
/// for work, so that what comes while it looks is not slept through:
///
///     const uint64_t seen = WakeSignal::count();
///     if (!findWork()) WakeSignal::waitUntil(seen, latest);
///
/// Threads: any.
class VEL_OSG_UTILS_EXPORT WakeSignal
{
public:
    WakeSignal() = delete;

    /// Costs two atomic operations while nobody sleeps. Takes a lock of its own, under which nothing else is
    /// taken.
    static void raise();

    /// How often it was raised.
    static uint64_t count();

    /// Returns as soon as the count is another one than `seen`, true, or once the time is over, false.
    static bool waitUntil(uint64_t seen, std::chrono::steady_clock::time_point latest);
};

} // namespace VelOsgUtils
