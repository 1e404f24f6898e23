#include <VelOsgDBBrx/UndoCmd.h>

#include <VelOsgDBBrx/CullCmdManager.h>

namespace VelOsgDBBrx {

UndoCmd::UndoCmd(int barrierCount) : UndoCmd(barrierCount, nullptr) {}

UndoCmd::UndoCmd(int barrierCount, BaseCmd* cmd) : BaseCmd(barrierCount, false), _cmd(cmd) {}

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
    if (_cmd)
        undo(*_cmd, manager);
    else
        undoNewest(manager);
}

bool UndoCmd::undo(BaseCmd& cmd, CullCmdManager* manager)
{
    cmd.reset(manager);
    const CmdResult undone = cmd.getResult();
    _undone.add(undone);
    return undone.cellsUnwritten == 0;
}

bool UndoCmd::undoNewest(CullCmdManager* manager)
{
    const osg::ref_ptr<BaseCmd> newest = manager->pop();
    if (!newest) return false;
    if (!undo(*newest, manager)) _unfinished.push_back(newest);
    return true;
}

AllUndoCmd::AllUndoCmd(int barrierCount) : UndoCmd(barrierCount) {}

void AllUndoCmd::reset(CullCmdManager* manager)
{
    while (undoNewest(manager)) {
    }
}

} // namespace VelOsgDBBrx
