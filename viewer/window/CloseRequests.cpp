#include "viewer/window/CloseRequests.h"

#include <osgGA/EventQueue>
#include <osgGA/GUIEventAdapter>

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
    }
    return asked;
}
