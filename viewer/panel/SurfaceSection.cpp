#include "viewer/panel/SurfaceSection.h"

#include "viewer/display/Palettes.h"
#include "viewer/panel/Widgets.h"

#include <imgui.h>

void SurfaceSection::draw()
{
    const SurfaceLook& surface = _stage.scene.surface();
    Request request(*findOperation("surface"));
    widgets::flagTick(_stage, "Shaded surface", "on", surface.on, request);
    if (!surface.on) return;
    request.set("on", true);
    drawClasses(request);
    ImGui::PushItemWidth(-6.0f * ImGui::GetFontSize());
    widgets::flagTick(_stage, "Other points", "points", surface.points, request);
    widgets::flagTick(_stage, "Colours by elevation", "byElevation", surface.byElevation, request);
    widgets::flagTick(_stage, "Contour lines", "contours", surface.contours, request);
    if (surface.contours) {
        double interval = _stage.scene.contourInterval();
        if (ImGui::InputDouble("Interval", &interval, 0, 0, "%g", ImGuiInputTextFlags_EnterReturnsTrue)) {
            Request wanted = request;
            wanted.set("interval", interval);
            if (wanted.check()) _stage.act(wanted);
        }
        widgets::tip("Height between two contour lines; every fifth is bold");
    }
    widgets::numberSlider(_stage, "Azimuth", "azimuth", surface.azimuth, request, std::nullopt, "%.0f deg");
    widgets::numberSlider(_stage, "Sun", "height", surface.height, request, std::nullopt, "%.0f deg");
    ImGui::PopItemWidth();
}

/// Those with points when their stores were built, and those chosen, unless that is every class.
void SurfaceSection::drawClasses(Request request)
{
    const ClassSet& chosen = _stage.scene.surface().classes;
    ClassSet listed = chosen.all() ? ClassSet() : chosen;
    for (size_t code = 0; code < listed.size(); ++code)
        if (_stage.scene.statistics().pointsByClass[code] > 0) listed.set(code);
    ImGui::TextDisabled("made of");
    for (const int code : listClasses(listed)) {
        ImGui::PushID(code);
        widgets::classSwatch(code);
        ImGui::SameLine();
        if (const std::optional<ClassSet> wanted = widgets::classTick("##part", chosen, code)) {
            request.set("classes", *wanted);
            if (request.check()) _stage.act(request);
        }
        widgets::tip("Part of the surface. Ctrl+click: this class alone");
        ImGui::SameLine();
        ImGui::TextUnformatted(classText(static_cast<unsigned>(code)).c_str());
        ImGui::PopID();
    }
}
