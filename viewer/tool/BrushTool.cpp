#include "viewer/tool/BrushTool.h"

#include "viewer/tool/Simplify.h"
#include "viewer/tool/StrokeOutline.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr double kStep = 1.15; ///< of the radius, a notch of the wheel
constexpr size_t kMostStretches = 2000;

} // namespace

double BrushSize::pixels() const
{
    const double pixels = isInWorld && pixelsPerUnit > 0 ? radius * pixelsPerUnit : radius;
    return std::clamp(pixels, kSmallest, kLargest);
}

void BrushSize::turn(int steps)
{
    const double perUnit = isInWorld && pixelsPerUnit > 0 ? pixelsPerUnit : 1;
    radius = std::clamp(radius * perUnit * std::pow(kStep, steps), kSmallest, kLargest) / perUnit;
}

void BrushSize::switchUnit()
{
    if (!(pixelsPerUnit > 0)) return;
    radius = isInWorld ? pixels() : radius / pixelsPerUnit;
    isInWorld = !isInWorld;
}

void BrushTool::moveTo(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    if (_isPainting && _way.back() != mouse) _way.push_back(mouse);
}

void BrushTool::press(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    _way = {mouse};
    _isPainting = true;
    _isDone = false;
}

void BrushTool::release(const osg::Vec2d& mouse)
{
    if (!_isPainting) return;
    moveTo(mouse);
    _isPainting = false;
    _isDone = true;
}

void BrushTool::drop()
{
    _way.clear();
    _isPainting = false;
    _isDone = false;
}

std::vector<osg::Vec2d> BrushTool::outline() const
{
    return strokeOutline(simplified(_way, 0.25, kMostStretches), _size.pixels());
}

ToolPreview BrushTool::preview() const
{
    ToolPreview preview;
    const double radius = _size.pixels();
    if (!_way.empty()) preview.paths.push_back({_way, false, false, 2 * radius});
    ToolPreview::Path circle;
    constexpr int kCorners = 48;
    for (int i = 0; i < kCorners; ++i) {
        const double angle = 2 * M_PI * i / kCorners;
        circle.vertices.push_back(_mouse + osg::Vec2d(std::cos(angle), std::sin(angle)) * radius);
    }
    circle.isClosed = true;
    circle.hasCorners = false;
    preview.paths.push_back(circle);
    return preview;
}

std::string BrushTool::hint() const
{
    char size[64];
    std::snprintf(size, sizeof size, _size.isInWorld ? "%.3g units" : "%.0f pixels", _size.radius);
    return std::string("brush of ") + size + ": drag paints, wheel: its size, Insert: its unit, Esc ends";
}
