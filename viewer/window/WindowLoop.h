#pragma once

#include "viewer/window/WindowParts.h"

/// Draws while something changes, until the window is closed or the program is told to end; a still picture
/// costs next to nothing. On the viewer's thread.
void drawUntilDone(WindowParts& parts);
