#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>

namespace VelOsgDBBrx {

/// Undoes the newest saved command. It does nothing when there is none, and cannot itself be undone.
/// `getResult` adds up what the undone commands report.
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
    CmdResult _undone; ///< what has been undone so far; touched by the worker only
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
