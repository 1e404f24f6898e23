#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Referenced>
#include <osg/ref_ptr>

#include <memory>
#include <queue>

namespace VelOsgUtils {
template <class Item>
class QueueWorker;
}

namespace VelOsgDBBrx {

/// A piece of a host's work for the `TaskManager`.
class VEL_OSGDB_BRX_EXPORT Task : public osg::Referenced
{
public:
    /// Runs on the worker thread. An exception that leaves it ends the process.
    virtual void run() = 0;

protected:
    ~Task() override = default;
};

/// A process-wide worker that runs the host's tasks one after the other, in the order in which they were
/// pushed. The library's own paging does not use it.
///
/// Threads: any, except for `getAllTask`; a task may push further tasks. A copy has the queued tasks and no
/// worker: at most one instance in the process has one.
class VEL_OSGDB_BRX_EXPORT TaskManager
{
public:
    /// The running instance; the worker starts with the first call.
    static TaskManager* getInstance();

    TaskManager(const TaskManager& other);
    TaskManager& operator=(const TaskManager& other);
    ~TaskManager();

    /// Queues a task; null is ignored. Always true.
    bool push(osg::ref_ptr<Task> task);

    /// Starts the worker unless one runs.
    void start();

    /// Waits for the task that runs, ends the worker, and releases queued tasks without running them. Not
    /// from within a task.
    void stop();

    /// Releases the queued tasks without running them.
    void clear();

    /// The queue itself, without a lock: only for a stopped manager.
    std::queue<osg::ref_ptr<Task>>& getAllTask();

private:
    TaskManager();

    using Worker = VelOsgUtils::QueueWorker<osg::ref_ptr<Task>>;

    void run();

    const std::unique_ptr<Worker> _worker;
};

} // namespace VelOsgDBBrx
