#include "viewer/window/ClipBoxHandles.h"

#include "viewer/operation/Operations.h"
#include "viewer/window/WorldLines.h"

#include <algorithm>
#include <limits>

using osgGA::GUIEventAdapter;

namespace {

constexpr float kRadius = 7; ///< pixels of plain text
constexpr ImU32 kEdge = IM_COL32(150, 160, 175, 255);
constexpr ImU32 kRim = IM_COL32(20, 20, 20, 255);
constexpr ImU32 kAxes[] = {IM_COL32(224, 92, 82, 255), IM_COL32(110, 190, 90, 255),
                           IM_COL32(90, 150, 235, 255)};
constexpr ImU32 kHovered = IM_COL32(255, 221, 64, 255);

osg::Vec2d mouseOf(const GUIEventAdapter& event)
{
    return osg::Vec2d(event.getX(), event.getY());
}

} // namespace

osg::Vec3d ClipBoxHandles::Face::middle(const osg::BoundingBoxd& box) const
{
    osg::Vec3d place = box.center();
    place[axis] = high ? box._max[axis] : box._min[axis];
    return place;
}

bool ClipBoxHandles::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getEventType() == GUIEventAdapter::RELEASE) _dragged.reset();
    if (event.getHandled() || !_stage.scene.clipBox()) return false;
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH:
        if (event.getButton() == GUIEventAdapter::LEFT_MOUSE_BUTTON) _dragged = faceAt(mouseOf(event));
        return _dragged.has_value();
    case GUIEventAdapter::DRAG:
        if (!_dragged) return false;
        dragTo(mouseOf(event));
        action.requestRedraw();
        return true;
    case GUIEventAdapter::MOVE: {
        const bool wasOver = _hovered.has_value();
        _hovered = faceAt(mouseOf(event));
        if (wasOver || _hovered) action.requestRedraw();
        return false;
    }
    default:
        return false;
    }
}

/// Pixels, y up; far away for what is behind the eye.
osg::Vec2d ClipBoxHandles::pixelOf(const osg::Vec3d& world) const
{
    const std::optional<WindowView> window = windowViewOf(*_views.main().camera);
    const std::optional<osg::Vec2d> pixel = window ? window->pixelOf(world) : std::nullopt;
    return pixel ? window->turned(*pixel) : osg::Vec2d(-1e6, -1e6);
}

std::optional<ClipBoxHandles::Face> ClipBoxHandles::faceAt(const osg::Vec2d& mouse) const
{
    if (_views.isOverSection(mouse.x(), mouse.y())) return std::nullopt;
    std::optional<Face> nearest;
    double distance = (kRadius + 3) * _unit;
    for (int axis = 0; axis < 3; ++axis)
        for (const bool high : {false, true}) {
            const Face face{axis, high};
            const double away = (pixelOf(face.middle(*_stage.scene.clipBox())) - mouse).length();
            if (away > distance) continue;
            distance = away;
            nearest = face;
        }
    return nearest;
}

/// The face goes along its axis to where the handle is nearest to the mouse.
void ClipBoxHandles::dragTo(const osg::Vec2d& mouse)
{
    osg::BoundingBoxd box = *_stage.scene.clipBox();
    const int axis = _dragged->axis;
    double& face = _dragged->high ? box._max[axis] : box._min[axis];
    const double step = _views.manipulator().pose().height() / 1000;
    osg::Vec3d way;
    way[axis] = step;
    for (int i = 0; i < 4; ++i) { // in perspective the pixels of a step change along the way
        const osg::Vec3d middle = _dragged->middle(box);
        const osg::Vec2d pixel = pixelOf(middle);
        const osg::Vec2d perStep = pixelOf(middle + way) - pixel;
        if (perStep.length() < 1e-3) return; // seen from its end
        face += step * ((mouse - pixel) * perStep) / perStep.length2();
    }
    const double least = (box._max - box._min).length() * 1e-6;
    const osg::BoundingBoxd& before = *_stage.scene.clipBox();
    if (_dragged->high)
        face = std::max(face, before._min[axis] + least);
    else
        face = std::min(face, before._max[axis] - least);
    Request request(*findOperation("clipBox"));
    request.set("low", osg::Vec3d(box._min));
    request.set("high", osg::Vec3d(box._max));
    if (request.check()) carryOut(request, _stage);
}

void ClipBoxHandles::draw(float unit)
{
    _unit = unit;
    const std::optional<osg::BoundingBoxd>& box = _stage.scene.clipBox();
    const osg::Camera& camera = *_views.main().camera;
    const std::optional<WindowView> window = windowViewOf(camera);
    if (!box || !window) return;
    const WorldLines lines(camera, *window);
    for (unsigned corner = 0; corner < 8; ++corner)
        for (const unsigned axis : {1u, 2u, 4u})
            if (!(corner & axis)) lines.draw(box->corner(corner), box->corner(corner | axis), kEdge, unit);
    const std::optional<Face> marked = _dragged ? _dragged : _hovered;
    for (int axis = 0; axis < 3; ++axis)
        for (const bool high : {false, true}) {
            const osg::Vec2d pixel = window->turned(pixelOf(Face{axis, high}.middle(*box)));
            const ImVec2 place(static_cast<float>(pixel.x()), static_cast<float>(pixel.y()));
            const bool isMarked = marked && marked->axis == axis && marked->high == high;
            ImDrawList& list = *ImGui::GetBackgroundDrawList();
            list.AddCircleFilled(place, (kRadius + 1.5f) * unit, kRim);
            list.AddCircleFilled(place, kRadius * unit, isMarked ? kHovered : kAxes[axis]);
        }
}
