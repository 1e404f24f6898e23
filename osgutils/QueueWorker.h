#pragma once

#include <VelOsgUtils/ThreadCount.h>
#include <VelThreads/Mutex.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <queue>
#include <thread>
#include <utility>

namespace VelOsgUtils {

/// A queue and the thread that works on it, one item after the other in the order of their pushes. The
/// owner's function is the thread's loop:
///
///     Item item;
///     while (worker.take(item))
///         handle(item);
///
/// Threads: any thread may call any operation but `take`. `stop` waits for the item in hand: not from the
/// thread itself, nor under a lock that it needs. No lock is held while items are handled, abandoned or
/// freed.
template <class Item>
class QueueWorker
{
public:
    /// `run` is the loop of the thread, which `start` starts. An exception that leaves it ends the process.
    explicit QueueWorker(std::function<void()> run) : _run(std::move(run)) {}
    ~QueueWorker() { stop(); }
    QueueWorker(const QueueWorker&) = delete;
    QueueWorker& operator=(const QueueWorker&) = delete;

    /// Starts the thread unless it runs or the queue is closed. What waits is handled.
    void start() VEL_EXCLUDES(_threadMutex, _mutex);

    /// Ends the thread after the item in hand and joins it. What waits stays in the queue. `meanwhile` is
    /// called every millisecond until then, for an item in hand that waits for something itself.
    void stop(const std::function<void()>& meanwhile = nullptr) VEL_EXCLUDES(_threadMutex, _mutex);

    /// Leaves the thread to itself, for a process that is ending: this object must never be freed then.
    void detach() VEL_EXCLUDES(_threadMutex, _mutex);

    /// Queues an item, whether the thread runs or not. False when the queue is closed.
    bool push(Item item) VEL_EXCLUDES(_mutex);

    /// Refuses items from now on, for good, and hands those that wait to `abandon`. The thread goes on until
    /// `stop`.
    void close(const std::function<void(Item&)>& abandon) VEL_EXCLUDES(_mutex);

    /// Takes out what waits.
    std::queue<Item> takeWaiting() VEL_EXCLUDES(_mutex);

    std::queue<Item> copyWaiting() const VEL_EXCLUDES(_mutex);

    /// The queue itself, without a lock: only while nobody else uses it.
    std::queue<Item>& waiting() { return _waiting; }

    /// Returns when every item pushed before was handled, abandoned or taken out.
    void waitUntilHandled() VEL_EXCLUDES(_mutex);

    /// For the thread: drops the item in hand and waits for the next. False when the thread shall end.
    bool take(Item& item) VEL_EXCLUDES(_mutex);

private:
    void askToStop() VEL_EXCLUDES(_mutex);
    void noteEnd() VEL_EXCLUDES(_mutex);
    bool waitForEnd(std::chrono::milliseconds time) VEL_EXCLUDES(_mutex);
    void noteHandled(uint64_t items) VEL_EXCLUDES(_mutex);

    const std::function<void()> _run;

    VelThreads::Mutex _threadMutex VEL_ACQUIRED_BEFORE(_mutex); ///< serialises start and stop
    std::thread _thread VEL_GUARDED_BY(_threadMutex);

    mutable VelThreads::Mutex _mutex;
    VelThreads::Condition _changed; ///< signalled when one of the members below changed
    std::queue<Item> _waiting VEL_GUARDED_BY(_mutex);
    bool _hasItem VEL_GUARDED_BY(_mutex) = false; ///< one is in hand
    bool _stopping VEL_GUARDED_BY(_mutex) = false;
    bool _ended VEL_GUARDED_BY(_mutex) = false; ///< the thread left its loop
    bool _closed VEL_GUARDED_BY(_mutex) = false;
    uint64_t _pushedCount VEL_GUARDED_BY(_mutex) = 0;
    uint64_t _handledCount VEL_GUARDED_BY(_mutex) = 0; ///< handled, abandoned or taken out
};

template <class Item>
void QueueWorker<Item>::start()
{
    const VelThreads::Lock life(_threadMutex);
    if (_thread.joinable()) return;
    {
        const VelThreads::Lock lock(_mutex);
        if (_closed) return;
        _stopping = false;
        _ended = false;
    }
    _thread = std::thread([this] {
        const ThreadCount::Scope counted;
        _run();
        noteEnd();
    });
}

template <class Item>
void QueueWorker<Item>::stop(const std::function<void()>& meanwhile)
{
    const VelThreads::Lock life(_threadMutex);
    if (!_thread.joinable()) return;
    askToStop();
    while (meanwhile && !waitForEnd(std::chrono::milliseconds(1)))
        meanwhile();
    _thread.join();
}

template <class Item>
void QueueWorker<Item>::detach()
{
    const VelThreads::Lock life(_threadMutex);
    askToStop();
    if (_thread.joinable()) _thread.detach();
}

template <class Item>
bool QueueWorker<Item>::push(Item item)
{
    const VelThreads::Lock lock(_mutex);
    if (_closed) return false;
    _waiting.push(std::move(item));
    ++_pushedCount;
    _changed.notifyAll();
    return true;
}

template <class Item>
void QueueWorker<Item>::close(const std::function<void(Item&)>& abandon)
{
    std::queue<Item> abandoned;
    {
        const VelThreads::Lock lock(_mutex);
        _closed = true;
        abandoned.swap(_waiting);
    }
    const uint64_t count = abandoned.size();
    for (; !abandoned.empty(); abandoned.pop())
        abandon(abandoned.front());
    noteHandled(count);
}

template <class Item>
std::queue<Item> QueueWorker<Item>::takeWaiting()
{
    std::queue<Item> taken;
    const VelThreads::Lock lock(_mutex);
    taken.swap(_waiting);
    _handledCount += taken.size();
    _changed.notifyAll();
    return taken;
}

template <class Item>
std::queue<Item> QueueWorker<Item>::copyWaiting() const
{
    const VelThreads::Lock lock(_mutex);
    return _waiting;
}

template <class Item>
void QueueWorker<Item>::waitUntilHandled()
{
    const VelThreads::Lock lock(_mutex);
    const uint64_t pushed = _pushedCount;
    while (_handledCount < pushed)
        _changed.wait(_mutex);
}

template <class Item>
bool QueueWorker<Item>::take(Item& item)
{
    item = Item();
    const VelThreads::Lock lock(_mutex);
    if (std::exchange(_hasItem, false)) {
        ++_handledCount;
        _changed.notifyAll();
    }
    while (!_stopping && _waiting.empty())
        _changed.wait(_mutex);
    if (_stopping) return false;
    item = std::move(_waiting.front());
    _waiting.pop();
    _hasItem = true;
    return true;
}

template <class Item>
void QueueWorker<Item>::askToStop()
{
    const VelThreads::Lock lock(_mutex);
    _stopping = true;
    _changed.notifyAll();
}

template <class Item>
void QueueWorker<Item>::noteEnd()
{
    const VelThreads::Lock lock(_mutex);
    _ended = true;
    _changed.notifyAll();
}

template <class Item>
bool QueueWorker<Item>::waitForEnd(std::chrono::milliseconds time)
{
    const auto latest = std::chrono::steady_clock::now() + time;
    const VelThreads::Lock lock(_mutex);
    while (!_ended && _changed.waitUntil(_mutex, latest)) {
    }
    return _ended;
}

template <class Item>
void QueueWorker<Item>::noteHandled(uint64_t items)
{
    const VelThreads::Lock lock(_mutex);
    _handledCount += items;
    _changed.notifyAll();
}

} // namespace VelOsgUtils
