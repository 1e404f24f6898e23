#pragma once

#include "viewer/camera/DoubleClick.h"
#include "viewer/camera/Pose.h"
#include "viewer/camera/PoseTrail.h"
#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/PointPicker.h>

#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/ref_ptr>
#include <osgGA/CameraManipulator>

#include <array>
#include <optional>

/// Moves the camera by mouse and keys as people who edit a survey want it: about, along and towards the point
/// that is under the mouse when a button goes down, or, beside all points, what is there at the depth of the
/// centre. That point keeps its place in the picture, however the camera turns and zooms; a pan keeps it
/// under the mouse. The camera is where the hand put it: nothing goes on by itself, but a double click, which
/// centres in a fraction of a second, and a flight while its keys are held. Any input ends these.
///
/// It sets view and projection of the camera each frame, by the aspect of its viewport. An orthographic
/// camera stands before all points.
///
/// Belongs to the viewer's thread; points are found while drawing, a frame or two later.
class SurveyManipulator : public osgGA::CameraManipulator
{
public:
    enum class Mode
    {
        FREE,  ///< turns as the picture stands
        LEVEL, ///< keeps the horizon level
        FLY    ///< level, and the mouse turns the gaze; keys fly
    };

    /// Puts a picker into the scene, which outlives the manipulator.
    explicit SurveyManipulator(const Scene& scene);

    const Pose& pose() const { return _pose; }

    /// Stands there at once. `back` leads to where it was.
    void go(const Pose& pose);

    /// Begins there, at home: nothing lies behind.
    void start(const Pose& pose);

    /// Stands there at once, and `home` leads there again.
    void goHome(const Pose& pose);

    /// Looks as now, at all that a view shows.
    void fit();

    void back();
    void forward();

    Mode mode() const { return _mode; }
    void setMode(Mode mode);

    const char* className() const override { return "SurveyManipulator"; }
    void setByMatrix(const osg::Matrixd& matrix) override;
    void setByInverseMatrix(const osg::Matrixd& matrix) override;
    osg::Matrixd getMatrix() const override;
    osg::Matrixd getInverseMatrix() const override;
    void updateCamera(osg::Camera& camera) override;
    void home(double time) override;
    void home(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;

    /// Ends what moves.
    void init(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    /// What the mouse does to a point of the scene.
    struct Gesture
    {
        enum Kind
        {
            TURN,
            PAN,
            ZOOM,
            CENTER,
            WHEEL
        };

        Kind kind;
        Pose from;        ///< when it began
        osg::Vec2d start; ///< window pixels
        osg::Vec2d mouse;
        int steps = 0; ///< of a wheel; positive: towards the scene
        bool isAsked = false;
        bool isEnded = false;                            ///< the button is up, the answer is not there yet
        std::optional<osg::Vec3d> target = std::nullopt; ///< what was under the mouse
    };

    /// A move that goes on by itself.
    struct Move
    {
        Pose from;
        Pose to;
        double start; ///< seconds, as of events
    };

    void begin(Gesture::Kind kind, const osgGA::GUIEventAdapter& event);
    void drag(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void release();
    void turnWheel(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void ask(osgGA::GUIActionAdapter& action);
    void takeAnswer(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void apply(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    Pose turned() const;
    bool key(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void step(int key);
    void fly(double seconds);
    bool isFlying() const;
    void frame(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void stop(osgGA::GUIActionAdapter& action);
    osg::Vec2d placeOf(const osg::Vec2d& pixel) const;
    double aspect() const;

    const Scene& _scene;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    osg::ref_ptr<osg::Camera> _camera; ///< of the last event
    Pose _pose;
    Pose _home;
    PoseTrail _trail;
    Mode _mode = Mode::LEVEL;
    std::optional<Gesture> _gesture;
    std::optional<Move> _move;
    std::array<bool, 6> _held{}; ///< the keys that fly
    double _speed = 1;           ///< of a flight, a part of its natural one
    DoubleClick _doubleClick;
    double _lastFrame = 0; ///< seconds, as of events
};
