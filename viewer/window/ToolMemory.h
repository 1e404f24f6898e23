#pragma once

#include "viewer/operation/Operation.h"
#include "viewer/settings/Settings.h"
#include "viewer/window/ToolUse.h"

/// \name What tools were left like, from one window to the next
/// The size of the brush, what growth does, the last tool, and what edits leave out: the depth, and ranges of
/// attributes but those of heights and times, which are of one survey. On the viewer's thread.
/// @{

/// What the settings do not have, or have wrongly, stays as it is.
void recallTools(const Settings& settings, ToolUse& tools, const Stage& stage);

void keepTools(const ToolUse& tools, const Scene& scene, Settings& settings);
/// @}
