#pragma once

#include "viewer/camera/SectionFrame.h"

#include <osg/Camera>

#include <string>

/// What is drawn over pictures where a section is shown, with Dear ImGui on the background of a part of
/// `Gui`. `unit` as of `Gui`.
/// @{

/// Distances and heights along the edges, a scale bar, the letters A and A' of the ends, width and
/// exaggeration, over the camera that shows the frame. `symbol`: of the unit of lengths, "m"; empty where
/// nobody states it.
void drawSectionScale(const SectionFrame& frame, const osg::Camera& camera, const std::string& symbol,
                      float unit);

/// The strip on the map, at the height of the section's middle, over a camera that looks at the world: its
/// outline, the letters of its ends, and an arrow to where one looks.
void drawStrip(const SectionFrame& frame, const osg::Camera& camera, float unit);

/// The gap of so many pixels above the camera's picture.
void drawDivider(const osg::Camera& camera, int pixels);
/// @}
