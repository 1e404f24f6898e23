#include "viewer/window/SectionTool.h"

#include "viewer/edit/WindowView.h"

#include <imgui.h>

#include <algorithm>

using osgGA::GUIEventAdapter;

namespace {

constexpr int kPickRadius = 12; ///< pixels
constexpr ImU32 kLine = IM_COL32(255, 221, 64, 255);
constexpr ImU32 kText = IM_COL32(255, 255, 255, 255);
constexpr ImU32 kBehindText = IM_COL32(0, 0, 0, 200);

} // namespace

SectionTool::SectionTool(const Scene& scene, Views& views)
    : _views(views), _picker(new VelOsgDBBrx::PointPicker(scene.root(), kPickRadius))
{
    scene.root()->addChild(_picker);
    _views.setDrawing([this] {
        _isActive = true;
        _isAsked = false;
        _next.reset();
        _first.reset();
    });
}

bool SectionTool::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getEventType() == GUIEventAdapter::FRAME) takeAnswer();
    if (!_isActive || event.getHandled()) return false;
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH:
        return press(event, action);
    case GUIEventAdapter::RELEASE:
    case GUIEventAdapter::DOUBLECLICK:
        return event.getButton() == GUIEventAdapter::LEFT_MOUSE_BUTTON;
    case GUIEventAdapter::MOVE:
    case GUIEventAdapter::DRAG:
        _mouse.set(event.getX(), event.getY());
        action.requestRedraw();
        return (event.getButtonMask() & GUIEventAdapter::LEFT_MOUSE_BUTTON) != 0;
    case GUIEventAdapter::KEYDOWN:
        if (event.getKey() != GUIEventAdapter::KEY_Escape) return false;
        _isActive = false;
        action.requestRedraw();
        return true;
    default:
        return false;
    }
}

bool SectionTool::press(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getButton() != GUIEventAdapter::LEFT_MOUSE_BUTTON) return false;
    _mouse.set(event.getX(), event.getY());
    if (_isAsked)
        _next = _mouse;
    else
        ask(_mouse);
    action.requestRedraw();
    return true;
}

void SectionTool::ask(const osg::Vec2d& click)
{
    _click = click;
    _next.reset();
    _isAsked = _picker->request(*_views.under(_click.x(), _click.y()).camera, _click.x(), _click.y());
}

void SectionTool::takeAnswer()
{
    std::optional<VelOsgDBBrx::PickedPoint> point;
    if (!_picker->takeAnswer(point) || !_isActive || !_isAsked) return;
    _isAsked = false;
    add(point ? point->position : besidePoints());
    if (_isActive && _next) ask(osg::Vec2d(*_next));
}

osg::Vec3d SectionTool::besidePoints() const
{
    const osg::Camera& camera = *_views.under(_click.x(), _click.y()).camera;
    const osg::Vec2d place = Views::placeOf(camera, _click.x(), _click.y());
    const double aspect = camera.getViewport()->aspectRatio();
    if (&camera == &_views.sectionCamera()) return _views.frame()->worldAt(_views.frame()->at(place, aspect));
    return _views.manipulator().pose().worldAt(place, aspect);
}

void SectionTool::add(const osg::Vec3d& end)
{
    if (!_first) {
        _first = end;
        return;
    }
    Section section;
    section.from.set(_first->x(), _first->y());
    section.to.set(end.x(), end.y());
    if (section.length() == 0) return; // the same point twice: another end is to be clicked
    const std::optional<Section> before = _views.section();
    section.width = before ? before->width : Section::widthFor(section.length());
    if (before) section.exaggeration = before->exaggeration;
    _isActive = false;
    _views.showSection(section);
}

void SectionTool::draw(float unit) const
{
    if (!_isActive) return;
    ImDrawList& list = *ImGui::GetBackgroundDrawList();
    const std::optional<WindowView> window = windowViewOf(*_views.main().camera);
    if (!window) return;
    const osg::Vec2d mouse = window->turned(_mouse);
    const ImVec2 cursor(static_cast<float>(mouse.x()), static_cast<float>(mouse.y()));
    if (_first) {
        if (const std::optional<osg::Vec2d> first = window->pixelOf(*_first)) {
            const ImVec2 from(static_cast<float>(first->x()), static_cast<float>(first->y()));
            list.AddLine(from, cursor, kBehindText, 4 * unit);
            list.AddLine(from, cursor, kLine, 2 * unit);
            list.AddCircleFilled(from, 4 * unit, kLine);
        }
    }
    const char* const words =
        _first ? "section: click its right end (Esc cancels)" : "section: click its left end (Esc cancels)";
    const ImVec2 size = ImGui::CalcTextSize(words);
    const float rightmost = static_cast<float>(window->width) - size.x - 6 * unit;
    const ImVec2 place(std::min(cursor.x + 14 * unit, rightmost), cursor.y + 10 * unit);
    const float edge = 3 * unit;
    list.AddRectFilled(ImVec2(place.x - edge, place.y - edge),
                       ImVec2(place.x + size.x + edge, place.y + size.y + edge), kBehindText);
    list.AddText(place, kText, words);
}
