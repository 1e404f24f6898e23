#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>

#include <osg/ref_ptr>

#include <vector>

namespace VelOsgDBBrx {

/// Undoes the newest saved command. It does nothing when there is none, and cannot itself be undone.
/// `getResult` adds up what the undone commands report. A command whose undo met a full disk
/// (`CmdResult::cellsUnwritten`) stays saved, with what is left to undo.
class VEL_OSGDB_BRX_EXPORT UndoCmd : public BaseCmd
{
public:
    explicit UndoCmd(int barrierCount);

    void operator()(CullCmdManager* manager) override;
    void reset(CullCmdManager* manager) override;

protected:
    ~UndoCmd() override = default;

    /// Undoes the newest saved command and adds its report to this one's; false when there is none.
    bool undoNewest(CullCmdManager* manager);

private:
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
