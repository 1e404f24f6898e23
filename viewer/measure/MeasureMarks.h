#pragma once

#include "viewer/edit/Sight.h"
#include "viewer/measure/Measuring.h"

#include <vector>

/// Draws what is measured, and was, over the pictures: points, lines and figures, hidden by nothing. A part
/// of `Gui`: on the viewer's thread, while Dear ImGui may be called. `unit` is that of `Gui`.
void drawMeasureMarks(const Measuring& measuring, const std::vector<Sight>& sights, float unit);
