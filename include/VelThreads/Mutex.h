#pragma once

#include <condition_variable>
#include <mutex>

/// \file
/// Locks that clang knows, and the words that say what they guard. `clang++ -Wthread-safety` checks them;
/// other compilers see nothing.
///
/// A member that may be touched under a lock alone is declared `VEL_GUARDED_BY(lock)`, a pointer that may be
/// followed under it alone `VEL_PT_GUARDED_BY(lock)`. A function is declared
/// `VEL_REQUIRES(lock)` where its caller holds the lock, `VEL_EXCLUDES(lock)` where its caller must not.

#if defined(__clang__)
#define VEL_THREAD_ATTRIBUTE(...) __attribute__((__VA_ARGS__))
#else
#define VEL_THREAD_ATTRIBUTE(...)
#endif

#define VEL_GUARDED_BY(...) VEL_THREAD_ATTRIBUTE(guarded_by(__VA_ARGS__))
#define VEL_PT_GUARDED_BY(...) VEL_THREAD_ATTRIBUTE(pt_guarded_by(__VA_ARGS__))
#define VEL_REQUIRES(...) VEL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VEL_EXCLUDES(...) VEL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define VEL_ACQUIRED_BEFORE(...) VEL_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define VEL_ACQUIRE(...) VEL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VEL_TRY_ACQUIRE(...) VEL_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VEL_RELEASE(...) VEL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VEL_ASSERT_CAPABILITY(...) VEL_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
#define VEL_CAPABILITY(name) VEL_THREAD_ATTRIBUTE(capability(name))
#define VEL_SCOPED_CAPABILITY VEL_THREAD_ATTRIBUTE(scoped_lockable)

namespace VelThreads {

/// A `std::mutex` with checked use.
class VEL_CAPABILITY("mutex") Mutex : public std::mutex
{
public:
    void lock() VEL_ACQUIRE() { std::mutex::lock(); }
    void unlock() VEL_RELEASE() { std::mutex::unlock(); }
    bool try_lock() VEL_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }

    /// For code that holds the lock in a way that clang cannot follow, such as in a member.
    void assertHeld() const VEL_ASSERT_CAPABILITY() {}
};

/// Holds a lock of any checked kind to the end of its scope.
template <class Lockable>
class VEL_SCOPED_CAPABILITY Lock
{
public:
    explicit Lock(Lockable& lockable) VEL_ACQUIRE(lockable) : _lockable(lockable) { _lockable.lock(); }
    ~Lock() VEL_RELEASE() { _lockable.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    Lockable& _lockable;
};

/// A condition variable whose waits say which mutex they need. A wait may end without a signal: wait in a
/// loop that tests the condition.
class Condition
{
public:
    void wait(Mutex& mutex) VEL_REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> held(mutex, std::adopt_lock);
        _condition.wait(held);
        held.release();
    }

    /// False once the time is over.
    template <class Time>
    bool waitUntil(Mutex& mutex, const Time& time) VEL_REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> held(mutex, std::adopt_lock);
        const std::cv_status status = _condition.wait_until(held, time);
        held.release();
        return status == std::cv_status::no_timeout;
    }

    void notifyOne() { _condition.notify_one(); }
    void notifyAll() { _condition.notify_all(); }

private:
    std::condition_variable _condition;
};

} // namespace VelThreads
