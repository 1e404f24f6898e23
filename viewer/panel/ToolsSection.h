#pragma once

#include "viewer/edit/ClassChoice.h"
#include "viewer/operation/Operation.h"
#include "viewer/tool/ToolDesk.h"

#include <VelOsgDBBrx/Category.h>

#include <functional>
#include <optional>

/// The tools, what they leave out, and what becomes of the points under them.
///
/// Threads: the viewer's.
class ToolsSection
{
public:
    using Counts = std::function<const std::optional<VelOsgDBBrx::CategoryCounts>&()>;

    /// What `stage` and `choice` name outlives it, and so does the desk's owner. `counts`: the classes that
    /// the last operation reached.
    ToolsSection(const Stage& stage, const ClassChoice& choice, ToolDesk desk, Counts counts);

    void draw();

private:
    void drawTools();
    void drawSettings();
    void drawActions();
    void drawDepth();
    void drawRanges();
    void drawRange(size_t range);
    void drawCounts();

    const Stage _stage;
    const ClassChoice& _choice;
    const ToolDesk _desk;
    const Counts _counts;
};
