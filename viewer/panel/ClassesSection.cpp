#include "viewer/panel/ClassesSection.h"

#include "terminal/ClassesFile.h"
#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/operation/Operations.h"
#include "viewer/panel/Widgets.h"

#include <imgui.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

constexpr double kLookAgain = 0.1; ///< seconds, while points are counted
constexpr int kMostRows = 18;      ///< that are seen at once

ClassSet only(int code)
{
    return ClassSet().set(static_cast<size_t>(code));
}

/// In little room: from a hundred thousand on with three digits, "123 k", "1.23 M".
std::string shortCount(uint64_t points)
{
    constexpr uint64_t kLeast = 100000;
    constexpr double kLarge = 999.5; // would be written with four digits
    if (points < kLeast) return grouped(points);
    constexpr char kUnits[] = {'k', 'M', 'G', 'T'};
    double value = static_cast<double>(points) / 1000;
    size_t unit = 0;
    for (; value >= kLarge && unit + 1 < std::size(kUnits); ++unit)
        value /= 1000;
    const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    char text[32];
    std::snprintf(text, sizeof text, "%.*f %c", decimals, value, kUnits[unit]);
    return text;
}

void textAtRight(const std::string& text)
{
    const float room = ImGui::GetContentRegionAvail().x - ImGui::CalcTextSize(text.c_str()).x;
    ImGui::SetCursorPosX(ImGui::GetCursorPosX() + std::max(room, 0.0f));
    ImGui::TextUnformatted(text.c_str());
}

} // namespace

ClassesSection::ClassesSection(const Stage& stage, ClassChoice& choice, ClassCounts& counts, Gui& gui,
                               std::function<std::string()> file)
    : _stage(stage), _choice(choice), _gui(gui), _file(std::move(file)), _counts(counts)
{
}

void ClassesSection::draw()
{
    _counts.update();
    drawRows();
    if (const std::optional<double> progress = _counts.progress()) {
        _gui.wakeAfter(kLookAgain);
        if (*progress > 0) ImGui::TextDisabled("counting ... %d %%", static_cast<int>(100 * *progress));
    }
    followEdits();
    if (!_stage.scene.waiting().empty()) ImGui::TextDisabled("of the stores that are open");
    if (!_counts.problem().empty()) ImGui::TextWrapped("%s", _counts.problem().c_str());
    drawShown();
    drawAdd();
    drawSave();
}

/// An undo may have taken all points of a class that the legend has.
void ClassesSection::followEdits()
{
    const uint64_t revision = _stage.editing.revision();
    if (_counts.progress() || _followed == revision) return;
    _followed = revision;
    ClassSet present;
    for (size_t code = 0; code < present.size(); ++code)
        present[code] = _counts.points()[code] > 0;
    _gui.later([this, present] { _stage.scene.forgetAllBut(present); });
}

/// The classes with points, the user's own, and the one that points become.
ClassSet ClassesSection::listed() const
{
    ClassSet classes = classTable().own() | _added | only(_choice.toClass);
    for (size_t code = 0; code < classes.size(); ++code)
        if (_counts.points()[code] > 0) classes.set(code);
    return classes;
}

void ClassesSection::drawRows()
{
    const std::vector<int> codes = listClasses(listed());
    const float row = ImGui::GetTextLineHeight() + 2 * ImGui::GetStyle().CellPadding.y;
    const auto rows = static_cast<float>(std::min<size_t>(codes.size(), kMostRows) + 1);
    constexpr ImGuiTableFlags kFlags = ImGuiTableFlags_ScrollY | ImGuiTableFlags_SizingFixedFit;
    const ImVec2 padding(ImGui::GetStyle().CellPadding.x / 2,
                         ImGui::GetStyle().CellPadding.y); // names are long
    ImGui::PushStyleVar(ImGuiStyleVar_CellPadding, padding);
    const bool isSeen = ImGui::BeginTable("classes", 6, kFlags, ImVec2(0, rows * row + padding.y));
    ImGui::PopStyleVar();
    if (!isSeen) return;
    ImGui::TableSetupScrollFreeze(0, 1);
    for (const char* const title : {"##colour", "##code"})
        ImGui::TableSetupColumn(title);
    ImGui::TableSetupColumn("class", ImGuiTableColumnFlags_WidthStretch);
    float widest = ImGui::CalcTextSize("points").x;
    for (const int code : codes)
        widest = std::max(
            widest, ImGui::CalcTextSize(shortCount(_counts.points()[static_cast<size_t>(code)]).c_str()).x);
    ImGui::TableSetupColumn("points", ImGuiTableColumnFlags_WidthFixed, widest);
    for (const char* const title : {"see", "edit"})
        ImGui::TableSetupColumn(title, ImGuiTableColumnFlags_WidthFixed, ImGui::CalcTextSize("edit").x);
    ImGui::TableNextRow(ImGuiTableRowFlags_Headers);
    for (const char* const title : {"", "", "class", "points", "see", "edit"}) {
        ImGui::TableNextColumn();
        ImGui::TextDisabled("%s", title);
    }
    for (const int code : codes) {
        ImGui::TableNextRow();
        ImGui::PushID(code);
        drawRow(code);
        ImGui::PopID();
    }
    ImGui::EndTable();
}

void ClassesSection::drawRow(int code)
{
    if (code == _choice.toClass)
        ImGui::TableSetBgColor(ImGuiTableBgTarget_RowBg0, ImGui::GetColorU32(ImGuiCol_HeaderActive));
    ImGui::TableNextColumn();
    drawColor(code);
    ImGui::TableNextColumn();
    textAtRight(std::to_string(code));
    ImGui::TableNextColumn();
    const std::string& name = classTable().name(static_cast<unsigned>(code));
    if (ImGui::Selectable((name.empty() ? "-" : name.c_str()), code == _choice.toClass))
        _choice.toClass = code;
    widgets::tip(classText(static_cast<unsigned>(code)) +
                 "\nClick: points become this class. Its number, typed in edit mode, does the same.");
    ImGui::TableNextColumn();
    const uint64_t points = _counts.points()[static_cast<size_t>(code)];
    textAtRight(shortCount(points));
    widgets::tip(grouped(points) + " points");
    ImGui::TableNextColumn();
    drawEye(code);
    ImGui::TableNextColumn();
    drawMayChange(code);
}

void ClassesSection::drawColor(int code)
{
    const auto number = static_cast<unsigned>(code);
    const osg::Vec4f color = classColors()[number];
    if (widgets::classSwatch(code)) {
        std::snprintf(_name.data(), _name.size(), "%s", classTable().name(number).c_str());
        ImGui::OpenPopup("look");
    }
    widgets::tip("Click: another colour or name");
    if (!ImGui::BeginPopup("look")) return;
    VelBrx::ClassTable table = classTable();
    float rgb[3] = {color.r(), color.g(), color.b()};
    bool isChanged = ImGui::ColorPicker3("##colour", rgb, ImGuiColorEditFlags_NoSidePreview);
    if (isChanged) {
        const auto channel = [&](int i) { return static_cast<uint32_t>(255 * rgb[i] + 0.5f); };
        table.setColor(number, channel(0) << 16 | channel(1) << 8 | channel(2));
    }
    if (ImGui::InputText("name", _name.data(), _name.size())) {
        table.setName(number, _name.data());
        isChanged = true;
    }
    ImGui::EndPopup();
    if (!isChanged) return;
    _isChanged = true;
    _gui.later([this, table] { _stage.scene.setClassTable(table); });
}

void ClassesSection::drawEye(int code)
{
    if (const auto wanted = widgets::classTick("##see", _stage.scene.shownClasses(), code)) show(*wanted);
    widgets::tip("Shown. Ctrl+click: this class alone");
}

void ClassesSection::drawMayChange(int code)
{
    ClassSet& from = _choice.fromClasses;
    const std::optional<ClassSet> wanted = widgets::classTick("##edit", from, code);
    if (wanted && wanted->any()) from = *wanted; // without any class nothing could be edited
    widgets::tip("May change: edits reach points of this class. Ctrl+click: of this class alone");
}

void ClassesSection::show(const ClassSet& classes)
{
    Request request(*findOperation("showClasses"));
    request.set("classes", classes);
    _stage.act(request);
}

void ClassesSection::drawShown()
{
    const ClassSet& shown = _stage.scene.shownClasses();
    ImGui::AlignTextToFramePadding();
    ImGui::TextDisabled("see");
    ImGui::SameLine();
    if (ImGui::Button("all##see")) show(ClassSet().set());
    ImGui::SameLine();
    if (ImGui::Button("none")) show(ClassSet());
    ImGui::SameLine();
    if (ImGui::Button("invert")) show(~shown);
    ImGui::AlignTextToFramePadding();
    ImGui::TextDisabled("edit");
    ImGui::SameLine();
    if (ImGui::Button("all##edit")) _choice.fromClasses.set();
    widgets::tip("Points of every class may change");
    ImGui::SameLine();
    if (ImGui::Button("seen") && shown.any()) _choice.fromClasses = shown;
    widgets::tip("Points of the classes that are shown may change");
}

void ClassesSection::drawAdd()
{
    ImGui::SetNextItemWidth(4 * ImGui::GetFontSize());
    if (ImGui::InputInt("##code", &_wanted, 0)) _wanted = std::clamp(_wanted, 0, 255);
    ImGui::SameLine();
    if (ImGui::Button("Add class")) {
        _added.set(static_cast<size_t>(_wanted));
        _choice.toClass = _wanted;
    }
    widgets::tip("Lists a class that no point has yet; points become it");
}

void ClassesSection::drawSave()
{
    if (const std::string chosen = _file(); _isChanged) {
        const std::string file = chosen.empty() ? userClassesFile() : chosen;
        if (ImGui::Button("Save names and colours")) {
            const VelBrx::Status written = writeClasses(file, classTable());
            _said = written ? "written to " + file : written.message();
            _isChanged = !written;
        }
        widgets::tip("Writes " + file);
    }
    if (!_said.empty()) ImGui::TextWrapped("%s", _said.c_str());
}
