#pragma once

#include "viewer/edit/WindowView.h"

#include <imgui.h>
#include <osg/Camera>
#include <osg/Vec3d>

/// Lines of the world over a picture, with Dear ImGui on the background of a part of `Gui`. They are cut at
/// the picture's edges while this object lives.
class WorldLines
{
public:
    /// Over the camera's picture, which is in `window`.
    WorldLines(const osg::Camera& camera, const WindowView& window);
    ~WorldLines();
    WorldLines(const WorldLines&) = delete;
    WorldLines& operator=(const WorldLines&) = delete;

    /// From place to place, as far as it is before the eye; `width` in pixels.
    void draw(const osg::Vec3d& from, const osg::Vec3d& to, ImU32 color, float width) const;

private:
    const WindowView _window;
};
