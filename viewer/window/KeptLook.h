#pragma once

#include "viewer/scene/Options.h"
#include "viewer/scene/Scene.h"
#include "viewer/settings/Settings.h"

/// \name How points looked in the last window, and in the next one
/// Size, light, shading, background, palette, and what may be drawn. What goes with a survey is not kept: its
/// colours, what they span, and what is hidden.
/// @{

/// What options are before the command line says otherwise. What is kept and no option could have is left
/// out.
void recallLook(const Settings& settings, Options& options);

/// What no option has.
void recallLook(const Settings& settings, Scene& scene);

void keepLook(const Scene& scene, Settings& settings);
/// @}
