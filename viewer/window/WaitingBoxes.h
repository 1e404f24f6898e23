#pragma once

#include "viewer/edit/Sight.h"
#include "viewer/scene/Scene.h"

#include <vector>

/// What the pictures show, for those who ask which stores are in them.
std::vector<ViewVolume> volumesOf(const std::vector<Sight>& sights);

/// Boxes where stores are that are in the pictures and not open yet: those that are opened next, and one
/// around all. With Dear ImGui, in a part of `Gui`.
void drawWaitingBoxes(const Scene& scene, const std::vector<Sight>& sights, float unit);
