#include "viewer/panel/MeasureSection.h"

#include "viewer/panel/Widgets.h"

#include <imgui.h>

#include <string>

namespace {

Request by(MeasureKind kind)
{
    Request request(*findOperation("measureBy"));
    request.set("kind", nameOf(kind));
    return request;
}

void drawRow(const std::string& name, const std::string& value)
{
    ImGui::TableNextRow();
    ImGui::TableNextColumn();
    ImGui::TextDisabled("%s", name.c_str());
    ImGui::TableNextColumn();
    ImGui::TextWrapped("%s", value.c_str());
}

/// A table of names and values, its first column as wide as the names.
bool beginTable(const char* id)
{
    if (!ImGui::BeginTable(id, 2)) return false;
    ImGui::TableSetupColumn("name", ImGuiTableColumnFlags_WidthFixed);
    ImGui::TableSetupColumn("value", ImGuiTableColumnFlags_WidthStretch);
    return true;
}

} // namespace

void MeasureSection::draw()
{
    drawTools();
    drawHint();
    if (!_stage.measuring->list().all().empty()) drawList();
    drawPoint();
}

void MeasureSection::drawTools()
{
    widgets::keyButton(_stage, "Line", "measureBy", 0);
    ImGui::SameLine();
    widgets::keyButton(_stage, "Area", "measureBy", 1);
    ImGui::SameLine();
    widgets::keyButton(_stage, "Angle", "measureBy", 2);
    widgets::requestButton(_stage, "Point", by(MeasureKind::POINT));
    ImGui::SameLine();
    widgets::requestButton(_stage, "Height above ground", by(MeasureKind::HEIGHT));
}

void MeasureSection::drawHint() const
{
    const Measuring& measuring = *_stage.measuring;
    if (measuring.isSearching()) ImGui::TextUnformatted("Looking for the ground...");
    if (measuring.kind()) ImGui::TextWrapped("%s", measuring.hint().c_str());
}

void MeasureSection::drawList()
{
    ImGui::Separator();
    for (const Measurements::Entry& entry : _stage.measuring->list().all()) {
        ImGui::PushID(static_cast<int>(entry.number));
        ImGui::Text("%u  %s", entry.number, nameOf(entry.measurement.kind).c_str());
        ImGui::SameLine(ImGui::GetContentRegionMax().x - ImGui::GetFrameHeight());
        Request remove(*findOperation("removeMeasure"));
        remove.set("number", static_cast<int>(entry.number));
        widgets::requestButton(_stage, "x", remove);
        if (!entry.figures.empty() && beginTable("figures")) {
            for (const Figure& figure : entry.figures)
                drawRow(figure.name, figure.text());
            ImGui::EndTable();
        }
        if (!entry.remark.empty()) ImGui::TextWrapped("%s", entry.remark.c_str());
        ImGui::PopID();
    }
    ImGui::Spacing();
    if (ImGui::Button("Copy")) ImGui::SetClipboardText(_stage.measuring->list().text().c_str());
    widgets::tip("All measurements as lines of text, to be pasted elsewhere");
    ImGui::SameLine();
    widgets::operationButton(_stage, "Clear", "clearMeasures");
    drawFile();
}

void MeasureSection::drawFile()
{
    ImGui::SetNextItemWidth(-ImGui::CalcTextSize("Write CSV").x - 4 * ImGui::GetStyle().FramePadding.x);
    if (ImGui::InputText("##file", _file.data(), _file.size())) _asksToReplace = false;
    ImGui::SameLine();
    Request write(*findOperation("measuresCsv"));
    write.set("file", std::string(_file.data()));
    if (_asksToReplace) {
        write.set("replace", true);
        ImGui::NewLine();
        ImGui::TextUnformatted("The file exists.");
        ImGui::SameLine();
        if (ImGui::Button("Replace it")) {
            _stage.act(write);
            _asksToReplace = false;
        }
        ImGui::SameLine();
        if (ImGui::Button("Cancel")) _asksToReplace = false;
        return;
    }
    if (ImGui::Button("Write CSV") && _file[0] != '\0') {
        std::error_code error;
        _asksToReplace = std::filesystem::exists(_file.data(), error);
        if (!_asksToReplace) _stage.act(write);
    }
    widgets::tipOf(write.operation(), nullptr);
}

void MeasureSection::drawPoint() const
{
    const std::optional<PointFacts>& point = _stage.measuring->picked();
    if (!point) return;
    ImGui::Separator();
    ImGui::TextUnformatted("Clicked point");
    ImGui::TextWrapped("%s", point->place.c_str());
    if (beginTable("attributes")) {
        drawRow("GPS time", point->time);
        for (const auto* const list : {&point->main, &point->more})
            for (const auto& [name, value] : *list)
                drawRow(name, value);
        drawRow("cloud", point->cloud);
        ImGui::EndTable();
    }
    if (!point->problem.empty()) ImGui::TextWrapped("%s", point->problem.c_str());
    if (ImGui::Button("Copy point")) ImGui::SetClipboardText(point->text().c_str());
    widgets::tip("All of it as lines of text, to be pasted elsewhere");
}
