#include "viewer/window/PickHandler.h"

#include <cstdio>

PickHandler::PickHandler(Scene& scene, const Views& views, Overlay& overlay, Measuring& measuring)
    : _scene(scene), _views(views), _overlay(&overlay), _measuring(measuring),
      _picker(new VelOsgDBBrx::PointPicker(scene.root()))
{
    scene.root()->addChild(_picker);
}

bool PickHandler::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (_click.isCompletedBy(event)) {
        // Each click measures; of those that only show a point the last one counts.
        if (!_measuring.kind()) _clicks.clear();
        _clicks.emplace_back(event.getX(), event.getY());
        if (_clicks.size() == 1) askNext(action);
    }
    if (event.getEventType() == osgGA::GUIEventAdapter::FRAME) {
        takeAnswer(action);
        showHint();
    }
    return false;
}

void PickHandler::askNext(osgGA::GUIActionAdapter& action)
{
    while (!_clicks.empty()) {
        const osg::Vec2& place = _clicks.front();
        const Sight sight = _views.under(place.x(), place.y());
        if (_picker->request(*sight.camera, place.x(), place.y())) break;
        _clicks.pop_front();
    }
    if (!_clicks.empty()) action.requestRedraw();
}

void PickHandler::takeAnswer(osgGA::GUIActionAdapter& action)
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point)) return;
    if (!_clicks.empty()) _clicks.pop_front();
    const std::optional<PointFacts> facts = point ? factsOf(*point, _scene) : std::nullopt;
    if (!_measuring.kind())
        show(facts);
    else if (facts)
        _measuring.addPoint(facts->position);
    askNext(action);
    action.requestRedraw();
}

void PickHandler::showHint()
{
    const std::string hint = _measuring.hint();
    if (hint == _hint) return;
    _hint = hint;
    _overlay->setLines(hint.empty() ? std::vector<std::string>() : std::vector<std::string>{hint});
}

void PickHandler::show(const std::optional<PointFacts>& facts)
{
    _measuring.setPicked(facts);
    const std::vector<std::string> lines = facts ? facts->lines() : std::vector<std::string>();
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
