#include "viewer/panel/HistorySection.h"

#include "terminal/ShownName.h"
#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/operation/Operations.h"
#include "viewer/panel/Widgets.h"

#include <imgui.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace {

constexpr size_t kMostRows = 10;  ///< that are seen at once
constexpr size_t kMostStores = 8; ///< that a tool tip names

/// "classify to 6 building" where the operation tells the class.
std::string nameOf(const VelOsgDBBrx::EditStep& step)
{
    const auto operation = nlohmann::json::parse(step.operation, nullptr, false);
    const auto to = operation.is_object() ? operation.find("to") : operation.end();
    const bool hasClass = operation.is_object() && to != operation.end() && to->is_number_unsigned();
    return shownName(step.name) + (hasClass ? " to " + classText(to->get<unsigned>()) : "");
}

/// "2026-11-22 12:33"
std::string minuteOf(const VelOsgDBBrx::EditStep& step)
{
    std::string text = timeText(step.time).substr(0, 16);
    text[10] = ' ';
    return text;
}

/// "tile.brx", or "3 stores".
std::string storesOf(const VelOsgDBBrx::EditStep& step)
{
    if (step.stores.size() != 1) return std::to_string(step.stores.size()) + " stores";
    return printable(std::filesystem::path(step.stores.front()).filename().string());
}

std::string tipOf(const VelOsgDBBrx::EditStep& step, const std::string& text)
{
    std::string tip = text + "\n" + minuteOf(step) + " UTC, " + shownName(step.author);
    for (size_t i = 0; i < std::min(step.stores.size(), kMostStores); ++i)
        tip += "\n" + printable(step.stores[i]);
    if (step.stores.size() > kMostStores)
        tip += "\nand " + std::to_string(step.stores.size() - kMostStores) + " more";
    return tip + (step.isOwn ? "\nEnds with the program" : "") + (step.isUnsaved ? "\nNot saved" : "") +
           (step.isDone ? "\nClick: back to how all was behind it" : "\nUndone. Click: do it again");
}

} // namespace

void HistorySection::draw()
{
    refresh();
    for (const char* const operation : {"undo", "redo", "save"}) {
        std::string label = operation;
        label[0] = static_cast<char>(std::toupper(label[0]));
        widgets::operationButton(_stage, label.c_str(), operation);
        ImGui::SameLine();
    }
    ImGui::NewLine();
    const auto rows = static_cast<float>(std::min(_steps.size() + 1, kMostRows));
    constexpr ImGuiTableFlags kFlags = ImGuiTableFlags_ScrollY | ImGuiTableFlags_SizingFixedFit;
    const float height = rows * (ImGui::GetTextLineHeight() + 2 * ImGui::GetStyle().CellPadding.y);
    if (!ImGui::BeginTable("steps", 3, kFlags, ImVec2(0, height))) return;
    ImGui::TableSetupColumn("time");
    ImGui::TableSetupColumn("edit", ImGuiTableColumnFlags_WidthStretch);
    ImGui::TableSetupColumn("points");
    ImGuiListClipper clipper;
    clipper.Begin(static_cast<int>(_steps.size()) + 1);
    while (clipper.Step())
        for (int row = clipper.DisplayStart; row < clipper.DisplayEnd; ++row)
            drawStep(static_cast<size_t>(row));
    if (std::exchange(_scrolls, false)) {
        const float row = ImGui::GetScrollMaxY() / static_cast<float>(std::max<size_t>(_steps.size(), 1));
        ImGui::SetScrollY(row * static_cast<float>(_present));
    }
    ImGui::EndTable();
}

void HistorySection::refresh()
{
    const uint64_t revision = _stage.editing.revision();
    std::vector<uint64_t> clouds;
    for (const Scene::Cloud& cloud : _stage.scene.clouds())
        clouds.push_back(cloud.id);
    if ((_revision == revision && _clouds == clouds) || (_revision && revision % 2 != 0)) return;
    _revision = revision;
    _clouds = std::move(clouds);
    _steps = _stage.editing.steps();
    _texts.assign(_steps.size(), "");
    const auto last =
        std::find_if(_steps.rbegin(), _steps.rend(), [](const auto& step) { return step.isDone; });
    _present = static_cast<size_t>(_steps.rend() - last);
    _scrolls = true;
}

/// Of several stores on show people want to know which one it was.
const std::string& HistorySection::textOf(size_t step)
{
    if (!_texts[step].empty()) return _texts[step];
    _texts[step] = nameOf(_steps[step]);
    if (_clouds.size() > 1 && !_steps[step].isOwn) _texts[step] += ", " + storesOf(_steps[step]);
    return _texts[step];
}

/// The row for the state behind `count` steps.
void HistorySection::drawStep(size_t count)
{
    const VelOsgDBBrx::EditStep* const step = count > 0 ? &_steps[count - 1] : nullptr;
    const std::string text = step ? textOf(count - 1) : "before all edits";
    ImGui::PushID(static_cast<int>(count));
    ImGui::TableNextRow();
    ImGui::TableNextColumn();
    if (step && !step->isDone)
        ImGui::PushStyleColor(ImGuiCol_Text, ImGui::GetStyle().Colors[ImGuiCol_TextDisabled]);
    const std::string time = step ? minuteOf(*step).substr(11) : "";
    if (ImGui::Selectable(("##row"), count == _present, ImGuiSelectableFlags_SpanAllColumns)) {
        Request request(*findOperation("stepTo"));
        request.set("step", static_cast<int>(count));
        _stage.act(request);
    }
    widgets::tip(step ? tipOf(*step, text)
                      : "Click: back to how all was before the first edit that is known");
    ImGui::SameLine(0, 0);
    ImGui::TextUnformatted(time.c_str());
    ImGui::TableNextColumn();
    ImGui::TextUnformatted(((step && step->isUnsaved ? "* " : "") + text).c_str());
    ImGui::TableNextColumn();
    if (step && !step->isOwn) ImGui::TextUnformatted(grouped(step->points).c_str());
    if (step && !step->isDone) ImGui::PopStyleColor();
    ImGui::PopID();
}
