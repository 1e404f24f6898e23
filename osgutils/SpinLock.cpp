#include <VelOsgUtils/SpinLock.h>

#include <thread>

namespace VelOsgUtils {

void SpinLock::lock()
{
    while (_taken.test_and_set(std::memory_order_acquire))
        std::this_thread::yield();
}

void SpinLock::unlock()
{
    _taken.clear(std::memory_order_release);
}

} // namespace VelOsgUtils
