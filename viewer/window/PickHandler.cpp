#include "viewer/window/PickHandler.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr const char* kOfPreview = "a point of a preview: its survey can be asked when its store is built";

bool isOfPreview(const VelOsgDBBrx::PickedPoint& point, const Scene& scene)
{
    const std::vector<Scene::Cloud>& previews = scene.previews();
    return std::any_of(previews.begin(), previews.end(),
                       [&](const Scene::Cloud& preview) { return preview.id == point.cloudId; });
}

} // namespace

PickHandler::PickHandler(Scene& scene, const Views& views, Overlay& overlay, Measuring& measuring)
    : _scene(scene), _views(views), _overlay(&overlay), _measuring(measuring),
      _picker(new VelOsgDBBrx::PointPicker(scene.root()))
{
    scene.root()->addChild(_picker);
}

bool PickHandler::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (_click.isCompletedBy(event)) {
        const osg::Vec2 place(event.getX(), event.getY());
        if (_measuring.kind())
            _measuring.add({Measuring::Input::CLICK, place});
        else
            ask(place, false);
        action.requestRedraw();
    }
    if (event.getEventType() == osgGA::GUIEventAdapter::FRAME) {
        takeAnswer(action);
        const Measuring::Input* const next = _asked ? nullptr : _measuring.nextClick();
        if (next && !ask(next->place, true)) _measuring.takeClick();
        if (_asked) action.requestRedraw();
        showHint();
    }
    return false;
}

bool PickHandler::ask(const osg::Vec2& place, bool measures)
{
    const Sight sight = _views.under(place.x(), place.y());
    if (!sight.camera || !_picker->request(*sight.camera, place.x(), place.y())) return false;
    _asked = true;
    _measures = measures;
    return true;
}

void PickHandler::takeAnswer(osgGA::GUIActionAdapter& action)
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point)) return;
    _asked = false;
    const std::optional<PointFacts> facts = point ? factsOf(*point, _scene) : std::nullopt;
    action.requestRedraw();
    if (!_measures) {
        show(facts);
    } else if (_measuring.nextClick()) { // not where the measuring has ended meanwhile
        _measuring.takeClick();
        if (facts) _measuring.addPoint(facts->position);
    }
    if (point && isOfPreview(*point, _scene)) _overlay->setLines({kOfPreview});
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
    _overlay->setLines(facts ? facts->brief() : std::vector<std::string>());
    if (facts) std::printf("%s\n", facts->line().c_str());
    std::fflush(stdout);
}

void PickHandler::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("Left click", "Show the point under the mouse");
}
