#pragma once

#include "viewer/window/Views.h"

#include <VelOsgDBBrx/PointPicker.h>

#include <osg/Camera>
#include <osg/Group>
#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/ref_ptr>
#include <osgGA/CameraManipulator>
#include <osgGA/GUIEventHandler>

#include <optional>

/// Zooms by the mouse wheel: turned away from the hand it takes the camera towards what is under the mouse,
/// which stays there; turned to the hand, back from it. The distance to the point under the mouse shrinks by
/// the same part with each step, so the camera never passes it; where the mouse is beside all points, the
/// distance to the centre of the camera's manipulator does. The centre is at that distance afterwards, so
/// that a drag turns the camera around what it was zoomed to.
class WheelZoom : public osgGA::GUIEventHandler
{
public:
    /// Puts a picker into `scene`, the root of what is shown, world coordinates. `views` outlives the
    /// handler.
    WheelZoom(osg::Group& scene, const Views& views);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    void turn(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void zoom(const osg::Camera& camera, osgGA::CameraManipulator& manipulator);

    const Views& _views;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    osg::Vec2d _mouse;                 ///< of the newest step, pixels from the bottom left
    int _steps = 0;                    ///< not zoomed yet; positive: towards the scene
    bool _asked = false;               ///< the picker looks for the target
    std::optional<osg::Vec3d> _target; ///< what is under the mouse, world; none: nothing
};
