#include "viewer/window/CloseRequests.h"

#include <osgGA/EventQueue>
#include <osgGA/GUIEventAdapter>
#include <osgViewer/api/X11/GraphicsHandleX11>

#include <X11/Xlib.h>

namespace {

/// Whether X has something for the window that is read when a frame ends, such as a click on the close
/// button: those come over the connection that draws, not over that of keys and mouse.
bool hasUnreadMessages(osgViewer::GraphicsWindow& window)
{
    const auto* x11 = dynamic_cast<osgViewer::GraphicsHandleX11*>(&window);
    return x11 && x11->getDisplay() && XPending(x11->getDisplay()) > 0;
}

} // namespace

bool takeCloseRequests(osgViewer::Viewer& viewer)
{
    const auto closesWindow = [](const osg::ref_ptr<osgGA::Event>& event) {
        const osgGA::GUIEventAdapter* gui = event->asGUIEventAdapter();
        return gui && gui->getEventType() == osgGA::GUIEventAdapter::CLOSE_WINDOW;
    };
    bool asked = false;
    osgViewer::ViewerBase::Windows windows;
    viewer.getWindows(windows);
    for (osgViewer::GraphicsWindow* window : windows) {
        window->checkEvents();
        osgGA::EventQueue::Events events;
        window->getEventQueue()->takeEvents(events);
        const size_t all = events.size();
        events.remove_if(closesWindow);
        asked = asked || events.size() < all;
        window->getEventQueue()->appendEvents(events);
        if (hasUnreadMessages(*window)) viewer.requestRedraw();
    }
    return asked;
}
