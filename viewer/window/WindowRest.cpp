#include "viewer/window/WindowRest.h"

#include <osgViewer/api/X11/GraphicsWindowX11>

#include <X11/Xlib.h>
#include <poll.h>

#include <algorithm>
#include <thread>

namespace {

constexpr std::chrono::duration<double> kBlindRest{0.01};

} // namespace

WindowRest::WindowRest(osgViewer::Viewer& viewer, const std::vector<int>& connections)
    : _viewer(viewer), _connections(connections)
{
}

void WindowRest::rest(std::chrono::duration<double> longest)
{
    std::vector<pollfd> watched;
    const auto watch = [&watched](int connection) {
        if (connection >= 0) watched.push_back({connection, POLLIN, 0});
    };
    for (const int connection : _connections)
        watch(connection);
    osgViewer::ViewerBase::Windows windows;
    _viewer.getWindows(windows);
    for (osgViewer::GraphicsWindow* window : windows) {
        const auto* const x11 = dynamic_cast<osgViewer::GraphicsWindowX11*>(window);
        if (!x11 || !x11->getDisplay() || !x11->getEventDisplay()) {
            std::this_thread::sleep_for(std::min(longest, kBlindRest));
            return;
        }
        watch(XConnectionNumber(x11->getDisplay()));
        watch(XConnectionNumber(x11->getEventDisplay()));
    }
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(longest);
    poll(watched.data(), watched.size(), static_cast<int>(milliseconds.count()));
}
