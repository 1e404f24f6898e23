#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <OpenThreads/Barrier>
#include <osg/Referenced>

#include <atomic>
#include <cstdint>
#include <string>

namespace VelOsgDBBrx {

class CullCmdManager;

/// What a command did. After an undo, the undone command's result says what the undo did.
struct VEL_OSGDB_BRX_EXPORT CmdResult
{
    enum State
    {
        WAITING,  ///< queued or running
        DONE,     ///< has run
        ABANDONED ///< never run: the manager was shut down first
    };

    State state = WAITING;
    uint64_t pointsChanged = 0;   ///< points whose hidden bits changed in a store
    uint64_t cellsUnreadable = 0; ///< cells left out, whole or in part: their records could not be mapped
    unsigned storesReadOnly = 0;  ///< stores left unchanged because their file cannot be written
    unsigned storesBusy = 0;      ///< stores left unchanged because another process edits them
    uint64_t cellsUnwritten =
        0;                   ///< cells that were changed in part or not at all: their file took no more bytes
    unsigned storesGone = 0; ///< stores that had been deleted before the command ran
    /// Stores left unchanged because their path no longer leads to the file that is open: it was built anew,
    /// replaced, moved or removed, and what is changed in the open file would be lost.
    unsigned storesReplaced = 0;
    /// Stores left unchanged because the edit could not be written into their journal; see EditJournalling.
    unsigned storesNotJournalled = 0;
    bool maskMissing = false; ///< no mask of the polygon or line could be had; nothing was changed or found
    /// One line on the first store that is busy, replaced, not journalled, or took no more bytes; it names
    /// the store.
    std::string reason;

    /// Adds the numbers of another command.
    void add(const CmdResult& other);
};

/// A command for `CullCmdManager`, and the barrier on which its caller waits for it.
///
///     osg::ref_ptr<CullCmd> cmd = new CullCmd(2); // 2: the caller waits; 1: nobody does
///     cmd->setPolygon(polygon); ...
///     CullCmdManager::getInstance()->push(cmd);
///     cmd->block();                               // returns once the command has run
///     cmd->getResult().pointsChanged;
///
/// A command with a barrier count of 2 whose caller never calls `block` holds up every command behind it.
///
/// Threads: a client sets a command up before it pushes it, and touches it again after `block` has returned;
/// `block` and `getResult` may be called at any time from any thread. `operator()` and
/// `reset(CullCmdManager*)` run on the manager's worker only.
class VEL_OSGDB_BRX_EXPORT BaseCmd : public OpenThreads::Barrier, public osg::Referenced
{
public:
    using OpenThreads::Barrier::reset;

    /// Waits like its base. On the worker it also notes that the command has done its work, so that a
    /// shutdown can distinguish a command that runs from one that only waits for its caller.
    void block(unsigned int numThreads = 0) override;

    /// Performs the command; the last thing it does to the caller is `block(0)`.
    virtual void operator()(CullCmdManager* manager) = 0;

    /// Undoes what `operator()` did.
    virtual void reset(CullCmdManager* manager) = 0;

    /// Whether the manager keeps the command for undo once it has run.
    bool isSave() const { return _save; }

    CmdResult getResult() const;

protected:
    /// `barrierCount`: how many threads meet at the barrier, the worker included; 1, or less, blocks nobody.
    /// `save`: whether the manager keeps the command for undo.
    explicit BaseCmd(int barrierCount, bool save = false);
    ~BaseCmd() override;

    /// Notes what the command needs of the moment when it is pushed, such as where clouds stand in the world.
    /// Called by `CullCmdManager::push` on its caller's thread.
    virtual void prepare() {}

    /// Stores what the command did, as DONE. Called on the worker before `block(0)`.
    void report(CmdResult result);

private:
    friend class CullCmdManager;
    void setState(CmdResult::State state);
    bool hasReachedBarrier() const { return _reachedBarrier; }

    const bool _save;
    std::atomic<bool> _reachedBarrier{false};
    mutable VelThreads::Mutex _resultMutex;
    CmdResult _result VEL_GUARDED_BY(_resultMutex);
};

} // namespace VelOsgDBBrx
