#include <VelOsgDBBrx/TaskManager.h>

#include <VelOsgUtils/ThreadCount.h>

#include <condition_variable>

namespace VelOsgDBBrx {

namespace {

std::mutex lifeMutex; ///< serialises start and stop

std::mutex queueMutex;
std::condition_variable queueSignal;
bool stopped = true; ///< guarded by queueMutex

using Lock = std::lock_guard<std::mutex>;

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
    const Lock lock(queueMutex);
    _queue = other._queue;
}

TaskManager& TaskManager::operator=(const TaskManager& other)
{
    std::queue<osg::ref_ptr<Task>> replaced; // released outside the lock
    const Lock lock(queueMutex);
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
        const Lock lock(queueMutex);
        _queue.push(std::move(task));
    }
    queueSignal.notify_one();
    return true;
}

void TaskManager::start()
{
    const Lock life(lifeMutex);
    {
        const Lock lock(queueMutex);
        if (!stopped) return;
        stopped = false;
    }
    _worker = std::make_unique<std::thread>([this] { run(); });
}

void TaskManager::stop()
{
    const Lock life(lifeMutex);
    if (!_worker) return; // the one that runs is another instance's
    {
        const Lock lock(queueMutex);
        stopped = true;
    }
    queueSignal.notify_all();
    _worker->join();
    _worker.reset();
    clear();
}

void TaskManager::clear()
{
    std::queue<osg::ref_ptr<Task>> released; // outside the lock: a task's end may push
    const Lock lock(queueMutex);
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
    std::unique_lock<std::mutex> lock(queueMutex);
    queueSignal.wait(lock, [this] { return stopped || !_queue.empty(); });
    if (stopped) return nullptr;
    osg::ref_ptr<Task> task = std::move(_queue.front());
    _queue.pop();
    return task;
}

} // namespace VelOsgDBBrx
