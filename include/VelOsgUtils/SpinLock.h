#pragma once

#include <VelOsgUtils/Export.h>

#include <atomic>

namespace VelOsgUtils {

/// A lock for sections of a few instructions: it never sleeps in the kernel while free, yields while taken.
/// Not recursive. Satisfies BasicLockable, so `std::lock_guard` holds it.
class VEL_OSG_UTILS_EXPORT SpinLock
{
public:
    SpinLock() = default;
    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    void lock();
    void unlock();

private:
    std::atomic_flag _taken = ATOMIC_FLAG_INIT;
};

} // namespace VelOsgUtils
