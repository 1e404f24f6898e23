#pragma once

#include <VelBrx/BuildProgress.h>

#include "store/io/ParallelFor.h"

#include <atomic>
#include <new>
#include <string>

namespace VelBrx {

/// The status of `work()`, which makes a file: where it was cancelled or ran out of memory, a line about
/// `output` that says so. `advice` follows "there is not enough memory".
template <typename Work>
Status runToFile(const std::string& output, const char* advice, const Work& work)
{
    try {
        const Status status = work();
        if (status.kind() == Status::Kind::CANCELLED)
            return Status::failure(output + ": cancelled; nothing was written", Status::Kind::CANCELLED);
        return status;
    } catch (const std::bad_alloc&) {
        return Status::failure(output + ": there is not enough memory" + advice, Status::Kind::NO_MEMORY);
    }
}

/// Threads, cancellation and progress of long work on a store: a build, an export. Made and used on the
/// caller's thread, except `done` and `step`.
class ParallelRun
{
public:
    using Report = std::function<void(const BuildProgress&)>;

    /// 0 threads stand for all processors, `cancel` may be null.
    ParallelRun(unsigned threads, Report progress, const std::atomic<bool>* cancel)
        : _progress(std::move(progress)), _cancel(cancel),
          _threads(threads ? threads : std::max(1u, std::thread::hardware_concurrency()))
    {
    }

    unsigned threads() const { return _threads; }

    /// The work goes `passes` times over each of `points` points.
    void setTotal(uint64_t points, unsigned passes = 1)
    {
        _total = points;
        _passes = passes;
    }

    void begin(const char* stage)
    {
        _stage = stage;
        report();
    }

    /// Counts points as done. Any thread.
    void done(uint64_t points) { _done += points; }

    /// `done` within a long task, which ends with the failure when the build is cancelled. Any thread.
    Status step(uint64_t points)
    {
        done(points);
        return _cancel && *_cancel ? cancelled() : Status();
    }

    /// `parallelFor` that reports progress and ends early when the build is cancelled.
    template <typename Task>
    Status forEach(size_t count, const Task& task)
    {
        static const std::atomic<bool> never{false};
        return parallelFor(_threads, count, _cancel ? *_cancel : never, task, [this] { report(); });
    }

private:
    void report() const
    {
        if (_progress) _progress({_stage, _done / _passes, _total});
    }

    const Report _progress;
    const std::atomic<bool>* const _cancel;
    unsigned _threads;
    const char* _stage = "";
    uint64_t _total = 0;
    unsigned _passes = 1;
    std::atomic<uint64_t> _done{0};
};

} // namespace VelBrx
