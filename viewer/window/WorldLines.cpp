#include "viewer/window/WorldLines.h"

#include <osg/Viewport>

#include <utility>

namespace {

constexpr ImU32 kShadow = IM_COL32(0, 0, 0, 160); ///< seen on light points
constexpr double kNearest = 1e-6;                 ///< of w, in front of the eye

ImVec2 toImGui(const osg::Vec2d& pixel)
{
    return ImVec2(static_cast<float>(pixel.x()), static_cast<float>(pixel.y()));
}

} // namespace

WorldLines::WorldLines(const osg::Camera& camera, const WindowView& window) : _window(window)
{
    const osg::Viewport& area = *camera.getViewport();
    ImGui::GetBackgroundDrawList()->PushClipRect(toImGui(window.turned({area.x(), area.y() + area.height()})),
                                                 toImGui(window.turned({area.x() + area.width(), area.y()})),
                                                 true);
}

WorldLines::~WorldLines()
{
    ImGui::GetBackgroundDrawList()->PopClipRect();
}

void WorldLines::draw(const osg::Vec3d& a, const osg::Vec3d& b, ImU32 color, float width) const
{
    osg::Vec4d from = osg::Vec4d(a, 1) * _window.vpw;
    osg::Vec4d to = osg::Vec4d(b, 1) * _window.vpw;
    if (from.w() < to.w()) std::swap(from, to);
    if (from.w() <= kNearest) return;
    if (to.w() < kNearest) to = from + (to - from) * ((from.w() - kNearest) / (from.w() - to.w()));
    const ImVec2 start = toImGui(_window.turned(osg::Vec2d(from.x(), from.y()) / from.w()));
    const ImVec2 end = toImGui(_window.turned(osg::Vec2d(to.x(), to.y()) / to.w()));
    ImDrawList& list = *ImGui::GetBackgroundDrawList();
    list.AddLine(start, end, kShadow, width + 2);
    list.AddLine(start, end, color, width);
}
