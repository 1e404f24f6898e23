#include "viewer/window/PickHandler.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr float kClickPixels = 3; ///< a hand is not still

}

PickHandler::PickHandler(Scene& scene, const Views& views, Overlay& overlay)
    : _scene(scene), _views(views), _overlay(&overlay), _picker(new VelOsgDBBrx::PointPicker(scene.root()))
{
    scene.root()->addChild(_picker);
}

bool PickHandler::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    switch (event.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH:
        _press.reset();
        if (!event.getHandled()) _press = osg::Vec2(event.getX(), event.getY());
        break;
    case osgGA::GUIEventAdapter::RELEASE:
        if (event.getButton() == osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON && !event.getHandled() && _press &&
            std::abs(event.getX() - _press->x()) <= kClickPixels &&
            std::abs(event.getY() - _press->y()) <= kClickPixels) {
            ask(event, action);
        }
        _press.reset();
        break;
    case osgGA::GUIEventAdapter::FRAME:
        showAnswer();
        break;
    default:
        break;
    }
    return false;
}

void PickHandler::ask(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    const Sight sight = _views.under(event.getX(), event.getY());
    if (_picker->request(*sight.camera, event.getX(), event.getY())) action.requestRedraw();
}

void PickHandler::showAnswer()
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point)) return;
    const std::vector<std::string> lines = point ? _scene.describe(*point) : std::vector<std::string>();
    _overlay->setLines(lines);
    for (size_t i = 0; i < lines.size(); ++i)
        std::printf(i ? "\t%s" : "%s", lines[i].c_str());
    if (!lines.empty()) std::printf("\n");
    std::fflush(stdout);
}

void PickHandler::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("Left click", "Show the point under the mouse");
}
