#include "viewer/measure/MeasureMarks.h"

#include "viewer/edit/WindowView.h"

#include <imgui.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr ImU32 kDone = IM_COL32(255, 214, 64, 255);
constexpr ImU32 kAtHand = IM_COL32(120, 235, 255, 255);
constexpr ImU32 kDark = IM_COL32(0, 0, 0, 190);

/// Draws in one picture.
class Pen
{
public:
    Pen(const Sight& sight, const WindowView& view, float unit)
        : _sight(sight), _view(view), _unit(unit), _list(*ImGui::GetBackgroundDrawList())
    {
        const osg::Viewport& area = *sight.camera->getViewport();
        const auto left = static_cast<float>(area.x());
        const auto top = static_cast<float>(view.height - area.y() - area.height());
        _list.PushClipRect(
            ImVec2(left, top),
            ImVec2(left + static_cast<float>(area.width()), top + static_cast<float>(area.height())), true);
    }
    ~Pen() { _list.PopClipRect(); }
    Pen(const Pen&) = delete;
    Pen& operator=(const Pen&) = delete;

    void draw(const Measurement& measurement, ImU32 color)
    {
        std::vector<osg::Vec3d> line = measurement.points;
        if (measurement.kind == MeasureKind::HEIGHT && measurement.ground)
            line.emplace_back(line[0].x(), line[0].y(), *measurement.ground);
        const bool isClosed = measurement.kind == MeasureKind::AREA && line.size() > 2;
        for (size_t i = 0; i + (isClosed ? 0 : 1) < line.size(); ++i)
            drawEdge(line[i], line[(i + 1) % line.size()], color);
        for (const osg::Vec3d& point : line)
            drawPoint(point, color);
    }

    /// Lines of text beside a place.
    void write(const osg::Vec3d& place, const std::string& text, ImU32 color)
    {
        const std::optional<ImVec2> pixel = pixelOf(place);
        if (!pixel || text.empty()) return;
        const ImVec2 size = ImGui::CalcTextSize(text.c_str());
        const float gap = 4 * _unit;
        const ImVec2 low(std::round(pixel->x + 3 * gap), std::round(pixel->y - size.y / 2));
        _list.AddRectFilled(ImVec2(low.x - gap, low.y - gap / 2),
                            ImVec2(low.x + size.x + gap, low.y + size.y + gap / 2), kDark, gap);
        _list.AddText(low, color, text.c_str());
    }

    /// A dark line below a light one is seen on every ground.
    void drawLine(const ImVec2& from, const ImVec2& to, ImU32 color)
    {
        _list.AddLine(from, to, kDark, 4 * _unit);
        _list.AddLine(from, to, color, 2 * _unit);
    }

    std::optional<ImVec2> pixelOf(const osg::Vec3d& place) const
    {
        for (const osg::Vec4d& plane : _sight.planes)
            if (plane * osg::Vec4d(place, 1) < 0) return std::nullopt;
        const std::optional<osg::Vec2d> pixel = _view.pixelOf(place);
        if (!pixel) return std::nullopt;
        return ImVec2(static_cast<float>(pixel->x()), static_cast<float>(pixel->y()));
    }

private:
    void drawPoint(const osg::Vec3d& place, ImU32 color)
    {
        const std::optional<ImVec2> pixel = pixelOf(place);
        if (!pixel) return;
        _list.AddCircleFilled(*pixel, 5 * _unit, kDark);
        _list.AddCircleFilled(*pixel, 3.5f * _unit, color);
    }

    /// What of an edge is in front of the camera and in the picture's own space.
    void drawEdge(osg::Vec3d from, osg::Vec3d to, ImU32 color)
    {
        constexpr double kNear = 1e-3; // of what is ahead of the camera, so that no pixel is infinite
        const auto ahead = [&](const osg::Vec3d& place) { return (osg::Vec4d(place, 1) * _view.vpw).w(); };
        const double least = kNear * std::max(std::abs(ahead(from)), std::abs(ahead(to)));
        if (!cut(from, to, ahead(from) - least, ahead(to) - least)) return;
        for (const osg::Vec4d& plane : _sight.planes)
            if (!cut(from, to, plane * osg::Vec4d(from, 1), plane * osg::Vec4d(to, 1))) return;
        const std::optional<osg::Vec2d> a = _view.pixelOf(from);
        const std::optional<osg::Vec2d> b = _view.pixelOf(to);
        if (a && b)
            drawLine(ImVec2(static_cast<float>(a->x()), static_cast<float>(a->y())),
                     ImVec2(static_cast<float>(b->x()), static_cast<float>(b->y())), color);
    }

    /// Leaves what of an edge has a positive distance; false where nothing has.
    static bool cut(osg::Vec3d& from, osg::Vec3d& to, double fromDistance, double toDistance)
    {
        if (fromDistance < 0 && toDistance < 0) return false;
        const osg::Vec3d step = to - from;
        if (fromDistance < 0) from += step * (fromDistance / (fromDistance - toDistance));
        if (toDistance < 0) to -= step * (toDistance / (toDistance - fromDistance));
        return true;
    }

    const Sight& _sight;
    const WindowView& _view;
    const float _unit;
    ImDrawList& _list;
};

/// Where the figures of a measurement stand.
osg::Vec3d placeOfText(const Measurement& measurement)
{
    const std::vector<osg::Vec3d>& points = measurement.points;
    if (measurement.kind == MeasureKind::ANGLE) return points[1];
    if (measurement.kind != MeasureKind::AREA) return points.back();
    osg::Vec3d middle;
    for (const osg::Vec3d& point : points)
        middle += (point - points[0]) / static_cast<double>(points.size());
    return points[0] + middle;
}

/// The number of a measurement and the first two of its figures.
std::string textOf(unsigned number, const std::vector<Figure>& figures)
{
    std::string text = number > 0 ? std::to_string(number) + ":" : std::string();
    for (size_t i = 0; i < std::min<size_t>(figures.size(), 2); ++i)
        text += (text.empty() ? "" : i == 0 ? " " : "\n") + figures[i].name + " " + figures[i].text();
    return text;
}

/// What is begun, with a line to the mouse.
void drawAtHand(const Measuring& measuring, const Units& units, Pen& pen)
{
    if (measuring.points().empty()) return;
    const Measurement measurement{*measuring.kind(), measuring.points(), std::nullopt};
    pen.draw(measurement, kAtHand);
    if (const std::optional<ImVec2> last = pen.pixelOf(measurement.points.back());
        last && ImGui::IsMousePosValid())
        pen.drawLine(*last, ImGui::GetIO().MousePos, kAtHand);
    const bool isWhole = measurement.points.size() >= pointsOf(measurement.kind).fewest;
    if (isWhole) pen.write(placeOfText(measurement), textOf(0, figuresOf(measurement, units)), kAtHand);
}

} // namespace

void drawMeasureMarks(const Measuring& measuring, const std::vector<Sight>& sights, float unit)
{
    for (const Sight& sight : sights) {
        const std::optional<WindowView> view = windowViewOf(*sight.camera);
        if (!view) continue;
        Pen pen(sight, *view, unit);
        for (const Measurements::Entry& entry : measuring.list().all())
            pen.draw(entry.measurement, kDone);
        for (const Measurements::Entry& entry : measuring.list().all())
            pen.write(placeOfText(entry.measurement), textOf(entry.number, entry.figures), kDone);
        drawAtHand(measuring, measuring.units(), pen);
    }
}
