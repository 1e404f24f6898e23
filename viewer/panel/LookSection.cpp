#include "viewer/panel/LookSection.h"

#include "viewer/panel/Widgets.h"

#include <imgui.h>

void LookSection::draw()
{
    const Scene& scene = _stage.scene;
    std::string mode = "automatic";
    for (const ColorModeChoice& choice : colorModeChoices())
        if (choice.mode == scene.colorMode()) mode = choice.name;
    widgets::choiceList(_stage, "Colour", "mode", mode, Request(*findOperation("mode")));
    widgets::numberSlider(_stage, "Points", "pixels", scene.pointSize(), Request(*findOperation("pointSize")),
                          16, "%d px");
    Request edl(*findOperation("edl"));
    edl.set("strength", scene.shading().strength);
    edl.set("radius", scene.shading().radius);
    widgets::flagTick(_stage, "Eye-dome lighting", "on", scene.eyeDomeLighting(), edl);
    if (!scene.eyeDomeLighting()) return;
    edl.set("on", true);
    widgets::numberSlider(_stage, "Strength", "strength", scene.shading().strength, edl);
    widgets::numberSlider(_stage, "Radius", "radius", scene.shading().radius, edl);
}
