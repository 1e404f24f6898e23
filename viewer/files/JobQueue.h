#pragma once

#include <VelBrx/BuildProgress.h>
#include <VelThreads/Mutex.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

/// Long work, one piece after the other on a thread of its own, with progress and cancel.
///
/// Threads: any, but one at a time for `push` and the destructor.
class JobQueue
{
public:
    /// What a piece of work is told and tells.
    class Control
    {
    public:
        /// End soon, and leave nothing half done.
        const std::atomic<bool>& cancelled() const { return _cancelled; }

        void report(const VelBrx::BuildProgress& progress);

        uint64_t id() const { return _id; }

    private:
        friend class JobQueue;

        uint64_t _id = 0;
        std::atomic<bool> _cancelled{false};
        std::atomic<const char*> _stage{""};
        std::atomic<float> _share{0};
    };

    /// Must not throw.
    using Work = std::function<void(Control& control)>;

    /// For people.
    struct State
    {
        uint64_t id;
        std::string title;
        std::string stage;        ///< what is being done; empty while it waits
        float share = 0;          ///< that is done, 0 to 1
        bool isCancelled = false; ///< and has not ended yet
    };

    JobQueue();

    /// Cancels all, and waits for what runs.
    ~JobQueue();
    JobQueue(const JobQueue&) = delete;
    JobQueue& operator=(const JobQueue&) = delete;

    void push(const std::string& title, Work work);

    /// Of one that waits, or runs; unknown ids are ignored.
    void cancel(uint64_t id);

    /// What runs, then what waits. Cheap where nothing does.
    std::vector<State> states() const;
    bool isIdle() const;

private:
    struct Job
    {
        uint64_t id;
        std::string title;
        Work work;
        std::unique_ptr<Control> control = std::make_unique<Control>();
    };

    void run();

    mutable VelThreads::Mutex _mutex;
    VelThreads::Condition _changed;
    std::deque<Job> _jobs VEL_GUARDED_BY(_mutex); ///< the first is running
    uint64_t _lastId VEL_GUARDED_BY(_mutex) = 0;
    bool _ends VEL_GUARDED_BY(_mutex) = false;
    std::thread _thread; ///< uses the others
};
