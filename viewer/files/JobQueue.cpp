#include "viewer/files/JobQueue.h"

#include <utility>

void JobQueue::Control::report(const VelBrx::BuildProgress& progress)
{
    _stage = progress.stage;
    if (progress.pointsTotal > 0)
        _share = static_cast<float>(static_cast<double>(progress.pointsDone) /
                                    static_cast<double>(progress.pointsTotal));
}

JobQueue::JobQueue() : _thread([this] { run(); }) {}

JobQueue::~JobQueue()
{
    {
        const VelThreads::Lock lock(_mutex);
        _ends = true;
        for (Job& job : _jobs)
            job.control->_cancelled = true;
        _changed.notifyAll();
    }
    _thread.join();
}

void JobQueue::push(const std::string& title, Work work)
{
    const VelThreads::Lock lock(_mutex);
    _jobs.push_back({++_lastId, title, std::move(work)});
    _jobs.back().control->_id = _lastId;
    _changed.notifyAll();
}

void JobQueue::cancel(uint64_t id)
{
    const VelThreads::Lock lock(_mutex);
    for (Job& job : _jobs)
        if (job.id == id) job.control->_cancelled = true;
}

std::vector<JobQueue::State> JobQueue::states() const
{
    const VelThreads::Lock lock(_mutex);
    std::vector<State> states;
    for (const Job& job : _jobs)
        states.push_back(
            {job.id, job.title, job.control->_stage.load(), job.control->_share, job.control->_cancelled});
    return states;
}

bool JobQueue::isIdle() const
{
    const VelThreads::Lock lock(_mutex);
    return _jobs.empty();
}

/// What is cancelled while it waits runs all the same: its work says what becomes of it.
void JobQueue::run()
{
    while (true) {
        Work work;
        Control* control = nullptr;
        {
            const VelThreads::Lock lock(_mutex);
            while (_jobs.empty() && !_ends)
                _changed.wait(_mutex);
            if (_ends) return;
            work = _jobs.front().work;
            control = _jobs.front().control.get();
        }
        work(*control);
        const VelThreads::Lock lock(_mutex);
        _jobs.pop_front();
    }
}
