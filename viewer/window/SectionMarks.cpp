#include "viewer/window/SectionMarks.h"

#include "viewer/window/WorldLines.h"

#include <imgui.h>
#include <osg/Viewport>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace {

constexpr ImU32 kLine = IM_COL32(255, 221, 64, 255);
constexpr ImU32 kShadow = IM_COL32(0, 0, 0, 160);
constexpr ImU32 kText = IM_COL32(235, 235, 235, 255);
constexpr ImU32 kBehindText = IM_COL32(0, 0, 0, 150);
constexpr ImU32 kTick = IM_COL32(200, 200, 200, 200);
constexpr ImU32 kGap = IM_COL32(70, 74, 82, 255);
constexpr double kPixelsBetweenTicks = 110;
constexpr double kBarPixels = 160; ///< of the scale bar, at most

ImVec2 toImGui(const osg::Vec2d& pixel)
{
    return ImVec2(static_cast<float>(pixel.x()), static_cast<float>(pixel.y()));
}

/// The largest of 1, 2 and 5 and their tenfolds that is no larger.
double roundedDown(double number)
{
    const double power = std::pow(10, std::floor(std::log10(number)));
    for (const double digit : {5, 2})
        if (number >= digit * power) return digit * power;
    return power;
}

/// A multiple of `step`, with the decimals that it needs.
std::string numberText(double number, double step)
{
    char text[64];
    const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 6);
    std::snprintf(text, sizeof text, "%.*f", decimals, std::abs(number) < step / 1000 ? 0.0 : number);
    return text;
}

std::string withUnit(const std::string& number, const std::string& symbol)
{
    return symbol.empty() ? number : number + " " + symbol;
}

/// `anchor`: which part of the text is at the place, 0 to 1.
void write(const osg::Vec2d& place, const osg::Vec2d& anchor, const std::string& text, ImU32 color,
           float unit)
{
    const ImVec2 size = ImGui::CalcTextSize(text.c_str());
    const ImVec2 corner(static_cast<float>(place.x() - anchor.x() * size.x),
                        static_cast<float>(place.y() - anchor.y() * size.y));
    const float edge = 2 * unit;
    ImDrawList& list = *ImGui::GetBackgroundDrawList();
    list.AddRectFilled(ImVec2(corner.x - edge, corner.y), ImVec2(corner.x + size.x + edge, corner.y + size.y),
                       kBehindText);
    list.AddText(corner, color, text.c_str());
}

void line(const osg::Vec2d& from, const osg::Vec2d& to, ImU32 color, float width)
{
    ImGui::GetBackgroundDrawList()->AddLine(toImGui(from), toImGui(to), color, width);
}

/// The viewport of a camera in pixels of the window, y down.
struct Rectangle
{
    Rectangle(const osg::Camera& camera, const WindowView& window)
        : left(camera.getViewport()->x()), right(left + camera.getViewport()->width()),
          bottom(window.height - camera.getViewport()->y()), top(bottom - camera.getViewport()->height())
    {
    }

    double left, right, bottom, top;
};

/// Keeps what is drawn in a picture.
class Clipping
{
public:
    explicit Clipping(const Rectangle& area)
    {
        ImGui::GetBackgroundDrawList()->PushClipRect(toImGui({area.left, area.top}),
                                                     toImGui({area.right, area.bottom}), true);
    }
    ~Clipping() { ImGui::GetBackgroundDrawList()->PopClipRect(); }
    Clipping(const Clipping&) = delete;
    Clipping& operator=(const Clipping&) = delete;
};

/// Calls `mark` for each round number between two that stand so many pixels apart.
template <class Mark>
void forTicks(double low, double high, double pixels, float unit, const Mark& mark)
{
    if (!(high > low) || pixels < 1) return;
    const double step = 2 * roundedDown((high - low) / pixels * kPixelsBetweenTicks * unit / 2);
    for (double tick = std::ceil(low / step) * step; tick <= high; tick += step)
        mark(tick, numberText(tick, step));
}

void drawBar(const SectionFrame& frame, const Rectangle& area, const std::string& symbol, float unit)
{
    const double perPixel = frame.span() / (area.right - area.left);
    const double length = roundedDown(perPixel * kBarPixels * unit);
    const osg::Vec2d right(area.right - 14 * unit, area.bottom - 34 * unit);
    const osg::Vec2d left = right - osg::Vec2d(length / perPixel, 0);
    const osg::Vec2d end(0, 4 * unit);
    for (const auto& [color, width] : {std::pair(kShadow, 4.f), std::pair(kText, 2.f)}) {
        line(left, right, color, width * unit);
        line(left - end, left + end, color, width * unit);
        line(right - end, right + end, color, width * unit);
    }
    write((left + right) / 2 - osg::Vec2d(0, 6 * unit), {0.5, 1},
          withUnit(numberText(length, length), symbol), kText, unit);
}

std::string titleOf(const Section& section, const std::string& symbol)
{
    const auto text = [](const char* format, double number) {
        char words[64];
        std::snprintf(words, sizeof words, format, number);
        return std::string(words);
    };
    std::string title = "section  " + withUnit(text("%.2f", section.length()), symbol) + " long, " +
                        withUnit(text("%.4g", section.width), symbol) + " wide";
    if (section.exaggeration != 1) title += ", heights x " + text("%.4g", section.exaggeration);
    return title;
}

} // namespace

void drawSectionScale(const SectionFrame& frame, const osg::Camera& camera, const std::string& symbol,
                      float unit)
{
    const std::optional<WindowView> window = windowViewOf(camera);
    if (!window) return;
    const Rectangle area(camera, *window);
    const Clipping clipping(area);
    const double aspect = camera.getViewport()->aspectRatio();
    const osg::Vec2d low = frame.at({-1, -1}, aspect);
    const osg::Vec2d high = frame.at({1, 1}, aspect);
    const double tick = 6 * unit;
    const auto column = [&](double along) {
        return area.left + (along - low.x()) / (high.x() - low.x()) * (area.right - area.left);
    };
    const auto row = [&](double height) {
        return area.bottom - (height - low.y()) / (high.y() - low.y()) * (area.bottom - area.top);
    };
    forTicks(low.x(), high.x(), area.right - area.left, unit, [&](double along, const std::string& text) {
        const double x = column(along);
        line({x, area.bottom - tick}, {x, area.bottom}, kTick, unit);
        write({x, area.bottom - tick}, {0.5, 1}, text, kText, unit);
    });
    const double edge = 2 * ImGui::GetTextLineHeight();
    forTicks(low.y(), high.y(), (area.bottom - area.top) * 2, unit,
             [&](double height, const std::string& text) {
                 const double y = row(height);
                 if (y > area.bottom - edge || y < area.top + edge)
                     return; // there are distances and the title
                 line({area.left, y}, {area.left + tick, y}, kTick, unit);
                 write({area.left + tick + 3 * unit, y}, {0, 0.5}, text, kText, unit);
             });
    drawBar(frame, area, symbol, unit);

    const Section& section = frame.section();
    const double top = area.top + 6 * unit;
    write({(area.left + area.right) / 2, top}, {0.5, 0}, titleOf(section, symbol), kText, unit);
    write({column(0), top}, {0.5, 0}, "A", kLine, unit);
    write({column(section.length()), top}, {0.5, 0}, "A'", kLine, unit);
}

void drawStrip(const SectionFrame& frame, const osg::Camera& camera, float unit)
{
    const std::optional<WindowView> window = windowViewOf(camera);
    if (!window) return;
    const WorldLines lines(camera, *window);
    const float width = 1.5f * unit;
    const Section& section = frame.section();
    const double height = frame.middle().y();
    const auto corners = section.outline();
    for (size_t i = 0; i < corners.size(); ++i)
        lines.draw(osg::Vec3d(corners[i], height), osg::Vec3d(corners[(i + 1) % 4], height), kLine, width);

    const osg::Vec3d middle((section.from + section.to) / 2, height);
    const osg::Vec3d ahead(section.ahead(), 0);
    const osg::Vec3d along(section.along(), 0);
    const double size = std::max(section.length() / 20, section.width);
    const osg::Vec3d tip = middle + ahead * (section.width / 2 + size);
    lines.draw(middle + ahead * (section.width / 2), tip, kLine, width);
    for (const double side : {-1, 1})
        lines.draw(tip, tip - (ahead - along * side) * (size / 3), kLine, width);
    for (const auto& [end, name] : {std::pair(section.from, "A"), std::pair(section.to, "A'")})
        if (const std::optional<osg::Vec2d> pixel = window->pixelOf(osg::Vec3d(end, height)))
            write(*pixel, {0.5, 0.5}, name, kLine, unit);
}

void drawDivider(const osg::Camera& camera, int pixels)
{
    const std::optional<WindowView> window = windowViewOf(camera);
    if (!window) return;
    const Rectangle area(camera, *window);
    ImGui::GetBackgroundDrawList()->AddRectFilled(toImGui({area.left, area.top - pixels}),
                                                  toImGui({area.right, area.top}), kGap);
}
