#pragma once

#include "viewer/operation/Operation.h"
#include "viewer/window/Views.h"

#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osgGA/GUIEventHandler>

#include <optional>

/// Shows the scene's clip box over the main picture, and a handle on each of its faces, which the mouse drags
/// along its axis. Add it before what picks and what moves the camera.
class ClipBoxHandles : public osgGA::GUIEventHandler
{
public:
    /// What the stage refers to outlives the handler, as `views` do.
    ClipBoxHandles(const Stage& stage, const Views& views) : _stage(stage), _views(views) {}

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;

    /// Draws with Dear ImGui over the scene. `unit` as of `Gui`.
    void draw(float unit);

private:
    /// One of six: an axis, and its lower or upper end.
    struct Face
    {
        int axis;
        bool high;

        osg::Vec3d middle(const osg::BoundingBoxd& box) const;
    };

    std::optional<Face> faceAt(const osg::Vec2d& mouse) const;
    void dragTo(const osg::Vec2d& mouse);
    osg::Vec2d pixelOf(const osg::Vec3d& world) const;

    const Stage _stage;
    const Views& _views;
    std::optional<Face> _dragged;
    std::optional<Face> _hovered;
    float _unit = 1;
};
