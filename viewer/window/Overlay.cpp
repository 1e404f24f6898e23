#include "viewer/window/Overlay.h"

#include "terminal/ShownName.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <imgui.h>
#include <imgui_internal.h>
#include <imgui_stdlib.h>

namespace {

constexpr float kMargin = 10.0f;
constexpr float kRampWidth = 12.0f;
constexpr float kRampHeight = 120.0f;
constexpr ImGuiWindowFlags kPanel = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoInputs |
                                    ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoSavedSettings;

constexpr ImGuiWindowFlags kFoldable = (kPanel & ~ImGuiWindowFlags_NoInputs) | ImGuiWindowFlags_NoNav |
                                       ImGuiWindowFlags_NoFocusOnAppearing |
                                       ImGuiWindowFlags_NoBringToFrontOnFocus;
constexpr float kArrow = 0.75f; ///< of the letters' height
constexpr float kPanelAlpha = 0.7f;
constexpr float kWidestText = 0.5f;     ///< of the area; wider lines are broken
constexpr float kLettersOfALine = 70;   ///< that are not broken where the area has room for them
constexpr float kQuestionAlpha = 0.95f; ///< of what is read rather than looked past
const ImVec4 kTitleColor(1.0f, 0.87f, 0.25f, 1.0f);
const ImVec4 kWarningColor(1.0f, 0.45f, 0.35f, 1.0f);
constexpr float kOutlineWidth = 1.5f;
constexpr float kVertexRadius = 3.0f;
constexpr ImU32 kOutlineColor = IM_COL32(255, 221, 64, 255);
constexpr ImU32 kStrokeColor = IM_COL32(255, 221, 64, 70);
constexpr ImU32 kOutlineShadow = IM_COL32(0, 0, 0, 160); ///< seen on light points

ImU32 toImGui(const osg::Vec4f& color)
{
    return ImGui::ColorConvertFloat4ToU32(ImVec4(color.r(), color.g(), color.b(), 1.0f));
}

/// Whether a text holds another one, whatever letters are capital.
bool holds(const std::string& text, const std::string& part)
{
    const auto same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

/// The lists that have something searched for, with that alone; all of a list whose title it is in.
std::vector<KeyList> filtered(const std::vector<KeyList>& lists, const std::string& searched)
{
    std::vector<KeyList> found;
    for (const KeyList& list : lists) {
        KeyList part{list.title, {}};
        for (const auto& [key, words] : list.keys)
            if (holds(list.title, searched) || holds(key, searched) || holds(words, searched))
                part.keys.emplace_back(key, words);
        if (!part.keys.empty()) found.push_back(part);
    }
    return found;
}

/// Lists one below the other.
struct HelpColumn
{
    std::vector<const KeyList*> lists;
    size_t rows = 0;
    float keyWidth = 0; ///< pixels
    float width = 0;

    void add(const KeyList& list)
    {
        lists.push_back(&list);
        rows += list.keys.size() + 2;
        const float gap = 2 * ImGui::GetTextLineHeight();
        for (const auto& [key, words] : list.keys) {
            const float wordsWidth = width - keyWidth - gap;
            keyWidth = std::max(keyWidth, ImGui::CalcTextSize(key.c_str()).x);
            width = keyWidth + gap + std::max(wordsWidth, ImGui::CalcTextSize(words.c_str()).x);
        }
    }

    /// Words are broken at `right`, a place in the window; 0 for none.
    void draw(float right) const
    {
        ImGui::BeginGroup();
        ImGui::PushTextWrapPos(right > 0 ? right : -1);
        for (const KeyList* list : lists) {
            ImGui::TextColored(kTitleColor, "%s", list->title.c_str());
            for (const auto& [key, words] : list->keys) {
                ImGui::TextUnformatted(key.c_str());
                ImGui::SameLine(keyWidth + 2 * ImGui::GetTextLineHeight());
                ImGui::TextUnformatted(words.c_str());
            }
            ImGui::NewLine();
        }
        ImGui::PopTextWrapPos();
        ImGui::EndGroup();
    }
};

/// Of a box of text, broken at `widest`. What fits by itself does so one frame late.
ImVec2 sizeOfBox(const std::vector<std::string>& lines, float widest)
{
    const ImGuiStyle& style = ImGui::GetStyle();
    ImVec2 size(0, -style.ItemSpacing.y);
    for (const std::string& line : lines) {
        const ImVec2 text = ImGui::CalcTextSize(line.c_str(), nullptr, false, widest - style.WindowPadding.x);
        size.x = std::max(size.x, text.x);
        size.y += text.y + style.ItemSpacing.y;
    }
    return ImVec2(size.x + 2 * style.WindowPadding.x, size.y + 2 * style.WindowPadding.y);
}

/// The next list always in the shortest column.
std::vector<HelpColumn> columnsOf(const std::vector<KeyList>& lists, size_t count)
{
    std::vector<HelpColumn> columns(count);
    const auto isShorter = [](const HelpColumn& a, const HelpColumn& b) { return a.rows < b.rows; };
    for (const KeyList& list : lists)
        std::min_element(columns.begin(), columns.end(), isShorter)->add(list);
    return columns;
}

/// Of a window that another one would lie over: below that.
float below(const char* name, const char* other)
{
    const ImGuiWindow* const window = ImGui::FindWindowByName(name);
    const ImGuiWindow* const above = ImGui::FindWindowByName(other);
    const bool areMet = window && above && above->Active && above->Pos.x < window->Pos.x + window->Size.x;
    return areMet ? above->Pos.y + above->Size.y + kMargin : 0;
}

/// The round end of a stroke that comes from a place.
void drawCap(ImDrawList& list, const ImVec2& from, const ImVec2& end, float radius)
{
    const auto quarter = static_cast<float>(M_PI_2);
    const float angle = std::atan2(end.y - from.y, end.x - from.x);
    list.PathArcTo(end, radius, angle - quarter, angle + quarter);
    list.PathFillConvex(kStrokeColor);
}

} // namespace

void Overlay::showHelp(const std::vector<KeyList>& lists, bool searches)
{
    _help = lists;
    _searched.clear();
    _searches = searches;
}

void Overlay::draw(const Gui& gui)
{
    for (const ToolPreview::Path& path : _drawing.paths)
        drawPath(path, gui.unit());
    drawText("panel", _panel, gui.area(), osg::Vec2d(1, 0), kPanelAlpha);
    if (!_legend.title.empty()) drawLegend(gui);
    drawText("lines", _lines, gui.area(), osg::Vec2d(0, 1), kPanelAlpha);
    if (!_help.empty()) drawHelp(gui.area());
    std::vector<std::string> middle = _question;
    if (middle.empty() && !_notice.empty()) middle = {_notice};
    drawText("question", middle, gui.area(), osg::Vec2d(0.5, 0.5), kQuestionAlpha);
}

void Overlay::drawLegend(const Gui& gui)
{
    const Gui::Area& area = gui.area();
    const float top = std::max(area.y + kMargin, below("legend", "panel"));
    ImGui::SetNextWindowPos(ImVec2(area.x + kMargin, top));
    ImGui::SetNextWindowBgAlpha(kPanelAlpha);
    ImGui::Begin("legend", nullptr, _isFoldable ? kFoldable : kPanel);
    drawTitle();
    if (!_isFolded) {
        if (!_legend.remark.empty()) ImGui::TextUnformatted(_legend.remark.c_str());
        const float room = area.y + area.height - kMargin - top - ImGui::GetCursorPosY();
        drawEntries(room);
        if (_legend.ramp.size() > 1) drawRamp(room, gui.unit());
    }
    ImGui::End();
}

/// The mouse is the scene's over all else of the legend.
void Overlay::drawTitle()
{
    if (!_isFoldable) {
        ImGui::TextUnformatted(_legend.title.c_str());
        return;
    }
    const float arrow = ImGui::GetFontSize();
    const ImVec2 corner = ImGui::GetCursorScreenPos();
    ImGui::RenderArrow(ImGui::GetWindowDrawList(), ImVec2(corner.x, corner.y + (1 - kArrow) / 2 * arrow),
                       ImGui::GetColorU32(ImGuiCol_Text), _isFolded ? ImGuiDir_Right : ImGuiDir_Down, kArrow);
    if (ImGui::InvisibleButton(
            "fold", ImVec2(arrow + ImGui::CalcTextSize(_legend.title.c_str()).x, ImGui::GetTextLineHeight())))
        _isFolded = !_isFolded;
    const bool isPointedAt = ImGui::IsItemHovered();
    const ImU32 color =
        isPointedAt ? ImGui::ColorConvertFloat4ToU32(kTitleColor) : ImGui::GetColorU32(ImGuiCol_Text);
    ImGui::GetWindowDrawList()->AddText(ImVec2(corner.x + arrow, corner.y), color, _legend.title.c_str());
    ImGuiWindow& window = *ImGui::GetCurrentWindow();
    ImGui::SetWindowHitTestHole(&window, ImVec2(window.Pos.x, ImGui::GetItemRectMax().y), window.Size);
    if (isPointedAt)
        ImGui::SetTooltip("%s",
                          _isFolded ? "Click: the colours\nL: no legend" : "Click: fold it\nL: no legend");
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
        ImGui::TextUnformatted(shownName(entry.text).c_str());
    }
    if (shown < all) ImGui::TextUnformatted(("and " + std::to_string(all - shown) + " more").c_str());
}

void Overlay::drawRamp(float room, float unit) const
{
    const ImVec2 corner = ImGui::GetCursorScreenPos();
    const float line = ImGui::GetTextLineHeight();
    const float width = kRampWidth * unit;
    const float height = std::clamp(room - 2 * line, line, kRampHeight * unit);
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

void Overlay::drawPath(const ToolPreview::Path& path, float unit)
{
    std::vector<ImVec2> points;
    for (const osg::Vec2d& vertex : path.vertices)
        points.emplace_back(static_cast<float>(vertex.x()), static_cast<float>(vertex.y()));
    if (points.empty()) return;
    ImDrawList* const list = ImGui::GetBackgroundDrawList();
    const int count = static_cast<int>(points.size());
    if (path.width > 0) {
        const auto width = static_cast<float>(path.width);
        list->AddPolyline(points.data(), count, kStrokeColor, ImDrawFlags_None, width);
        if (count == 1) list->AddCircleFilled(points.front(), width / 2, kStrokeColor);
        if (count > 1) {
            drawCap(*list, points[1], points[0], width / 2);
            drawCap(*list, points[points.size() - 2], points.back(), width / 2);
        }
        return;
    }
    const ImDrawFlags flags = path.isClosed ? ImDrawFlags_Closed : ImDrawFlags_None;
    list->AddPolyline(points.data(), count, kOutlineShadow, flags, 3 * kOutlineWidth * unit);
    list->AddPolyline(points.data(), count, kOutlineColor, flags, kOutlineWidth * unit);
    if (!path.hasCorners) return;
    for (const ImVec2& point : points)
        list->AddCircleFilled(point, kVertexRadius * unit, kOutlineColor);
}

/// As large as all keys need, however few of them are found, and no larger than the area: it scrolls then,
/// and where it is narrow there is one column of broken lines.
void Overlay::drawHelp(const Gui::Area& area)
{
    const float gap = 2 * ImGui::GetTextLineHeight();
    const float widest = area.width - 4 * kMargin;
    const std::vector<HelpColumn> all = columnsOf(_help, 2);
    const float wanted = all[0].width + all[1].width + 2 * gap;
    const bool isNarrow = wanted > widest;
    const float rows = static_cast<float>(std::max(all[0].rows, all[1].rows) * (isNarrow ? 2 : 1));
    const ImVec2 size(std::min(wanted, widest),
                      std::min(rows * ImGui::GetTextLineHeightWithSpacing(),
                               area.height - 6 * kMargin - ImGui::GetFrameHeightWithSpacing()));
    ImGui::SetNextWindowPos(ImVec2(area.x + area.width / 2, area.y + area.height / 2), ImGuiCond_Always,
                            ImVec2(0.5f, 0.5f));
    ImGui::SetNextWindowBgAlpha(kQuestionAlpha);
    ImGui::Begin("help", nullptr, kPanel & ~ImGuiWindowFlags_NoInputs);
    drawSearch();
    ImGui::BeginChild("keys", size);
    const std::vector<KeyList> found = filtered(_help, _searched);
    if (found.empty()) ImGui::TextUnformatted("no key or mouse button does that");
    for (const HelpColumn& column : columnsOf(found, isNarrow ? 1 : 2)) {
        column.draw(isNarrow ? ImGui::GetContentRegionMax().x : 0);
        ImGui::SameLine(0, gap);
    }
    ImGui::EndChild();
    ImGui::End();
}

void Overlay::drawSearch()
{
    if (_searches) ImGui::SetKeyboardFocusHere();
    _searches = false;
    ImGui::InputTextWithHint("##search", "search", &_searched);
    // Escape ends typing; people mean the list with it.
    if (ImGui::IsItemDeactivated() && ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape))) hideHelp();
}

/// Lines of text at a place of the area: 0 is its left or top, 1 its right or bottom.
void Overlay::drawText(const char* name, const std::vector<std::string>& lines, const Gui::Area& area,
                       const osg::Vec2d& place, float alpha) const
{
    if (lines.empty()) return;
    const ImVec2 pivot(static_cast<float>(place.x()), static_cast<float>(place.y()));
    ImGui::SetNextWindowPos(ImVec2(area.x + kMargin + pivot.x * (area.width - 2 * kMargin),
                                   area.y + kMargin + pivot.y * (area.height - 2 * kMargin)),
                            ImGuiCond_Always, pivot);
    ImGui::SetNextWindowBgAlpha(alpha);
    const float wanted = std::max(kWidestText * area.width, kLettersOfALine * ImGui::CalcTextSize("0").x);
    const float widest = std::min(wanted, area.width - 2 * kMargin - ImGui::GetStyle().WindowPadding.x);
    ImGui::SetNextWindowSize(sizeOfBox(lines, widest));
    ImGui::Begin(name, nullptr, kPanel & ~ImGuiWindowFlags_AlwaysAutoResize);
    ImGui::PushTextWrapPos(widest);
    for (const std::string& line : lines) {
        if (line.rfind("! ", 0) == 0) ImGui::PushStyleColor(ImGuiCol_Text, kWarningColor);
        ImGui::TextUnformatted(line.c_str());
        if (line.rfind("! ", 0) == 0) ImGui::PopStyleColor();
    }
    ImGui::PopTextWrapPos();
    ImGui::End();
}
