#include <VelOsgDBBrx/TaskManager.h>

#include <VelOsgUtils/ThreadCount.h>
#include <VelThreads/Mutex.h>

namespace VelOsgDBBrx {

namespace {

VelThreads::Mutex lifeMutex; ///< serialises start and stop

VelThreads::Mutex queueMutex;
VelThreads::Condition queueSignal;
bool stopped = true;

} // namespace

TaskManager* TaskManager::getInstance()
{
    static TaskManager manager;
    return &manager;
}

TaskManager::TaskManager()
{
    start();
}

TaskManager::TaskManager(const TaskManager& other)
{
    const VelThreads::Lock lock(queueMutex);
    _queue = other._queue;
}

TaskManager& TaskManager::operator=(const TaskManager& other)
{
    std::queue<osg::ref_ptr<Task>> replaced; // released outside the lock
    const VelThreads::Lock lock(queueMutex);
    if (this == &other) return *this;
    replaced = other._queue;
    _queue.swap(replaced);
    return *this;
}

TaskManager::~TaskManager()
{
    stop();
}

bool TaskManager::push(osg::ref_ptr<Task> task)
{
    if (!task) return true;
    {
        const VelThreads::Lock lock(queueMutex);
        _queue.push(std::move(task));
    }
    queueSignal.notifyOne();
    return true;
}

void TaskManager::start()
{
    const VelThreads::Lock life(lifeMutex);
    {
        const VelThreads::Lock lock(queueMutex);
        if (!stopped) return;
        stopped = false;
    }
    _worker = std::make_unique<std::thread>([this] { run(); });
}

void TaskManager::stop()
{
    const VelThreads::Lock life(lifeMutex);
    if (!_worker) return; // the one that runs is another instance's
    {
        const VelThreads::Lock lock(queueMutex);
        stopped = true;
    }
    queueSignal.notifyAll();
    _worker->join();
    _worker.reset();
    clear();
}

void TaskManager::clear()
{
    std::queue<osg::ref_ptr<Task>> released; // outside the lock: a task's end may push
    const VelThreads::Lock lock(queueMutex);
    _queue.swap(released);
}

std::queue<osg::ref_ptr<Task>>& TaskManager::getAllTask()
{
    return _queue;
}

void TaskManager::run()
{
    const VelOsgUtils::ThreadCount::Scope scope;
    while (const osg::ref_ptr<Task> task = waitForTask())
        task->run();
}

/// Null when the manager is stopped.
osg::ref_ptr<Task> TaskManager::waitForTask()
{
    const VelThreads::Lock lock(queueMutex);
    while (!stopped && _queue.empty())
        queueSignal.wait(queueMutex);
    if (stopped) return nullptr;
    osg::ref_ptr<Task> task = std::move(_queue.front());
    _queue.pop();
    return task;
}

} // namespace VelOsgDBBrx
