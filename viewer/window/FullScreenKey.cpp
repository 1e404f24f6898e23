#include "viewer/window/FullScreenKey.h"

#include <osgViewer/View>
#include <osgViewer/ViewerBase>

using osg::GraphicsContext;

bool FullScreenKey::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    auto* view = dynamic_cast<osgViewer::View*>(&action);
    if (!view || event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        event.getKey() != 'f') {
        return false;
    }
    osgViewer::ViewerBase::Windows windows;
    view->getViewerBase()->getWindows(windows);
    for (osgViewer::GraphicsWindow* window : windows)
        toggle(*window);
    action.requestRedraw();
    return true;
}

void FullScreenKey::toggle(osgViewer::GraphicsWindow& window)
{
    GraphicsContext::WindowingSystemInterface* system = GraphicsContext::getWindowingSystemInterface();
    if (!system || !window.getTraits()) return;
    unsigned screenWidth = 0;
    unsigned screenHeight = 0;
    system->getScreenResolution(*window.getTraits(), screenWidth, screenHeight);
    const Size screen{static_cast<int>(screenWidth), static_cast<int>(screenHeight)};
    const auto before = _before.find(&window);
    const bool fills = before == _before.end();
    const Size size = fills ? screen : before->second;
    if (fills)
        _before[&window] = {window.getTraits()->width, window.getTraits()->height};
    else
        _before.erase(before);
    window.setWindowDecoration(!fills);
    window.setWindowRectangle((screen.width - size.width) / 2, (screen.height - size.height) / 2, size.width,
                              size.height);
    window.grabFocusIfPointerInWindow();
}

void FullScreenKey::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("f", "Full screen on / off");
}
