#pragma once

#include "viewer/measure/Measuring.h"
#include "viewer/window/Click.h"

#include <osgGA/GUIEventHandler>

/// Keys and mouse of what is measured by hand, beside the clicks that pick points: Enter or the right button
/// completes a line or a polygon, Backspace drops the last point, Escape ends the measuring alone. What was
/// measured is a line on stdout. To be added before the handlers that have other uses for these keys.
///
/// Threads: the viewer's.
class MeasureKeys : public osgGA::GUIEventHandler
{
public:
    /// `measuring` outlives the frames.
    explicit MeasureKeys(Measuring& measuring) : _measuring(measuring) {}

    /// A measurement has been completed that no frame shows yet.
    bool hasNews() { return _measuring.update(); }

    /// News will come.
    bool isSearching() const { return _measuring.isSearching(); }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    using osgGA::GUIEventHandler::handle;

private:
    bool press(int key);
    void printNew();

    Measuring& _measuring;
    unsigned _lastPrinted = 0; ///< number of a measurement
    Click _click{osgGA::GUIEventAdapter::RIGHT_MOUSE_BUTTON};
};
