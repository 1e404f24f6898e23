#include "viewer/window/WheelZoom.h"

#include <osg/Viewport>
#include <osgGA/KeySwitchMatrixManipulator>
#include <osgGA/StandardManipulator>
#include <osgViewer/View>

#include <algorithm>
#include <cmath>

using osgGA::GUIEventAdapter;

namespace {

constexpr double kStep = 0.85;     ///< of the distance is left after a step
constexpr int kPickRadius = 12;    ///< pixels: between the points of a wall or of the ground it is meant
constexpr int kMostSteps = 10;     ///< in a frame
constexpr double kNearest = 0.001; ///< world units between eye and centre

/// The manipulator that moves the camera at present.
osgGA::StandardManipulator* currentOf(osgGA::CameraManipulator& manipulator)
{
    auto* choice = dynamic_cast<osgGA::KeySwitchMatrixManipulator*>(&manipulator);
    return dynamic_cast<osgGA::StandardManipulator*>(choice ? choice->getCurrentMatrixManipulator()
                                                            : &manipulator);
}

/// The world position under a pixel at a depth in front of the eye.
osg::Vec3d placeUnder(const osg::Camera& camera, const osg::Vec2d& pixel, const osg::Vec3d& eye,
                      const osg::Vec3d& ahead, double depth)
{
    const osg::Matrixd toWorld = osg::Matrixd::inverse(camera.getViewMatrix() * camera.getProjectionMatrix() *
                                                       camera.getViewport()->computeWindowMatrix());
    const osg::Vec3d along = osg::Vec3d(pixel, 0.5) * toWorld - eye;
    const double forward = along * ahead;
    return forward > 0 ? eye + along * (depth / forward) : eye + ahead * depth;
}

} // namespace

WheelZoom::WheelZoom(osg::Group& scene, const Views& views)
    : _views(views), _picker(new VelOsgDBBrx::PointPicker(&scene, kPickRadius))
{
    scene.addChild(_picker);
}

bool WheelZoom::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getEventType() == GUIEventAdapter::SCROLL && !event.getHandled()) {
        turn(event, action);
        return true;
    }
    auto* view = dynamic_cast<osgViewer::View*>(&action);
    if (event.getEventType() != GUIEventAdapter::FRAME || !_asked || !view) return false;
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point)) return false;
    _asked = false;
    _target.reset();
    if (point) _target = point->position;
    if (osgGA::CameraManipulator* manipulator = view->getCameraManipulator())
        zoom(*_views.main().camera, *manipulator);
    action.requestRedraw();
    return false;
}

void WheelZoom::turn(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getScrollingMotion() == GUIEventAdapter::SCROLL_UP)
        ++_steps;
    else if (event.getScrollingMotion() == GUIEventAdapter::SCROLL_DOWN)
        --_steps;
    _mouse.set(event.getX(), event.getY());
    if (!_asked) _asked = _picker->request(*_views.main().camera, _mouse.x(), _mouse.y());
    action.requestRedraw();
}

void WheelZoom::zoom(const osg::Camera& camera, osgGA::CameraManipulator& manipulator)
{
    const int steps = std::clamp(_steps, -kMostSteps, kMostSteps);
    _steps = 0;
    osgGA::StandardManipulator* current = currentOf(manipulator);
    if (!current || !camera.getViewport()) return;
    osg::Vec3d eye;
    osg::Vec3d center;
    osg::Vec3d up;
    current->getTransformation(eye, center, up);
    osg::Vec3d ahead = center - eye;
    double depth = ahead.normalize();
    if (_target && (*_target - eye) * ahead > kNearest) depth = (*_target - eye) * ahead;
    const osg::Vec3d target = placeUnder(camera, _mouse, eye, ahead, depth);
    const double part = std::pow(kStep, steps);
    eye = target + (eye - target) * part;
    current->setTransformation(eye, eye + ahead * std::max(depth * part, kNearest), up);
}

void WheelZoom::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("Wheel", "Zoom at the mouse");
}
