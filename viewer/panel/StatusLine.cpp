#include "viewer/panel/StatusLine.h"

#include "terminal/Text.h"
#include "viewer/measure/PointFacts.h"

#include <imgui.h>

#include <cmath>
#include <cstdio>

using osgGA::GUIEventAdapter;

namespace {

constexpr double kRest = 0.1; ///< seconds after which a mouse rests
constexpr ImGuiWindowFlags kFlags = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoBackground |
                                    ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings |
                                    ImGuiWindowFlags_NoFocusOnAppearing |
                                    ImGuiWindowFlags_NoBringToFrontOnFocus;

} // namespace

StatusLine::StatusLine(Gui& gui, Scene& scene, std::function<Sight(double x, double y)> sightUnder,
                       const std::string& hint)
    : _gui(gui), _scene(scene), _sightUnder(std::move(sightUnder)),
      _picker(new VelOsgDBBrx::PointPicker(scene.root())), _hint(hint)
{
    scene.root()->addChild(_picker);
}

void StatusLine::draw()
{
    const Gui::Area area = _gui.area();
    const float height = ImGui::GetFrameHeight();
    const ImVec2 padding(ImGui::GetStyle().WindowPadding.x, ImGui::GetStyle().FramePadding.y);
    ImGui::SetNextWindowPos(ImVec2(area.x, area.y + area.height - height));
    ImGui::SetNextWindowSize(ImVec2(area.width, height));
    ImGui::PushStyleVar(ImGuiStyleVar_WindowRounding, 0);
    ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, padding);
    ImGui::PushStyleVar(ImGuiStyleVar_WindowMinSize, ImVec2(1, 1));
    ImGui::Begin("##status", nullptr, kFlags);
    ImGui::PopStyleVar(3);
    if (_scene.isEmpty()) _place.clear();
    ImGui::TextUnformatted((_hint.empty() ? _place : _hint).c_str());
    const std::string right = drawing();
    ImGui::SameLine(area.width - ImGui::CalcTextSize(right.c_str()).x - padding.x);
    ImGui::TextUnformatted(right.c_str());
    ImGui::End();
    _gui.takeBottom(height);
}

std::string StatusLine::drawing() const
{
    if (_scene.isEmpty()) return _facts.opening;
    const bool isEmpty = _facts.points == 0 && !_facts.isSettled;
    std::string text = isEmpty ? "loading " + grouped(_facts.wanted) : grouped(_facts.points);
    if (!isEmpty && _facts.wanted > _facts.points) text += " of " + grouped(_facts.wanted);
    text += " points";
    if (const Scene::Drawing& limits = _scene.drawing(); limits.budget || limits.memory)
        text += ", at most " + grouped(_scene.largestPoints());
    if (!_facts.opening.empty())
        text += "  ·  " + _facts.opening;
    else if (!isEmpty)
        text += _facts.isSettled ? "  ·  settled" : "  ·  loading";
    char time[32];
    std::snprintf(time, sizeof time, "  ·  %.0f ms", std::ceil(1e3 * _facts.frameSeconds));
    text += time;
    if (_facts.hidden > 0) text += "  ·  " + grouped(_facts.hidden) + " hidden";
    if (_facts.unsaved > 0) text += "  ·  " + grouped(_facts.unsaved) + " not saved";
    return text;
}

bool StatusLine::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    switch (event.getEventType()) {
    case GUIEventAdapter::MOVE:
        _mouse.reset();
        if (event.getHandled()) break;
        _mouse = osg::Vec2d(event.getX(), event.getY());
        _restTime = event.getTime();
        _gui.wakeAfter(kRest);
        break;
    case GUIEventAdapter::PUSH:
        _mouse.reset();
        break;
    case GUIEventAdapter::DRAG:
    case GUIEventAdapter::SCROLL:
        _mouse.reset();
        _hint.clear();
        break;
    case GUIEventAdapter::KEYDOWN:
        _hint.clear();
        break;
    case GUIEventAdapter::FRAME:
        ask(action, event.getTime());
        break;
    default:
        break;
    }
    return false;
}

void StatusLine::ask(osgGA::GUIActionAdapter& action, double time)
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (_picker->takeAnswer(point)) {
        _place = point ? placeOf(*point, _scene) : std::string();
        action.requestRedraw();
    }
    if (!_mouse || time - _restTime < kRest) return;
    const Sight sight = _sightUnder(_mouse->x(), _mouse->y());
    if (!sight.camera || !_picker->request(*sight.camera, _mouse->x(), _mouse->y())) return;
    _mouse.reset();
    action.requestRedraw();
}
