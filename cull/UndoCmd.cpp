#include <VelOsgDBBrx/UndoCmd.h>

#include <VelOsgDBBrx/CullCmdManager.h>

namespace VelOsgDBBrx {

UndoCmd::UndoCmd(int barrierCount) : BaseCmd(barrierCount, false) {}

void UndoCmd::operator()(CullCmdManager* manager)
{
    _undone = {};
    reset(manager);
    for (; !_unfinished.empty(); _unfinished.pop_back())
        manager->saveAgain(*_unfinished.back());
    report(_undone);
    block(0);
}

void UndoCmd::reset(CullCmdManager* manager)
{
    undoNewest(manager);
}

bool UndoCmd::undoNewest(CullCmdManager* manager)
{
    const osg::ref_ptr<BaseCmd> newest = manager->pop();
    if (!newest) return false;
    newest->reset(manager);
    const CmdResult undone = newest->getResult();
    _undone.add(undone);
    if (undone.cellsUnwritten > 0) _unfinished.push_back(newest);
    return true;
}

AllUndoCmd::AllUndoCmd(int barrierCount) : UndoCmd(barrierCount) {}

void AllUndoCmd::reset(CullCmdManager* manager)
{
    while (undoNewest(manager)) {
    }
}

} // namespace VelOsgDBBrx
