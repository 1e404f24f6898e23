#include "viewer/window/SectionMouse.h"

#include <osg/Viewport>

#include <cmath>

using osgGA::GUIEventAdapter;

namespace {

constexpr double kWheelStep = 0.85; ///< of what was in the picture is left after a step
constexpr double kDragZoom = 4;     ///< powers of e in a drag over the picture's height

} // namespace

bool SectionMouse::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getEventType() == GUIEventAdapter::RELEASE) _drag.reset();
    if (event.getHandled()) return false;
    bool handled = false;
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH:
    case GUIEventAdapter::DOUBLECLICK:
        handled = begin(event);
        if (_doubleClick.isCompletedBy(event) && _views.isOverSection(event.getX(), event.getY()))
            center(event);
        break;
    case GUIEventAdapter::DRAG:
        handled = _drag.has_value();
        if (handled) drag(event);
        break;
    case GUIEventAdapter::SCROLL:
        handled = _views.isOverSection(event.getX(), event.getY());
        if (handled) zoom(event);
        break;
    default:
        break;
    }
    if (handled) action.requestRedraw();
    return handled;
}

osg::Vec2d SectionMouse::placeOf(const GUIEventAdapter& event) const
{
    return Views::placeOf(_views.sectionCamera(), event.getX(), event.getY());
}

bool SectionMouse::begin(const GUIEventAdapter& event)
{
    _drag.reset();
    if (_views.isOnDivider(event.getX(), event.getY()))
        _drag = Drag{Drag::DIVIDER, std::nullopt, {}};
    else if (_views.isOverSection(event.getX(), event.getY()))
        _drag = Drag{event.getButton() == GUIEventAdapter::RIGHT_MOUSE_BUTTON ? Drag::ZOOM : Drag::MOVE,
                     _views.frame(), placeOf(event)};
    return _drag.has_value();
}

void SectionMouse::drag(const GUIEventAdapter& event)
{
    if (_drag->kind == Drag::DIVIDER) {
        _views.moveDivider(event.getY());
        return;
    }
    if (!_views.frame()) return; // closed meanwhile
    const osg::Vec2d grabbed = _drag->from->at(_drag->start, aspect());
    const osg::Vec2d now = placeOf(event);
    if (_drag->kind == Drag::MOVE)
        _views.setFrame(_drag->from->moved(grabbed - _drag->from->at(now, aspect())));
    else
        _views.setFrame(_drag->from->zoomed(grabbed, std::exp((_drag->start.y() - now.y()) / 2 * kDragZoom)));
}

void SectionMouse::center(const GUIEventAdapter& event)
{
    const SectionFrame& frame = *_views.frame();
    _views.setFrame(frame.moved(frame.at(placeOf(event), aspect()) - frame.middle()));
    _drag.reset();
}

void SectionMouse::zoom(const GUIEventAdapter& event)
{
    const auto motion = event.getScrollingMotion();
    const int step = (motion == GUIEventAdapter::SCROLL_UP) - (motion == GUIEventAdapter::SCROLL_DOWN);
    const SectionFrame& frame = *_views.frame();
    _views.setFrame(frame.zoomed(frame.at(placeOf(event), aspect()), std::pow(kWheelStep, step)));
}

void SectionMouse::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("Drag in a section", "Move it; right: nearer / farther");
    usage.addKeyboardMouseBinding("Double click, section", "Bring the place into its middle");
}
