#include "viewer/camera/SurveyManipulator.h"

#include <osg/Math>
#include <osg/View>
#include <osg/Viewport>

#include <algorithm>
#include <cmath>

using osgGA::GUIActionAdapter;
using osgGA::GUIEventAdapter;

namespace {

constexpr int kPickRadius = 12;     ///< pixels: between the points of a wall or of the ground it is meant
constexpr double kDragPixels = 3;   ///< a hand is not still
constexpr double kWheelStep = 0.85; ///< of the distance is left after a step
constexpr int kMostSteps = 10;      ///< in a frame
constexpr double kDragZoom = 4;     ///< powers of e in a drag over the picture's height
constexpr double kMoveSeconds = 0.25;
constexpr double kKeyStep = 0.1;         ///< of the picture's height
constexpr double kFlightPerSecond = 0.5; ///< of the distance of the centre
constexpr double kLongestFrame = 0.25;   ///< seconds; a flight stands still while points come in
constexpr double kFaster = 1.25;

/// Keys that fly, and where to, in eye coordinates.
constexpr int kFlightKeys[] = {GUIEventAdapter::KEY_Up,      GUIEventAdapter::KEY_Down,
                               GUIEventAdapter::KEY_Left,    GUIEventAdapter::KEY_Right,
                               GUIEventAdapter::KEY_Page_Up, GUIEventAdapter::KEY_Page_Down};
const osg::Vec3d kFlightWays[] = {{0, 0, -1}, {0, 0, 1}, {-1, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}};

osg::Vec2d pixelOf(const GUIEventAdapter& event)
{
    return osg::Vec2d(event.getX(), event.getY());
}

} // namespace

SurveyManipulator::SurveyManipulator(const Scene& scene)
    : _scene(scene), _picker(new VelOsgDBBrx::PointPicker(scene.root(), kPickRadius))
{
    scene.root()->addChild(_picker);
}

void SurveyManipulator::go(const Pose& pose)
{
    _gesture.reset();
    _move.reset();
    _trail.leave(_pose);
    _pose = pose;
}

void SurveyManipulator::start(const Pose& pose)
{
    _trail = PoseTrail();
    _pose = pose;
    _home = pose;
}

void SurveyManipulator::goHome(const Pose& pose)
{
    go(pose);
    _home = pose;
}

void SurveyManipulator::fit()
{
    if (_scene.isEmpty()) return;
    const double aspect = _camera && _camera->getViewport() ? _camera->getViewport()->aspectRatio() : 1;
    go(_pose.fitted(_scene.boundsFor(CameraView()), aspect));
}

void SurveyManipulator::back()
{
    _gesture.reset();
    _move.reset();
    _pose = _trail.back(_pose);
}

void SurveyManipulator::forward()
{
    _gesture.reset();
    _move.reset();
    _pose = _trail.forward(_pose);
}

void SurveyManipulator::setMode(Mode mode)
{
    _mode = mode;
    _held = {};
    if (mode != Mode::FREE && _pose.leveled() != _pose) go(_pose.leveled());
}

void SurveyManipulator::setByMatrix(const osg::Matrixd& matrix)
{
    setByInverseMatrix(osg::Matrixd::inverse(matrix));
}

void SurveyManipulator::setByInverseMatrix(const osg::Matrixd& matrix)
{
    Look look;
    matrix.getLookAt(look.eye, look.center, look.up, _pose.distance());
    go(Pose(look, _pose.lens()));
}

osg::Matrixd SurveyManipulator::getMatrix() const
{
    return osg::Matrixd::inverse(getInverseMatrix());
}

osg::Matrixd SurveyManipulator::getInverseMatrix() const
{
    const Look look = _pose.orthographic() && !_scene.isEmpty()
                          ? withAllInFront(_pose.look(), _scene.bounds())
                          : _pose.look();
    return osg::Matrixd::lookAt(look.eye, look.center, look.up);
}

void SurveyManipulator::updateCamera(osg::Camera& camera)
{
    camera.setViewMatrix(getInverseMatrix());
    if (const osg::Viewport* viewport = camera.getViewport())
        camera.setProjectionMatrix(projectionOf(_pose.lens(), viewport->aspectRatio()));
}

void SurveyManipulator::home(double)
{
    go(_home);
}

void SurveyManipulator::home(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    home(event.getTime());
    action.requestRedraw();
}

void SurveyManipulator::init(const GUIEventAdapter&, GUIActionAdapter& action)
{
    stop(action);
}

void SurveyManipulator::stop(GUIActionAdapter& action)
{
    _gesture.reset();
    _move.reset();
    _held = {};
    action.requestRedraw();
}

bool SurveyManipulator::handle(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    if (osg::View* view = action.asView()) _camera = view->getCamera();
    if (!_camera || !_camera->getViewport()) return false;
    if (event.getEventType() == GUIEventAdapter::FRAME) {
        frame(event, action);
        return false;
    }
    if (event.getEventType() == GUIEventAdapter::RELEASE) release();
    if (event.getEventType() == GUIEventAdapter::KEYUP) key(event, action);
    if (event.getHandled()) return false;
    if (_doubleClick.isCompletedBy(event)) {
        stop(action);
        begin(Gesture::CENTER, event);
        ask(action);
        return true;
    }
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH: {
        stop(action);
        const unsigned buttons = event.getButtonMask();
        if (buttons == GUIEventAdapter::LEFT_MOUSE_BUTTON)
            begin(Gesture::TURN, event);
        else if (buttons == GUIEventAdapter::RIGHT_MOUSE_BUTTON)
            begin(Gesture::ZOOM, event);
        else
            begin(Gesture::PAN, event);
        return false;
    }
    case GUIEventAdapter::DRAG:
        drag(event, action);
        return true;
    case GUIEventAdapter::SCROLL:
        turnWheel(event, action);
        return true;
    case GUIEventAdapter::KEYDOWN:
        return key(event, action);
    default:
        return false;
    }
}

void SurveyManipulator::begin(Gesture::Kind kind, const GUIEventAdapter& event)
{
    _gesture = Gesture{kind, _pose, pixelOf(event), pixelOf(event)};
}

void SurveyManipulator::drag(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    if (!_gesture || _gesture->kind > Gesture::ZOOM) return;
    _gesture->mouse = pixelOf(event);
    if (!_gesture->isAsked && (_gesture->mouse - _gesture->start).length() > kDragPixels) ask(action);
    if (_gesture->target) apply(event, action);
}

void SurveyManipulator::release()
{
    if (!_gesture || _gesture->kind > Gesture::ZOOM) return;
    _gesture->isEnded = true;
    if (!_gesture->isAsked || _gesture->target) _gesture.reset();
}

/// What was found under the mouse is still there while the mouse and everything else rest.
void SurveyManipulator::turnWheel(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    const auto motion = event.getScrollingMotion();
    const int step = (motion == GUIEventAdapter::SCROLL_UP) - (motion == GUIEventAdapter::SCROLL_DOWN);
    if (_mode == Mode::FLY) {
        _speed *= std::pow(kFaster, step);
        return;
    }
    const bool goesOn = _gesture && _gesture->kind == Gesture::WHEEL && _gesture->from == _pose &&
                        (_gesture->start - pixelOf(event)).length() <= kDragPixels;
    if (!goesOn) {
        stop(action);
        begin(Gesture::WHEEL, event);
        _trail.leave(_pose);
        ask(action);
    }
    _gesture->steps += step;
    if (_gesture->target) apply(event, action);
}

/// Whether or not there is anything, an answer comes.
void SurveyManipulator::ask(GUIActionAdapter& action)
{
    _gesture->isAsked = _picker->request(*_camera, _gesture->start.x(), _gesture->start.y());
    action.requestRedraw();
}

void SurveyManipulator::takeAnswer(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point) || !_gesture || _gesture->target) return;
    Gesture& gesture = *_gesture;
    gesture.target = point ? point->position : gesture.from.worldAt(placeOf(gesture.start), aspect());
    gesture.from = gesture.from.focusedOn(*gesture.target);
    if (gesture.kind != Gesture::WHEEL) _trail.leave(_pose);
    apply(event, action);
    if (gesture.isEnded || gesture.kind == Gesture::CENTER) _gesture.reset();
}

void SurveyManipulator::apply(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    Gesture& gesture = *_gesture;
    const osg::Vec2d way = placeOf(gesture.mouse) - placeOf(gesture.start);
    switch (gesture.kind) {
    case Gesture::TURN:
        _pose = turned();
        break;
    case Gesture::PAN:
        _pose = gesture.from.moved(gesture.from.worldAt(osg::Vec2d(), aspect()) -
                                   gesture.from.worldAt(way, aspect()));
        break;
    case Gesture::ZOOM:
        _pose = gesture.from.zoomed(*gesture.target, std::exp(-way.y() / 2 * kDragZoom));
        break;
    case Gesture::WHEEL:
        gesture.steps = std::clamp(gesture.steps, -kMostSteps, kMostSteps);
        _pose = gesture.from.zoomed(*gesture.target, std::pow(kWheelStep, gesture.steps));
        gesture.from = _pose;
        gesture.steps = 0;
        break;
    case Gesture::CENTER:
        _move = Move{_pose, gesture.from.moved(*gesture.target - gesture.from.center()), event.getTime()};
        break;
    }
    action.requestRedraw();
}

/// Half a turn for a drag over the picture's height.
Pose SurveyManipulator::turned() const
{
    const Gesture& gesture = *_gesture;
    const osg::Vec2d way = gesture.mouse - gesture.start;
    const double perPixel = osg::PI / _camera->getViewport()->height();
    const osg::Vec3d pivot = _mode == Mode::FLY ? gesture.from.eye() : *gesture.target;
    const double toTheLeft = -way.x() * perPixel;
    const double upwards = way.y() * perPixel;
    return _mode == Mode::FREE ? gesture.from.turnedFreely(pivot, toTheLeft, upwards)
                               : gesture.from.turnedLevel(pivot, toTheLeft, upwards);
}

bool SurveyManipulator::key(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    const bool isDown = event.getEventType() == GUIEventAdapter::KEYDOWN;
    if (isDown && event.getKey() == GUIEventAdapter::KEY_Space) {
        stop(action);
        home(event, action);
        return true;
    }
    constexpr unsigned kOthers = GUIEventAdapter::MODKEY_ALT | GUIEventAdapter::MODKEY_CTRL;
    const auto found = std::find(std::begin(kFlightKeys), std::end(kFlightKeys), event.getKey());
    if (found == std::end(kFlightKeys) || (isDown && (event.getModKeyMask() & kOthers))) return false;
    const auto number = static_cast<size_t>(found - std::begin(kFlightKeys));
    if (isDown && (_gesture || _move)) stop(action);
    if (_mode != Mode::FLY) {
        if (isDown) step(*found);
    } else if (isDown != _held[number]) {
        if (!isFlying()) _trail.leave(_pose);
        _held[number] = isDown;
    }
    action.requestRedraw();
    return true;
}

/// Moves the picture by a step: up, down, aside, nearer, farther.
void SurveyManipulator::step(int key)
{
    const double way = _pose.height() * kKeyStep;
    switch (key) {
    case GUIEventAdapter::KEY_Up:
        _pose = _pose.moved(_pose.up() * way);
        break;
    case GUIEventAdapter::KEY_Down:
        _pose = _pose.moved(_pose.up() * -way);
        break;
    case GUIEventAdapter::KEY_Left:
        _pose = _pose.moved(_pose.right() * -way);
        break;
    case GUIEventAdapter::KEY_Right:
        _pose = _pose.moved(_pose.right() * way);
        break;
    default:
        _pose =
            _pose.zoomed(_pose.center(), key == GUIEventAdapter::KEY_Page_Up ? kWheelStep : 1 / kWheelStep);
    }
}

bool SurveyManipulator::isFlying() const
{
    return std::find(_held.begin(), _held.end(), true) != _held.end();
}

void SurveyManipulator::fly(double seconds)
{
    osg::Vec3d way;
    for (size_t i = 0; i < _held.size(); ++i)
        if (_held[i])
            way += _pose.right() * kFlightWays[i].x() + osg::Vec3d(0, 0, kFlightWays[i].y()) -
                   _pose.ahead() * kFlightWays[i].z();
    _pose = _pose.moved(way * (_pose.distance() * kFlightPerSecond * _speed * seconds));
}

void SurveyManipulator::frame(const GUIEventAdapter& event, GUIActionAdapter& action)
{
    takeAnswer(event, action);
    const double time = event.getTime();
    if (isFlying()) fly(std::min(time - _lastFrame, kLongestFrame));
    _lastFrame = time;
    if (_move) {
        const double share = std::clamp((time - _move->start) / kMoveSeconds, 0.0, 1.0);
        _pose = share < 1 ? _move->from.between(_move->to, share * share * (3 - 2 * share)) : _move->to;
        if (share >= 1) _move.reset();
    }
    // Whatever ended a move: nothing goes on without one.
    action.requestContinuousUpdate(_move || isFlying());
}

osg::Vec2d SurveyManipulator::placeOf(const osg::Vec2d& pixel) const
{
    const osg::Viewport& viewport = *_camera->getViewport();
    return osg::Vec2d(2 * (pixel.x() - viewport.x()) / viewport.width() - 1,
                      2 * (pixel.y() - viewport.y()) / viewport.height() - 1);
}

double SurveyManipulator::aspect() const
{
    return _camera->getViewport()->aspectRatio();
}

void SurveyManipulator::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("Left drag", "Turn about the point under the mouse");
    usage.addKeyboardMouseBinding("Middle drag", "Move: the point stays under the mouse");
    usage.addKeyboardMouseBinding("Right drag", "Nearer / farther");
    usage.addKeyboardMouseBinding("Wheel", "Zoom at the mouse; speed of a flight");
    usage.addKeyboardMouseBinding("Double click", "Bring the point into the middle");
    usage.addKeyboardMouseBinding("Arrows", "Move; fly");
    usage.addKeyboardMouseBinding("PageUp / PageDown", "Nearer / farther; fly up / down");
    usage.addKeyboardMouseBinding("Space", "The first view, or that of T, N, I");
}
