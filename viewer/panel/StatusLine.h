#pragma once

#include "viewer/edit/Sight.h"
#include "viewer/gui/Gui.h"
#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/PointPicker.h>
#include <osg/Vec2d>
#include <osgGA/GUIEventHandler>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// The line at the bottom of the window: where the point under the mouse lies, once the mouse rests, and how
/// the drawing goes.
///
/// Threads: the viewer's.
class StatusLine : public osgGA::GUIEventHandler
{
public:
    struct Facts
    {
        uint64_t points = 0; ///< in the scene
        uint64_t wanted = 0; ///< that the pictures would show, whether there is room for them or not
        bool isSettled = false;
        std::string opening;     ///< which files, for people; empty where none
        double frameSeconds = 0; ///< that the last frame took
        uint64_t hidden = 0;     ///< points of the stores, as far as they are counted
        uint64_t unsaved = 0;    ///< points whose class is not saved
    };

    /// `gui` and `scene` must outlive it. `sightUnder` tells the picture at a place of the window, as of
    /// `Views::under`. `hint` stands where the coordinates come, until the window is used: a
    /// drag, the wheel or a key.
    StatusLine(Gui& gui, Scene& scene, std::function<Sight(double x, double y)> sightUnder,
               const std::string& hint);

    /// A part of the gui, which takes the bottom of its area.
    void draw();

    void tell(const Facts& facts) { _facts = facts; }

    /// The hint is there.
    bool isHinting() const { return !_hint.empty(); }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    using osgGA::GUIEventHandler::handle;

private:
    void ask(osgGA::GUIActionAdapter& action, double time);
    std::string drawing() const;

    Gui& _gui;
    Scene& _scene;
    const std::function<Sight(double x, double y)> _sightUnder;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    Facts _facts;
    std::string _hint;
    std::string _place;
    std::optional<osg::Vec2d> _mouse; ///< over the scene, not asked for yet
    double _restTime = 0;             ///< since when it stays there, seconds of events
};
