#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>

#include <osg/ref_ptr>

#include <vector>

namespace VelOsgDBBrx {

/// Undoes the newest saved command, or one that the host has kept. It does nothing when there is none, and
/// cannot itself be undone. `getResult` adds up what the undone commands report. A command whose undo met a
/// full disk (`CmdResult::cellsUnwritten`) stays saved, with what is left to undo; so does that of the host,
/// which can be undone again.
class VEL_OSGDB_BRX_EXPORT UndoCmd : public BaseCmd
{
public:
    explicit UndoCmd(int barrierCount);

    /// Undoes `cmd`, which was pushed before and is held from now on: for hosts that keep edits of several
    /// kinds in one order of their own. Make `cmd` one that the manager does not save.
    UndoCmd(int barrierCount, BaseCmd* cmd);

    void operator()(CullCmdManager* manager) override;
    void reset(CullCmdManager* manager) override;

protected:
    ~UndoCmd() override = default;

    /// Undoes a command and adds its report to this one's. False when something is left to undo.
    bool undo(BaseCmd& cmd, CullCmdManager* manager);

    /// Undoes the newest saved command and adds its report to this one's; false when there is none.
    bool undoNewest(CullCmdManager* manager);

private:
    const osg::ref_ptr<BaseCmd> _cmd; ///< null: the newest saved one

    /// \name Touched by the worker only
    /// @{
    CmdResult _undone;                              ///< what has been undone so far
    std::vector<osg::ref_ptr<BaseCmd>> _unfinished; ///< to be saved again; the newest first
    /// @}
};

/// Undoes every saved command, newest first.
class VEL_OSGDB_BRX_EXPORT AllUndoCmd : public UndoCmd
{
public:
    explicit AllUndoCmd(int barrierCount);

    void reset(CullCmdManager* manager) override;

protected:
    ~AllUndoCmd() override = default;
};

} // namespace VelOsgDBBrx
