#include "viewer/panel/SectionSection.h"

#include "viewer/panel/Widgets.h"

#include <imgui.h>

void SectionSection::draw()
{
    const std::optional<Section> section = _stage.section->section();
    widgets::operationButton(_stage, section ? "New section" : "Draw a section", "drawSection");
    if (!section) return;
    widgets::keyButton(_stage, "Back", "sectionStep", 1);
    ImGui::SameLine();
    widgets::keyButton(_stage, "On", "sectionStep", 0);
    widgets::keyButton(_stage, "Narrower", "sectionWidth", 1);
    ImGui::SameLine();
    widgets::keyButton(_stage, "Wider", "sectionWidth", 0);
    double width = section->width;
    if (ImGui::InputDouble("Width", &width, 0, 0, "%.3f", ImGuiInputTextFlags_EnterReturnsTrue)) {
        Request request(*findOperation("sectionWidth"));
        request.set("width", width);
        if (request.check()) _stage.act(request);
    }
    widgets::keyButton(_stage, "Turn left", "sectionTurn", 0);
    ImGui::SameLine();
    widgets::keyButton(_stage, "right", "sectionTurn", 1);
    widgets::numberSlider(_stage, "Heights x", "times", section->exaggeration,
                          Request(*findOperation("sectionExaggeration")), 20, "%.1f");
    widgets::operationButton(_stage, "Close", "sectionClose");
}
