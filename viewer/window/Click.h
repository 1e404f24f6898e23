#pragma once

#include <osg/Vec2>
#include <osgGA/GUIEventAdapter>

#include <cmath>
#include <optional>

/// Tells clicks of a button from drags, which are the camera's. To be given every event.
class Click
{
public:
    explicit Click(int button) : _button(button) {}

    /// Whether the event completes a click: the button came up where it went down, as still as a hand is, and
    /// no other handler took that.
    bool isCompletedBy(const osgGA::GUIEventAdapter& event)
    {
        constexpr float kPixels = 3;
        const osg::Vec2 place(event.getX(), event.getY());
        switch (event.getEventType()) {
        case osgGA::GUIEventAdapter::PUSH:
            _press.reset();
            if (!event.getHandled()) _press = place;
            return false;
        case osgGA::GUIEventAdapter::RELEASE: {
            const bool isClick = event.getButton() == _button && !event.getHandled() && _press &&
                                 std::abs(place.x() - _press->x()) <= kPixels &&
                                 std::abs(place.y() - _press->y()) <= kPixels;
            _press.reset();
            return isClick;
        }
        default:
            return false;
        }
    }

private:
    const int _button;
    std::optional<osg::Vec2> _press;
};
