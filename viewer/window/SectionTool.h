#pragma once

#include "viewer/window/Views.h"

#include <VelOsgDBBrx/PointPicker.h>
#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osgGA/GUIEventHandler>

#include <optional>

/// Lets the user click the two ends of a section, in any picture: on points, or beside them at the depth of
/// the picture's centre. Add it before all that uses the mouse.
class SectionTool : public osgGA::GUIEventHandler
{
public:
    /// Puts a picker into the scene, which outlives the handler, as `views` do. `Views::drawSection` begins.
    SectionTool(const Scene& scene, Views& views);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;

    /// Draws what has been clicked and what is to be done, with Dear ImGui over the scene. `unit` as of
    /// `Gui`.
    void draw(float unit) const;

private:
    bool press(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void ask(const osg::Vec2d& click);
    void takeAnswer();
    osg::Vec3d besidePoints() const;
    void add(const osg::Vec3d& end);

    Views& _views;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    bool _isActive = false;
    bool _isAsked = false;
    osg::Vec2d _click;               ///< that is asked for, window pixels
    std::optional<osg::Vec2d> _next; ///< that is to be asked for then
    osg::Vec2d _mouse;
    std::optional<osg::Vec3d> _first; ///< end, world
};
