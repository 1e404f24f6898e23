#include "osgutils/WakeSignal.h"

#include <VelThreads/Mutex.h>

#include <atomic>

namespace VelOsgUtils {

namespace {

std::atomic<uint64_t> theCount{0};
std::atomic<int> theSleepers{0};

struct Bed
{
    VelThreads::Mutex mutex;
    VelThreads::Condition raised;
};

/// Never freed: threads that are joined while the process ends use it.
Bed& bed()
{
    static auto* const only = new Bed;
    return *only;
}

} // namespace

/// Either this sees the sleeper, or the sleeper, who is counted before it looks, sees the new count.
void WakeSignal::raise()
{
    ++theCount;
    if (theSleepers == 0) return;
    const VelThreads::Lock lock(bed().mutex);
    bed().raised.notifyAll();
}

uint64_t WakeSignal::count()
{
    return theCount;
}

bool WakeSignal::waitUntil(uint64_t seen, std::chrono::steady_clock::time_point latest)
{
    ++theSleepers;
    {
        const VelThreads::Lock lock(bed().mutex);
        while (theCount == seen && bed().raised.waitUntil(bed().mutex, latest)) {
        }
    }
    --theSleepers;
    return theCount != seen;
}

} // namespace VelOsgUtils
