#pragma once

#include <VelBrx/Status.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace VelBrx {

/// The failure of work that its caller cancelled.
inline Status cancelled()
{
    return Status::failure("cancelled", Status::Kind::CANCELLED);
}

/// The status of `task(index)`, a failure where memory runs out: nothing may be thrown off a thread.
template <typename Task>
Status runTask(const Task& task, size_t index)
{
    try {
        return task(index);
    } catch (const std::bad_alloc&) {
        return Status::failure("there is not enough memory", Status::Kind::NO_MEMORY);
    }
}

/// Runs `task(0)` to `task(count - 1)` on `threads` threads, the caller's among them and fewer where the
/// system gives no more, in ascending order of their start. The first failure, or `cancel`, keeps further
/// tasks from starting. `afterOwn` is called on the caller's thread after each task that it ran. Returns when
/// all have ended.
template <typename Task>
Status parallelFor(unsigned threads, size_t count, const std::atomic<bool>& cancel, const Task& task,
                   const std::function<void()>& afterOwn = {})
{
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::mutex mutex;
    Status result; // guarded by mutex

    const auto work = [&](bool own) {
        for (size_t i = next++; i < count && !failed && !cancel; i = next++) {
            if (Status status = runTask(task, i); !status) {
                const std::lock_guard lock(mutex);
                if (!failed.exchange(true)) result = std::move(status);
            }
            if (own && afterOwn) afterOwn();
        }
    };
    std::vector<std::thread> workers;
    const size_t wanted = std::min<size_t>(threads, count);
    workers.reserve(wanted);
    try {
        for (size_t i = 1; i < wanted; ++i)
            workers.emplace_back(work, false);
    } catch (const std::system_error&) { // no room for another thread: those there are do it all
    }
    work(true);
    for (std::thread& worker : workers)
        worker.join();
    if (result.ok() && cancel) return cancelled();
    return result;
}

} // namespace VelBrx
