#include <VelOsgDBBrx/BaseCmd.h>

#include <VelOsgDBBrx/CullCmdManager.h>

#include <algorithm>

namespace VelOsgDBBrx {

void CmdResult::add(const CmdResult& other)
{
    if (other.state == ABANDONED) state = ABANDONED;
    pointsChanged += other.pointsChanged;
    cellsUnreadable += other.cellsUnreadable;
    storesReadOnly += other.storesReadOnly;
    storesBusy += other.storesBusy;
    cellsUnwritten += other.cellsUnwritten;
    storesGone += other.storesGone;
    storesReplaced += other.storesReplaced;
    storesNotJournalled += other.storesNotJournalled;
    maskMissing = maskMissing || other.maskMissing;
    if (reason.empty()) reason = other.reason;
}

/// A barrier for no thread would never open.
BaseCmd::BaseCmd(int barrierCount, bool save) : OpenThreads::Barrier(std::max(barrierCount, 1)), _save(save)
{
}

BaseCmd::~BaseCmd() = default;

void BaseCmd::block(unsigned int numThreads)
{
    if (CullCmdManager::isWorkerThread()) _reachedBarrier = true;
    OpenThreads::Barrier::block(numThreads);
}

CmdResult BaseCmd::getResult() const
{
    const VelThreads::Lock guard(_resultMutex);
    return _result;
}

void BaseCmd::report(CmdResult result)
{
    result.state = CmdResult::DONE;
    const VelThreads::Lock guard(_resultMutex);
    _result = result;
}

void BaseCmd::setState(CmdResult::State state)
{
    const VelThreads::Lock guard(_resultMutex);
    _result.state = state;
}

} // namespace VelOsgDBBrx
