#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/PixelBufferTool.h>
#include <VelThreads/Mutex.h>

#include <OpenThreads/Thread>
#include <osg/ref_ptr>

#include <deque>
#include <memory>

namespace VelOsgUtils {
template <class Item>
class QueueWorker;
}

namespace VelOsgDBBrx {

/// The one worker that runs editing commands, one at a time and in the order in which they were pushed, and
/// the stack of those that can be undone.
///
/// Lifetime: from the first `getInstance` to process exit, or to `shutdown`. At exit the command that runs is
/// finished, so that no edit is left half done; commands still queued are abandoned, and every caller that
/// waits for one, now or later, returns from `block` at once.
class VEL_OSGDB_BRX_EXPORT CullCmdManager : public OpenThreads::Thread
{
public:
    static CullCmdManager* getInstance();

    CullCmdManager(const CullCmdManager&) = delete;
    CullCmdManager& operator=(const CullCmdManager&) = delete;

    /// Queues a command, held from then on. Null is ignored. Never waits. After a shutdown the command is
    /// abandoned at once.
    ///
    /// The command acts on its clouds where they stand in the scene at this moment, whether or not a frame
    /// was drawn since they came there, and wherever they are when the worker comes to it. Any thread may
    /// call it while nobody adds, moves or removes the nodes above the clouds: the thread that draws, between
    /// frames or in the event and update traversals, always may.
    virtual void push(BaseCmd* cmd);

    /// Takes the newest saved command from the undo stack; empty when there is none. Only for commands that
    /// run on the worker.
    osg::ref_ptr<BaseCmd> pop();

    /// The source of polygon masks for the commands that start to run from now on; held, null for none. Any
    /// thread may call it.
    void setPixelBufferTool(PixelBufferTool* tool);
    PixelBufferTool* getPixelBufferTool();

    /// Like `getPixelBufferTool`, with the reference taken under the lock.
    osg::ref_ptr<PixelBufferTool> acquirePixelBufferTool() const;

    /// Ends the worker: finishes the command that runs, abandons the queued ones, and returns when the thread
    /// has ended. For hosts that want this before process exit; not from a command. Further calls do nothing.
    void shutdown();

    /// Whether the calling thread is the worker.
    static bool isWorkerThread();

protected:
    void run() override;

private:
    friend class UndoCmd;
    CullCmdManager();
    ~CullCmdManager() override;

    void setRunning(BaseCmd* cmd);
    void releaseRunning();
    void saveAgain(BaseCmd& cmd) { _undoStack.push_back(&cmd); }
    void abandon(BaseCmd& cmd);

    std::deque<osg::ref_ptr<BaseCmd>> _undoStack; ///< touched by the worker only
    mutable VelThreads::Mutex _mutex;
    osg::ref_ptr<BaseCmd> _running VEL_GUARDED_BY(_mutex);
    osg::ref_ptr<PixelBufferTool> _pixelBufferTool VEL_GUARDED_BY(_mutex);
    std::unique_ptr<VelOsgUtils::QueueWorker<osg::ref_ptr<BaseCmd>>> _worker;
};

} // namespace VelOsgDBBrx
