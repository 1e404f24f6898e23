#include "viewer/window/ToolUse.h"

#include <algorithm>
#include <cmath>

using osgGA::GUIEventAdapter;

namespace {

constexpr double kGrowDistances = 3; ///< of points, where the user has said nothing

/// Whether both show the same picture: depth is left out, as near and far plane change from frame to frame.
bool isSame(const WindowView& a, const WindowView& b)
{
    constexpr double kRounding = 1e-9;
    if (a.width != b.width || a.height != b.height) return false;
    for (int row = 0; row < 4; ++row)
        for (const int column : {0, 1, 3}) {
            const double difference = std::abs(a.vpw(row, column) - b.vpw(row, column));
            if (difference > kRounding * std::max(1.0, std::abs(a.vpw(row, column)))) return false;
        }
    return true;
}

} // namespace

osg::Vec2d placeOf(const GUIEventAdapter& event)
{
    return osg::Vec2d(event.getX(), event.getYmin() + event.getYmax() - event.getY());
}

ToolUse::ToolUse(Scene& scene, const Views& views)
    : _scene(scene), _views(views), _picker(new VelOsgDBBrx::PointPicker(scene.root()))
{
    scene.root()->addChild(_picker);
}

void ToolUse::take(const ToolKind& kind, const GUIEventAdapter& event)
{
    _kind = &kind;
    _tool = kind.make(_settings);
    _tool->moveTo(placeOf(event));
    _sight = _views.under(event.getX(), event.getY());
    if (const std::optional<WindowView> view = windowViewOf(*_sight.camera))
        _settings.brush.pixelsPerUnit = pixelsPerUnit(view->vpw, _scene.bounds().center());
}

bool ToolUse::takeAgain(const GUIEventAdapter& event)
{
    if (!_kind) return false;
    take(*_kind, event);
    return true;
}

/// A brush that paints nothing leaves the middle button to the camera.
bool ToolUse::isForCamera(const GUIEventAdapter& event) const
{
    if (!brush() || !_tool->isEmpty() || event.getEventType() == GUIEventAdapter::SCROLL) return false;
    return event.getButtonMask() == GUIEventAdapter::MIDDLE_MOUSE_BUTTON ||
           event.getButton() == GUIEventAdapter::MIDDLE_MOUSE_BUTTON;
}

bool ToolUse::handleMouse(const GUIEventAdapter& event)
{
    if (!_tool) return false;
    const osg::Vec2d mouse = placeOf(event);
    _tool->moveTo(mouse);
    if (isForCamera(event)) return false;
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH:
    case GUIEventAdapter::DOUBLECLICK:
        if (event.getButton() == GUIEventAdapter::RIGHT_MOUSE_BUTTON) close();
        if (event.getButton() == GUIEventAdapter::LEFT_MOUSE_BUTTON) press(event, mouse);
        break;
    case GUIEventAdapter::RELEASE:
        if (event.getButton() == GUIEventAdapter::LEFT_MOUSE_BUTTON) _tool->release(mouse);
        break;
    case GUIEventAdapter::SCROLL:
        if (event.getScrollingMotion() == GUIEventAdapter::SCROLL_UP) _settings.brush.turn(brush() ? 1 : 0);
        if (event.getScrollingMotion() == GUIEventAdapter::SCROLL_DOWN)
            _settings.brush.turn(brush() ? -1 : 0);
        break;
    default:
        break;
    }
    return true;
}

void ToolUse::press(const GUIEventAdapter& event, const osg::Vec2d& mouse)
{
    if (_tool->isEmpty() || grow()) {
        _sight = _views.under(event.getX(), event.getY());
        _view = windowViewOf(*_sight.camera);
        if (const osg::Viewport* port = _sight.camera->getViewport(); port && _view)
            _tool->setArea({port->x(), _view->height - port->y() - port->height()},
                           {port->x() + port->width(), _view->height - port->y()});
    }
    _tool->press(mouse);
    if (grow() || (brush() && _settings.brush.isInWorld))
        _picker->request(*_sight.camera, event.getX(), event.getY());
}

void ToolUse::close()
{
    if (brush()) return putDown();
    _tool->close();
    if (!_tool->isClosed()) _message = _tool->missing();
}

bool ToolUse::handleKey(int key)
{
    if (!_tool) return false;
    if (key == GUIEventAdapter::KEY_Insert && brush())
        _settings.brush.switchUnit();
    else if (key == GUIEventAdapter::KEY_BackSpace)
        _tool->dropLast();
    else if (key == GUIEventAdapter::KEY_Return)
        close();
    else if (key == GUIEventAdapter::KEY_Escape)
        putDown();
    else
        return false;
    return true;
}

void ToolUse::update()
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point)) return;
    if (GrowTool* const pointing = grow(); pointing && !pointing->isEmpty()) {
        pointing->setSeed(point ? std::optional(point->position) : std::nullopt);
        if (!point) _message = "there is no point at this place";
    }
    if (brush() && point && _view) _settings.brush.pixelsPerUnit = pixelsPerUnit(_view->vpw, point->position);
}

bool ToolUse::dropFromOtherView()
{
    if (!_tool || _tool->isEmpty()) return false;
    const std::optional<WindowView> view = windowViewOf(*_sight.camera);
    if (view && _view && isSame(*view, *_view)) return false;
    // A point of the world is where it was.
    if (grow() && grow()->isClosed()) return false;
    putDown();
    return true;
}

VelOsgDBBrx::GrownPlace ToolUse::grown() const
{
    VelOsgDBBrx::GrownPlace place;
    place.from = grow()->seed().value_or(osg::Vec3d());
    place.distance =
        _settings.growDistance > 0 ? _settings.growDistance : kGrowDistances * _scene.meanPointDistance();
    place.angle = _settings.growAngle;
    place.limit = _settings.growLimit;
    return place;
}
