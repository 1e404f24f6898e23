#pragma once

#include "viewer/tool/ToolTable.h"

#include <functional>
#include <string>
#include <vector>

/// What a panel needs of the one who holds the tools. Belongs to the viewer's thread.
struct ToolDesk
{
    ToolSettings& settings;

    std::function<void(const ToolKind&)> take;

    /// The tool in hand; null where there is none.
    std::function<const ToolKind*()> kind;
};
