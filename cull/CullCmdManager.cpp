#include <VelOsgDBBrx/CullCmdManager.h>

#include "loading/OpenOctrees.h"

#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <chrono>

namespace VelOsgDBBrx {

namespace {

thread_local bool isWorker = false;

} // namespace

CullCmdManager* CullCmdManager::getInstance()
{
    static CullCmdManager manager;
    return &manager;
}

CullCmdManager::CullCmdManager()
{
    // The worker uses these registries: constructed before this object, they are destroyed after it.
    findOpenOctree({});
    PCDataManager::getInstance();
    PCViewerManager::getInstance();
    _worker = std::thread([this] {
        const VelOsgUtils::ThreadCount::Scope counted;
        isWorker = true;
        run();
        const VelThreads::Lock lock(_mutex);
        _workerEnded = true;
    });
}

CullCmdManager::~CullCmdManager()
{
    shutdown();
}

bool CullCmdManager::isWorkerThread()
{
    return isWorker;
}

void CullCmdManager::push(BaseCmd* cmd)
{
    if (!cmd) return;
    const osg::ref_ptr<BaseCmd> held = cmd;
    held->prepare();
    {
        const VelThreads::Lock lock(_mutex);
        if (!_done) {
            held->_reachedBarrier = false;
            held->setState(CmdResult::WAITING);
            _queue.push_back(held);
            _condition.notifyAll();
            return;
        }
    }
    abandon(*held);
}

osg::ref_ptr<BaseCmd> CullCmdManager::pop()
{
    if (_undoStack.empty()) return nullptr;
    osg::ref_ptr<BaseCmd> newest = _undoStack.back();
    _undoStack.pop_back();
    return newest;
}

void CullCmdManager::setPixelBufferTool(PixelBufferTool* tool)
{
    osg::ref_ptr<PixelBufferTool> released = tool; // the old one dies after the lock is free
    const VelThreads::Lock lock(_mutex);
    _pixelBufferTool.swap(released);
}

PixelBufferTool* CullCmdManager::getPixelBufferTool()
{
    const VelThreads::Lock lock(_mutex);
    return _pixelBufferTool.get();
}

osg::ref_ptr<PixelBufferTool> CullCmdManager::acquirePixelBufferTool() const
{
    const VelThreads::Lock lock(_mutex);
    return _pixelBufferTool;
}

osg::ref_ptr<BaseCmd> CullCmdManager::takeNext()
{
    const VelThreads::Lock lock(_mutex);
    _running = nullptr;
    while (_queue.empty() && !_done)
        _condition.wait(_mutex);
    if (_done) return nullptr;
    _running = _queue.front();
    _queue.pop_front();
    return _running;
}

void CullCmdManager::run()
{
    while (const osg::ref_ptr<BaseCmd> cmd = takeNext()) {
        (*cmd)(this);
        if (cmd->isSave()) _undoStack.push_back(cmd);
    }
}

void CullCmdManager::abandon(BaseCmd& cmd)
{
    cmd.setState(CmdResult::ABANDONED);
    cmd.invalidate();
}

void CullCmdManager::shutdown()
{
    const VelThreads::Lock oneAtATime(_shutdownMutex);
    if (!_worker.joinable()) return;

    std::deque<osg::ref_ptr<BaseCmd>> abandoned;
    {
        const VelThreads::Lock lock(_mutex);
        _done = true;
        abandoned.swap(_queue);
        _condition.notifyAll();
    }
    for (const osg::ref_ptr<BaseCmd>& cmd : abandoned)
        abandon(*cmd);

    // The running command may have done its work and stand at its barrier, waiting for a caller who never
    // comes.
    for (bool ended = false; !ended;) {
        osg::ref_ptr<BaseCmd> running;
        {
            const VelThreads::Lock lock(_mutex);
            ended = _workerEnded;
            running = _running;
        }
        if (running && running->hasReachedBarrier()) running->invalidate();
        if (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    _worker.join();
    _undoStack.clear();
}

} // namespace VelOsgDBBrx
