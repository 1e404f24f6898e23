#include <VelOsgDBBrx/CullCmdManager.h>

#include "loading/OpenOctrees.h"
#include "osgutils/QueueWorker.h"

#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>

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
    : _worker(std::make_unique<VelOsgUtils::QueueWorker<osg::ref_ptr<BaseCmd>>>([this] { run(); }))
{
    // The worker uses these registries: constructed before this object, they are destroyed after it.
    findOpenOctree({});
    PCDataManager::getInstance();
    PCViewerManager::getInstance();
    _worker->start();
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
    held->_reachedBarrier = false;
    held->setState(CmdResult::WAITING);
    if (!_worker->push(held)) abandon(*held);
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

void CullCmdManager::run()
{
    isWorker = true;
    osg::ref_ptr<BaseCmd> cmd;
    while (_worker->take(cmd)) {
        setRunning(cmd);
        (*cmd)(this);
        if (cmd->isSave()) _undoStack.push_back(cmd);
        setRunning(nullptr);
    }
    _undoStack.clear();
}

void CullCmdManager::setRunning(BaseCmd* cmd)
{
    osg::ref_ptr<BaseCmd> released = cmd; // the old one dies after the lock is free
    const VelThreads::Lock lock(_mutex);
    _running.swap(released);
}

/// The running command may have done its work and stand at its barrier, waiting for a caller who never comes.
void CullCmdManager::releaseRunning()
{
    osg::ref_ptr<BaseCmd> running;
    {
        const VelThreads::Lock lock(_mutex);
        running = _running;
    }
    if (running && running->hasReachedBarrier()) running->invalidate();
}

void CullCmdManager::abandon(BaseCmd& cmd)
{
    cmd.setState(CmdResult::ABANDONED);
    cmd.invalidate();
}

void CullCmdManager::shutdown()
{
    _worker->close([this](const osg::ref_ptr<BaseCmd>& cmd) { abandon(*cmd); });
    _worker->stop([this] { releaseRunning(); });
}

} // namespace VelOsgDBBrx
