#include "viewer/panel/ViewSection.h"

#include "viewer/panel/Widgets.h"

#include <imgui.h>

#include <array>
#include <cstdio>
#include <utility>

namespace {

constexpr size_t kLongestName = 63;

/// A field for a short text; true when Enter was pressed in it.
bool typeName(const char* label, std::string& name)
{
    std::array<char, kLongestName + 1> text{};
    name.copy(text.data(), kLongestName);
    const bool entered =
        ImGui::InputTextWithHint(label, "name of the view", text.data(), text.size(),
                                 ImGuiInputTextFlags_EnterReturnsTrue | ImGuiInputTextFlags_AutoSelectAll);
    name = text.data();
    return entered;
}

} // namespace

void ViewSection::act(const char* operation, const std::string& parameter, Value value)
{
    Request request(*findOperation(operation));
    request.set(parameter, std::move(value));
    _stage.act(request);
}

void ViewSection::draw()
{
    drawSides();
    drawTurning();
    drawSaved();
    drawClipBox();
}

void ViewSection::drawSides()
{
    const Operation& camera = *findOperation("camera");
    const auto button = [&](const char* label, const char* view) {
        Request request(camera);
        request.set("view", std::string(view));
        request.set("projection", std::string("kept"));
        if (ImGui::Button(label)) _stage.act(request);
        const Key* known = nullptr;
        for (const Key& key : camera.keys)
            if (requestOf({&camera, &key}, _stage.scene).get<std::string>("view") == view) known = &key;
        widgets::tipOf(camera, known);
    };
    button("Top", "top");
    ImGui::SameLine();
    button("Bottom", "bottom");
    ImGui::SameLine();
    button("Iso", "iso");
    ImGui::SameLine();
    button("All", "all");
    button("North", "north");
    ImGui::SameLine();
    button("South", "south");
    ImGui::SameLine();
    button("East", "east");
    ImGui::SameLine();
    button("West", "west");
    widgets::keyButton(_stage, "Back", "goBack", 0);
    ImGui::SameLine();
    widgets::keyButton(_stage, "Forward", "goBack", 1);
}

void ViewSection::drawTurning()
{
    const bool orthographic = _stage.camera->pose().orthographic();
    widgets::operationButton(_stage, "Fit", "fit");
    ImGui::SameLine();
    widgets::operationButton(_stage, orthographic ? "Orthographic" : "Perspective", "projection");
    constexpr const char* kModes[] = {"free", "level", "fly"};
    widgets::choiceList(_stage, "Turning", "how", kModes[static_cast<size_t>(_stage.camera->mode())],
                        Request(*findOperation("turning")));
}

void ViewSection::drawSaved()
{
    if (!_stage.views) return;
    ImGui::Separator();
    ImGui::TextUnformatted("Saved views");
    const auto& views = _stage.views->all();
    for (size_t i = 0; i < views.size(); ++i) {
        ImGui::PushID(static_cast<int>(i));
        const int number = static_cast<int>(i) + 1;
        if (ImGui::Selectable(views[i].name.c_str(), false, 0,
                              ImVec2(ImGui::GetContentRegionAvail().x / 2, 0)))
            act("recallView", "number", number);
        if (i < 9) widgets::tipOf(*findOperation("recallView"), &findOperation("recallView")->keys[i]);
        ImGui::SameLine();
        if (ImGui::SmallButton("Rename")) {
            _renamed = i;
            _name = views[i].name;
            _types = true;
        }
        ImGui::SameLine();
        if (ImGui::SmallButton("Delete")) {
            act("deleteView", "number", number);
            _renamed.reset();
        }
        ImGui::PopID();
    }
    if (std::exchange(_types, false)) ImGui::SetKeyboardFocusHere();
    const bool entered = typeName("##name", _name);
    ImGui::SameLine();
    const bool clicked = ImGui::Button(_renamed ? "Rename" : "Save");
    widgets::tip(_renamed ? "Gives the view this name" : "Keeps this view by the name, for this file");
    if (!(entered || clicked) || _name.empty()) return;
    Request request(*findOperation(_renamed ? "renameView" : "saveView"));
    request.set("name", _name);
    if (_renamed) request.set("number", static_cast<int>(*_renamed) + 1);
    _stage.act(request);
    _renamed.reset();
    _name.clear();
}

void ViewSection::drawClipBox()
{
    if (_stage.scene.isEmpty()) return;
    ImGui::Separator();
    const Operation& operation = *findOperation("clipBox");
    const auto boxed = [&] {
        Request request(operation);
        const osg::BoundingBoxd& bounds = _stage.scene.boundsFor(CameraView());
        request.set("low", osg::Vec3d(bounds._min));
        request.set("high", osg::Vec3d(bounds._max));
        return request;
    };
    const std::optional<osg::BoundingBoxd>& box = _stage.scene.clipBox();
    bool on = box.has_value();
    if (ImGui::Checkbox("Clip box", &on)) _stage.act(on ? boxed() : Request(operation));
    widgets::tipOf(operation, nullptr);
    if (!box) return;
    ImGui::SameLine();
    widgets::requestButton(_stage, "Reset", boxed());
    const osg::Vec3d size = box->_max - box->_min;
    ImGui::TextDisabled("%.2f x %.2f x %.2f; drag its handles", size.x(), size.y(), size.z());
}
