#pragma once

#include <osg/Vec2d>
#include <osgGA/GUIEventAdapter>

/// Tells double clicks of the left button, by the events of a window: not all window systems do. To be given
/// every press that is not handled.
class DoubleClick
{
public:
    /// Whether the event is the second press of one.
    bool isCompletedBy(const osgGA::GUIEventAdapter& event)
    {
        constexpr double kSeconds = 0.4;
        constexpr double kPixels = 3; // a hand is not still
        using osgGA::GUIEventAdapter;
        if (event.getButton() != GUIEventAdapter::LEFT_MOUSE_BUTTON) return false;
        if (event.getEventType() == GUIEventAdapter::DOUBLECLICK) return true;
        if (event.getEventType() != GUIEventAdapter::PUSH) return false;
        const osg::Vec2d place(event.getX(), event.getY());
        const bool isSecond = event.getTime() - _time <= kSeconds && (_place - place).length() <= kPixels;
        _time = isSecond ? 0 : event.getTime();
        _place = place;
        return isSecond;
    }

private:
    double _time = 0; ///< of the last press, seconds, as of events
    osg::Vec2d _place;
};
