#include "viewer/Overlay.h"

#include <algorithm>
#include <backends/imgui_impl_opengl3.h>
#include <cmath>
#include <imgui.h>
#include <osg/RenderInfo>
#include <osg/Viewport>

namespace {

/// Letters are drawn in whole multiples of their built-in size, one more for every so many rows.
constexpr double kRowsPerUnit = 900.0;
constexpr float kFontSize = 13.0f;
constexpr float kMargin = 10.0f;
constexpr float kRampWidth = 16.0f;
constexpr float kRampHeight = 180.0f;
constexpr ImGuiWindowFlags kPanel = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoInputs |
                                    ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoSavedSettings;

ImU32 toImGui(const osg::Vec4f& color)
{
    return ImGui::ColorConvertFloat4ToU32(ImVec4(color.r(), color.g(), color.b(), 1.0f));
}

} // namespace

Overlay::~Overlay()
{
    if (_context) ImGui::DestroyContext(_context);
}

void Overlay::setLegend(const Legend& legend)
{
    const std::lock_guard<std::mutex> lock(_mutex);
    _legend = legend;
}

void Overlay::setLines(const std::vector<std::string>& lines)
{
    const std::lock_guard<std::mutex> lock(_mutex);
    _lines = lines;
}

void Overlay::operator()(osg::RenderInfo& renderInfo) const
{
    const std::lock_guard<std::mutex> lock(_mutex);
    const osg::Viewport* viewport = renderInfo.getCurrentCamera()->getViewport();
    if (!viewport || (_legend.title.empty() && _lines.empty())) return;
    beginFrame(*viewport);
    if (!_legend.title.empty()) drawLegend(*viewport);
    if (!_lines.empty()) drawLines(*viewport);
    ImGui::Render();
    ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
}

void Overlay::releaseGLObjects(osg::State*) const
{
    const std::lock_guard<std::mutex> lock(_mutex);
    if (!_hasGlObjects) return;
    ImGui::SetCurrentContext(_context);
    ImGui_ImplOpenGL3_Shutdown();
    _hasGlObjects = false;
}

void Overlay::beginFrame(const osg::Viewport& viewport) const
{
    if (!_context) {
        _context = ImGui::CreateContext();
        ImGui::SetCurrentContext(_context);
        ImGui::GetIO().IniFilename = nullptr;
        ImGui::GetStyle().WindowRounding = 4.0f;
        _unit = static_cast<float>(std::max(1.0, std::round(viewport.height() / kRowsPerUnit)));
        ImFontConfig font;
        font.SizePixels = kFontSize * _unit;
        ImGui::GetIO().Fonts->AddFontDefault(&font);
    }
    ImGui::SetCurrentContext(_context);
    if (!_hasGlObjects) _hasGlObjects = ImGui_ImplOpenGL3_Init("#version 130");
    ImGuiIO& io = ImGui::GetIO();
    io.DisplaySize = ImVec2(static_cast<float>(viewport.width()), static_cast<float>(viewport.height()));
    ImGui_ImplOpenGL3_NewFrame();
    ImGui::NewFrame();
}

void Overlay::drawLegend(const osg::Viewport& viewport) const
{
    ImGui::SetNextWindowPos(ImVec2(kMargin, kMargin));
    ImGui::SetNextWindowBgAlpha(0.7f);
    ImGui::Begin("legend", nullptr, kPanel);
    ImGui::TextUnformatted(_legend.title.c_str());
    const float room = static_cast<float>(viewport.height()) - 2 * kMargin - ImGui::GetCursorPosY();
    drawEntries(room);
    if (_legend.ramp.size() > 1) drawRamp(room);
    ImGui::End();
}

/// As many as there is room for.
void Overlay::drawEntries(float room) const
{
    const auto rows = static_cast<size_t>(std::max(room / ImGui::GetTextLineHeightWithSpacing(), 1.0f));
    const size_t all = _legend.entries.size();
    const size_t shown = all <= rows ? all : rows - 1;
    for (size_t i = 0; i < shown; ++i) {
        const Legend::Entry& entry = _legend.entries[i];
        const ImVec2 corner = ImGui::GetCursorScreenPos();
        const float side = ImGui::GetTextLineHeight();
        ImGui::GetWindowDrawList()->AddRectFilled(corner, ImVec2(corner.x + side, corner.y + side),
                                                  toImGui(entry.color));
        ImGui::Dummy(ImVec2(side, side));
        ImGui::SameLine();
        ImGui::TextUnformatted(entry.text.c_str());
    }
    if (shown < all) ImGui::TextUnformatted(("and " + std::to_string(all - shown) + " more").c_str());
}

void Overlay::drawRamp(float room) const
{
    const ImVec2 corner = ImGui::GetCursorScreenPos();
    const float line = ImGui::GetTextLineHeight();
    const float width = kRampWidth * _unit;
    const float height = std::clamp(room - 2 * line, line, kRampHeight * _unit);
    const float top = corner.y + line / 2; // room for half of the uppermost number
    const auto row = [&](double position) { return top + height * static_cast<float>(1.0 - position); };
    ImDrawList* list = ImGui::GetWindowDrawList();
    for (size_t i = 1; i < _legend.ramp.size(); ++i) {
        const ImU32 low = toImGui(_legend.ramp[i - 1].color);
        const ImU32 high = toImGui(_legend.ramp[i].color);
        list->AddRectFilledMultiColor(ImVec2(corner.x, row(_legend.ramp[i].position)),
                                      ImVec2(corner.x + width, row(_legend.ramp[i - 1].position)), high, high,
                                      low, low);
    }
    float textWidth = 0;
    for (size_t i = 0; i < _legend.numbers.size(); ++i) {
        const std::string& number = _legend.numbers[i];
        const double position = static_cast<double>(i) / static_cast<double>(_legend.numbers.size() - 1);
        list->AddText(ImVec2(corner.x + width + line / 2, row(position) - line / 2),
                      ImGui::GetColorU32(ImGuiCol_Text), number.c_str());
        textWidth = std::max(textWidth, ImGui::CalcTextSize(number.c_str()).x);
    }
    ImGui::Dummy(ImVec2(width + line / 2 + textWidth, height + line));
}

void Overlay::drawLines(const osg::Viewport& viewport) const
{
    ImGui::SetNextWindowPos(ImVec2(kMargin, static_cast<float>(viewport.height()) - kMargin),
                            ImGuiCond_Always, ImVec2(0, 1));
    ImGui::SetNextWindowBgAlpha(0.7f);
    ImGui::Begin("lines", nullptr, kPanel);
    for (const std::string& line : _lines)
        ImGui::TextUnformatted(line.c_str());
    ImGui::End();
}
