#include "viewer/panel/Widgets.h"

#include "viewer/display/Palettes.h"

#include <imgui.h>

#include <algorithm>

namespace widgets {

namespace {

constexpr float kTipWidth = 28; ///< letters' heights

const Key* firstKey(const Operation& operation)
{
    return operation.keys.empty() ? nullptr : &operation.keys.front();
}

/// The key that changes a parameter; null where there is none.
const Key* keyOf(const Operation& operation, const std::string& parameter, const Scene& scene)
{
    for (const Key& key : operation.keys) {
        Request said(operation);
        if (key.say) key.say(said, scene);
        if (said.has(parameter)) return &key;
    }
    return nullptr;
}

void sayKey(const Stage& stage, const char* label, const Operation& operation, const Key& key)
{
    if (ImGui::Button(label)) stage.act(requestOf({&operation, &key}, stage.scene));
    tipOf(operation, &key);
    keyBeside(key);
}

} // namespace

void tip(const std::string& text)
{
    if (text.empty() || !ImGui::IsItemHovered()) return;
    ImGui::BeginTooltip();
    ImGui::PushTextWrapPos(kTipWidth * ImGui::GetFontSize());
    ImGui::TextUnformatted(text.c_str());
    ImGui::PopTextWrapPos();
    ImGui::EndTooltip();
}

void tipOf(const Operation& operation, const Key* key)
{
    std::string text = key && key->words ? key->words : operation.words;
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    tip(key ? text + "\nKey: " + key->name() : text);
}

void keyBeside(const Key& key)
{
    ImGui::SameLine();
    ImGui::TextDisabled("%s", key.name().c_str());
}

void operationButton(const Stage& stage, const char* label, const std::string& operation)
{
    const Operation& wanted = *findOperation(operation);
    if (const Key* key = firstKey(wanted))
        sayKey(stage, label, wanted, *key);
    else
        requestButton(stage, label, Request(wanted));
}

void keyButton(const Stage& stage, const char* label, const std::string& operation, size_t key)
{
    const Operation& wanted = *findOperation(operation);
    sayKey(stage, label, wanted, wanted.keys.at(key));
}

void requestButton(const Stage& stage, const char* label, const Request& request)
{
    if (ImGui::Button(label)) stage.act(request);
    tipOf(request.operation(), nullptr);
}

void flagTick(const Stage& stage, const char* label, const std::string& parameter, bool value, Request rest)
{
    if (ImGui::Checkbox(label, &value)) {
        rest.set(parameter, value);
        stage.act(rest);
    }
    const Key* const key = keyOf(rest.operation(), parameter, stage.scene);
    tipOf(rest.operation(), key);
    if (key) keyBeside(*key);
}

void choiceList(const Stage& stage, const char* label, const std::string& parameter, const std::string& value,
                Request rest)
{
    const bool isOpen = ImGui::BeginCombo(label, value.c_str());
    if (!isOpen) {
        tipOf(rest.operation(), nullptr);
        return;
    }
    for (const std::string& choice : rest.operation().find(parameter)->choices) {
        if (!ImGui::Selectable(choice.c_str(), choice == value)) continue;
        rest.set(parameter, choice);
        stage.act(rest);
    }
    ImGui::EndCombo();
}

void numberSlider(const Stage& stage, const char* label, const std::string& parameter, double value,
                  Request rest, std::optional<double> most, const char* format)
{
    const Parameter& range = *rest.operation().find(parameter);
    const double high = most.value_or(range.high);
    bool changed = false;
    if (range.type == Parameter::WHOLE) {
        int whole = static_cast<int>(value);
        changed = ImGui::SliderInt(label, &whole, static_cast<int>(range.low), static_cast<int>(high),
                                   format ? format : "%d", ImGuiSliderFlags_AlwaysClamp);
        if (changed) rest.set(parameter, whole);
    } else {
        // A number is above the lower end.
        const double least = range.low + (high - range.low) * 1e-3;
        changed = ImGui::SliderScalar(label, ImGuiDataType_Double, &value, &least, &high,
                                      format ? format : "%.2f", ImGuiSliderFlags_AlwaysClamp);
        if (changed) rest.set(parameter, value);
    }
    if (changed) stage.act(rest);
    tipOf(rest.operation(), nullptr);
}

std::optional<ClassSet> classTick(const char* id, const ClassSet& classes, int code)
{
    const auto bit = static_cast<size_t>(code);
    bool isSet = classes[bit];
    ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, ImVec2(0, 0)); // no room around it
    const bool isClicked = ImGui::Checkbox(id, &isSet);
    ImGui::PopStyleVar();
    if (!isClicked) return std::nullopt;
    return ImGui::GetIO().KeyCtrl ? ClassSet().set(bit) : ClassSet(classes).flip(bit);
}

bool classSwatch(int code)
{
    const osg::Vec4f color = classColors()[static_cast<size_t>(code)];
    const float side = ImGui::GetTextLineHeight();
    return ImGui::ColorButton("colour", ImVec4(color.r(), color.g(), color.b(), 1),
                              ImGuiColorEditFlags_NoTooltip, ImVec2(side, side));
}

} // namespace widgets
