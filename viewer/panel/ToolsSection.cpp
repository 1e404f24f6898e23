#include "viewer/panel/ToolsSection.h"

#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/operation/EditOperations.h"
#include "viewer/operation/Operations.h"
#include "viewer/panel/Widgets.h"

#include <imgui.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

using VelOsgDBBrx::AttributeRanges;
using VelOsgDBBrx::ValueRange;

namespace {

/// A range of the operation that limits edits by attributes, as a field has it.
struct RangeField
{
    const char* parameter;
    const char* label;
    ValueRange AttributeRanges::*range;
    float low; ///< when it is switched on
    float high;
    const char* format;
};

constexpr RangeField kFields[] = {
    {"returns", "Return", &AttributeRanges::returnNumber, 1, 1, "%.0f"},
    {"numberOfReturns", "Of returns", &AttributeRanges::numberOfReturns, 1, 1, "%.0f"},
    {"intensity", "Intensity", &AttributeRanges::intensity, 0, 65535, "%.0f"},
    {"height", "Height", &AttributeRanges::height, 0, 0, "%.2f"},
    {"scanAngle", "Scan angle", &AttributeRanges::scanAngle, -15, 15, "%.1f"},
    {"gpsTime", "GPS time", &AttributeRanges::gpsTime, 0, 0, "%.3f"},
    {"source", "Source", &AttributeRanges::source, 0, 65535, "%.0f"},
};

/// Two buttons to a row.
void nextInRow(size_t place)
{
    if (place % 2 == 1) ImGui::SameLine(0.5f * ImGui::GetContentRegionMax().x);
}

} // namespace

ToolsSection::ToolsSection(const Stage& stage, const ClassChoice& choice, ToolDesk desk, Counts counts)
    : _stage(stage), _choice(choice), _desk(std::move(desk)), _counts(std::move(counts))
{
}

void ToolsSection::draw()
{
    drawTools();
    drawActions();
    drawSettings();
    drawDepth();
    drawRanges();
    drawCounts();
}

void ToolsSection::drawTools()
{
    const ToolKind* const inHand = _desk.kind();
    size_t place = 0;
    for (const ToolKind& kind : toolTable()) {
        nextInRow(place++);
        const bool isInHand = &kind == inHand;
        if (isInHand) ImGui::PushStyleColor(ImGuiCol_Button, ImGui::GetStyleColorVec4(ImGuiCol_ButtonActive));
        if (ImGui::Button(kind.name)) _desk.take(kind);
        if (isInHand) ImGui::PopStyleColor();
        widgets::tip(std::string(kind.words) + "\nKey: " + keyName(kind.key) + ", while editing");
        ImGui::SameLine();
        ImGui::TextDisabled("%s", keyName(kind.key).c_str());
    }
}

/// Of the tool in hand; below the buttons, which stay where they are when another tool is taken.
void ToolsSection::drawSettings()
{
    const ToolKind* const inHand = _desk.kind();
    ToolSettings& settings = _desk.settings;
    if (inHand && !std::strcmp(inHand->name, "Brush")) {
        auto radius = static_cast<float>(settings.brush.radius);
        if (ImGui::DragFloat(settings.brush.isInWorld ? "Radius" : "Radius, px", &radius, 0.2f, 0.01f,
                             BrushSize::kLargest, "%.2f"))
            settings.brush.radius = radius;
        bool isInWorld = settings.brush.isInWorld;
        if (ImGui::Checkbox("In units of the world", &isInWorld)) settings.brush.switchUnit();
    }
    if (inHand && !std::strcmp(inHand->name, "Grow")) {
        auto distance = static_cast<float>(settings.growDistance > 0 ? settings.growDistance
                                                                     : 3 * _stage.scene.meanPointDistance());
        if (ImGui::DragFloat("Distance", &distance, 0.01f, 0.001f, 1000, "%.3f"))
            settings.growDistance = distance;
        bool hasAngle = settings.growAngle.has_value();
        if (ImGui::Checkbox("Like planes only", &hasAngle))
            settings.growAngle = hasAngle ? std::optional(15.0) : std::nullopt;
        auto angle = static_cast<float>(settings.growAngle.value_or(0));
        if (hasAngle && ImGui::SliderFloat("Angle", &angle, 1, 90, "%.0f degrees"))
            settings.growAngle = angle;
        ImGui::InputInt("Limit, points", &settings.growLimit, 100000);
        settings.growLimit = std::max(1, settings.growLimit);
    }
}

void ToolsSection::drawActions()
{
    ImGui::Separator();
    ImGui::TextWrapped("To class %s, from %s", classText(static_cast<unsigned>(_choice.toClass)).c_str(),
                       formatClasses(_choice.fromClasses).c_str());
    struct Action
    {
        const char* label;
        const char* operation;
        size_t key;
    };
    constexpr Action kActions[] = {
        {"Classify", "classify", 0}, {"Count", "classify", 1},    {"Hide", "cull", 0},
        {"Hide outside", "cull", 1}, {"Bring back", "uncull", 0}, {"Select", "select", 0},
        {"Deselect", "deselect", 0}, {"Undo", "undo", 0},         {"Redo", "redo", 0}};
    size_t place = 0;
    for (const Action& action : kActions) {
        nextInRow(place++);
        widgets::keyButton(_stage, action.label, action.operation, action.key);
    }
}

void ToolsSection::drawDepth()
{
    ImGui::Separator();
    const Operation& depth = *findOperation("depth");
    const auto& front = _stage.scene.editLimits().front;
    bool isFront = front.has_value();
    if (ImGui::Checkbox("Front surface only", &isFront)) {
        Request request(depth);
        request.set("of", std::string(isFront ? "front" : "all"));
        _stage.act(request);
    }
    widgets::tipOf(depth, &depth.keys.front());
    widgets::keyBeside(depth.keys.front());
    if (!front) return;
    auto tolerance = static_cast<float>(front->tolerance.value_or(2 * _stage.scene.meanPointDistance()));
    if (ImGui::DragFloat("Depth", &tolerance, 0.02f, 0.001f, 1e6f, "%.3f")) {
        Request request(depth);
        request.set("of", std::string("front"));
        request.set("tolerance", static_cast<double>(tolerance));
        if (front->radius) request.set("radius", *front->radius);
        _stage.act(request);
    }
    widgets::tip("How far behind the nearest point a point may lie, in units of the world");
}

void ToolsSection::drawRanges()
{
    if (!ImGui::TreeNode("Only points with ...")) return;
    const ClassSet& classes = _stage.scene.editLimits().attributes.classes;
    bool limitsClasses = !classes.all();
    if (ImGui::Checkbox("Class", &limitsClasses)) {
        Request request = rangesOf(_stage.scene);
        request.set("classes",
                    limitsClasses ? ClassSet().set(static_cast<size_t>(_choice.toClass)) : ClassSet().set());
        _stage.act(request);
    }
    if (!classes.all()) {
        ImGui::SameLine();
        ImGui::TextUnformatted(formatClasses(classes).c_str());
        ImGui::SameLine();
        if (ImGui::SmallButton("from-classes") && _choice.fromClasses.any()) {
            Request request = rangesOf(_stage.scene);
            request.set("classes", _choice.fromClasses);
            _stage.act(request);
        }
    }
    for (size_t i = 0; i < std::size(kFields); ++i)
        drawRange(i);
    ImGui::TreePop();
}

void ToolsSection::drawRange(size_t index)
{
    const RangeField& field = kFields[index];
    const ValueRange range = _stage.scene.editLimits().attributes.*field.range;
    bool isOn = !range.isWhole();
    ImGui::PushID(field.parameter);
    if (ImGui::Checkbox(field.label, &isOn)) {
        Request request = rangesOf(_stage.scene);
        ValueRange wanted{field.low, field.high};
        if (field.range == &AttributeRanges::height)
            wanted = {_stage.scene.bounds().zMin(), _stage.scene.bounds().zMax()};
        if (field.range == &AttributeRanges::gpsTime && !_stage.scene.isEmpty()) {
            const VelBrx::AttributeRange& times = _stage.scene.statistics().gpsTime;
            wanted = {times.min, times.max};
        }
        request.set(field.parameter, isOn ? wanted : ValueRange());
        _stage.act(request);
    }
    if (!range.isWhole()) {
        double ends[2] = {range.low, range.high};
        ImGui::SameLine(0.4f * ImGui::GetContentRegionMax().x);
        ImGui::SetNextItemWidth(-1);
        if (ImGui::InputScalarN("##range", ImGuiDataType_Double, ends, 2, nullptr, nullptr, field.format,
                                ImGuiInputTextFlags_EnterReturnsTrue) &&
            ends[0] <= ends[1]) {
            Request request = rangesOf(_stage.scene);
            request.set(field.parameter, ValueRange{ends[0], ends[1]});
            _stage.act(request);
        }
    }
    ImGui::PopID();
}

/// By class, what the last edit or count has reached.
void ToolsSection::drawCounts()
{
    const std::optional<VelOsgDBBrx::CategoryCounts>& counts = _counts();
    if (!counts || !ImGui::BeginTable("counts", 3, ImGuiTableFlags_SizingStretchProp)) return;
    for (const char* title : {"class", "before", "after"})
        ImGui::TableSetupColumn(title);
    ImGui::TableHeadersRow();
    for (size_t code = 0; code < counts->before.size(); ++code) {
        if (counts->before[code] == 0 && counts->after[code] == 0) continue;
        ImGui::TableNextRow();
        ImGui::TableNextColumn();
        ImGui::TextUnformatted(classText(static_cast<unsigned>(code)).c_str());
        for (const uint64_t number : {counts->before[code], counts->after[code]}) {
            ImGui::TableNextColumn();
            ImGui::TextUnformatted(grouped(number).c_str());
        }
    }
    ImGui::EndTable();
}
