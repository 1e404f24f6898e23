#pragma once

#include <VelOsgUtils/Export.h>
#include <VelThreads/Mutex.h>

#include <atomic>

namespace VelOsgUtils {

/// A lock for sections of a few instructions: it never sleeps in the kernel while free, yields while taken.
/// Not recursive. `VelThreads::Lock` holds it.
class VEL_OSG_UTILS_EXPORT VEL_CAPABILITY("mutex") SpinLock
{
public:
    SpinLock() = default;
    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    void lock() VEL_ACQUIRE();
    void unlock() VEL_RELEASE();

private:
    std::atomic_flag _taken = ATOMIC_FLAG_INIT;
};

} // namespace VelOsgUtils
