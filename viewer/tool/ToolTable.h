#pragma once

#include "viewer/tool/BrushTool.h"
#include "viewer/tool/ShapeTools.h"

#include <memory>
#include <optional>
#include <vector>

/// What tools keep from one use to the next. One for a window, on the viewer's thread.
struct ToolSettings
{
    BrushSize brush;
    double growDistance = 0; ///< units of the world; 0: three times the mean distance of points
    std::optional<double> growAngle = 15.0; ///< degrees
    int growLimit = 1000000;                ///< points
};

/// A tool as people find it.
struct ToolKind
{
    const char* name;  ///< on its button
    int key;           ///< in edit mode
    const char* words; ///< for the list of keys
    std::unique_ptr<Tool> (*make)(ToolSettings&);
};

/// Every tool, each declared once: keys, panel and help follow from it.
const std::vector<ToolKind>& toolTable();

/// Null where there is none with this key.
const ToolKind* findTool(int key);
