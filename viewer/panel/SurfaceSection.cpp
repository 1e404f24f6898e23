#include "viewer/panel/SurfaceSection.h"

#include "terminal/ClassList.h"
#include "viewer/panel/Widgets.h"

#include <imgui.h>

void SurfaceSection::draw()
{
    const SurfaceLook& surface = _stage.scene.surface();
    Request request(*findOperation("surface"));
    widgets::flagTick(_stage, "Shaded surface", "on", surface.on, request);
    if (!surface.on) return;
    ImGui::PushItemWidth(-6.0f * ImGui::GetFontSize());
    ImGui::TextWrapped("of classes %s", formatClasses(surface.classes).c_str());
    request.set("on", true);
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
