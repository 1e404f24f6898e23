#include <VelOsgDBBrx/TaskManager.h>

#include "osgutils/QueueWorker.h"

#include <VelThreads/Mutex.h>

namespace VelOsgDBBrx {

namespace {

VelThreads::Mutex lifeMutex; ///< serialises start and stop
const TaskManager* running VEL_GUARDED_BY(lifeMutex) = nullptr;

} // namespace

TaskManager* TaskManager::getInstance()
{
    static TaskManager manager;
    return &manager;
}

TaskManager::TaskManager() : _worker(std::make_unique<Worker>([this] { run(); }))
{
    start();
}

TaskManager::TaskManager(const TaskManager& other) : _worker(std::make_unique<Worker>([this] { run(); }))
{
    *this = other;
}

TaskManager& TaskManager::operator=(const TaskManager& other)
{
    if (this == &other) return *this;
    clear();
    for (auto tasks = other._worker->copyWaiting(); !tasks.empty(); tasks.pop())
        push(tasks.front());
    return *this;
}

TaskManager::~TaskManager()
{
    stop();
}

bool TaskManager::push(osg::ref_ptr<Task> task)
{
    if (task) _worker->push(std::move(task));
    return true;
}

void TaskManager::start()
{
    const VelThreads::Lock life(lifeMutex);
    if (running) return;
    running = this;
    _worker->start();
}

void TaskManager::stop()
{
    const VelThreads::Lock life(lifeMutex);
    if (running != this) return;
    _worker->stop();
    running = nullptr;
    clear();
}

void TaskManager::clear()
{
    _worker->takeWaiting();
}

std::queue<osg::ref_ptr<Task>>& TaskManager::getAllTask()
{
    return _worker->waiting();
}

void TaskManager::run()
{
    osg::ref_ptr<Task> task;
    while (_worker->take(task))
        task->run();
}

} // namespace VelOsgDBBrx
