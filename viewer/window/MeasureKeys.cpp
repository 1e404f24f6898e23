#include "viewer/window/MeasureKeys.h"

#include <cstdio>

using osgGA::GUIEventAdapter;

bool MeasureKeys::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getEventType() == GUIEventAdapter::FRAME) printNew();
    const bool isClick = _click.isCompletedBy(event);
    if (!_measuring.kind() || event.getHandled()) return false;
    const bool isKey = event.getEventType() == GUIEventAdapter::KEYDOWN && press(event.getKey());
    if (isClick) _measuring.add({Measuring::Input::FINISH, {}});
    // The line to the mouse follows it.
    const bool isFollowed = event.getEventType() == GUIEventAdapter::MOVE && !_measuring.points().empty();
    if (isKey || isClick || isFollowed) action.requestRedraw();
    return isKey;
}

void MeasureKeys::printNew()
{
    for (const Measurements::Entry& entry : _measuring.list().all())
        if (entry.number > _lastPrinted) {
            std::printf("%s\n", entry.text().c_str());
            std::fflush(stdout);
            _lastPrinted = entry.number;
        }
}

bool MeasureKeys::press(int key)
{
    switch (key) {
    case GUIEventAdapter::KEY_Return:
    case GUIEventAdapter::KEY_KP_Enter:
        _measuring.add({Measuring::Input::FINISH, {}});
        return true;
    case GUIEventAdapter::KEY_BackSpace:
        _measuring.add({Measuring::Input::DROP_LAST, {}});
        return true;
    case GUIEventAdapter::KEY_Escape:
        _measuring.end();
        return true;
    default:
        return false;
    }
}
