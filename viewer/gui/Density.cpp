#include "viewer/gui/Density.h"

#include <osgViewer/api/X11/GraphicsHandleX11>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <X11/Xlib.h>

namespace {

/// As people told the desktop, else as the screen tells of itself; 0 where neither is to be believed.
double dotsPerInch(Display& display, int screen, int rows)
{
    constexpr double kInch = 25.4; // mm
    constexpr double kFewest = 60;
    constexpr double kMost = 600;
    const char* const told = XGetDefault(&display, "Xft", "dpi");
    const int height = DisplayHeightMM(&display, screen);
    double dots = told ? std::atof(told) : 0;
    if (dots < kFewest || dots > kMost) dots = height > 0 ? kInch * rows / height : 0;
    return dots < kFewest || dots > kMost ? 0 : dots;
}

} // namespace

float unitForRows(int rows)
{
    constexpr double kRowsPerUnit = 900.0;
    return static_cast<float>(std::max(1.0, std::round(rows / kRowsPerUnit)));
}

float unitFor(const osg::GraphicsContext& window)
{
    constexpr double kPlain = 96; // dots an inch
    constexpr double kSteps = 4;  // of a unit: letters are sharp in whole pixels
    auto* const system = osg::GraphicsContext::getWindowingSystemInterface();
    unsigned width = 0;
    unsigned height = 0;
    if (system && window.getTraits()) system->getScreenResolution(*window.getTraits(), width, height);
    const float byRows = unitForRows(static_cast<int>(height));
    const auto* const x11 = dynamic_cast<const osgViewer::GraphicsHandleX11*>(&window);
    if (!x11 || !x11->getDisplay()) return byRows;
    Display* const display = x11->getDisplay();
    const double dots = dotsPerInch(*display, DefaultScreen(display), static_cast<int>(height));
    return std::max(byRows, static_cast<float>(std::round(kSteps * dots / kPlain) / kSteps));
}
