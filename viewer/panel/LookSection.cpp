#include "viewer/panel/LookSection.h"

#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/panel/Widgets.h"

#include <imgui.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr float kBarsHeight = 4; ///< lines of text
constexpr double kBeside = 0.25; ///< of the span of nearly all values, shown at its sides
constexpr double kWait = 0.1;    ///< seconds until a histogram is looked for again
constexpr double kMostPoints = 1e9;
constexpr double kFewestPoints = 1e5;
constexpr double kLeastSlide = 5e7; ///< bytes
constexpr double kMostSlide = 1e11;

Request requestFor(const char* operation)
{
    return Request(*findOperation(operation));
}

/// Widgets that leave this much for their labels, letters' heights.
class ItemWidth
{
public:
    explicit ItemWidth(float label) { ImGui::PushItemWidth(-label * ImGui::GetFontSize()); }
    ~ItemWidth() { ImGui::PopItemWidth(); }
    ItemWidth(const ItemWidth&) = delete;
    ItemWidth& operator=(const ItemWidth&) = delete;
};

/// Part of the plot at which a value stands, kept within it.
float placeOf(double value, const ColorSpan& plot)
{
    return static_cast<float>(std::clamp((value - plot.low) / (plot.high - plot.low), 0.0, 1.0));
}

} // namespace

void LookSection::draw()
{
    const ItemWidth width(6.0f);
    drawMode();
    if (const std::optional<ColorMode> mode = _stage.scene.gradientMode()) drawGradient(*mode);
    drawLight();
    drawBackground();
    drawPoints();
}

void LookSection::drawMode()
{
    const Scene& scene = _stage.scene;
    std::string name = "automatic";
    for (const ColorModeChoice& choice : colorModeChoices())
        if (choice.mode == scene.colorMode()) name = choice.name;
    if (!ImGui::BeginCombo("Colour", name.c_str(), ImGuiComboFlags_HeightLargest)) {
        widgets::tip("How the points are coloured");
        return;
    }
    const Operation& operation = *findOperation("mode");
    for (const Key& key : operation.keys) {
        Request request(operation);
        key.say(request, scene);
        const auto& mode = request.get<std::string>("mode");
        if (ImGui::Selectable(mode.c_str(), mode == name)) _stage.act(request);
        widgets::tipOf(operation, &key);
        ImGui::SameLine(ImGui::GetContentRegionAvail().x - ImGui::GetFontSize());
        ImGui::TextDisabled("%s", key.name().c_str());
    }
    ImGui::EndCombo();
}

void LookSection::drawGradient(ColorMode mode)
{
    const Scene& scene = _stage.scene;
    widgets::choiceList(_stage, "Palette", "palette", scene.gradients().palette, requestFor("palette"));
    const VelBrx::AttributeRange values = scene.coloring().values(mode);
    if (values.min == values.max) return;
    const ColorSpan shown = scene.coloring().span(mode);
    drawBars(mode, shown);
    ColorSpan typed = shown;
    const char* const format = mode == ColorMode::INTENSITY ? "%.0f" : "%.2f";
    const float half = (ImGui::CalcItemWidth() - ImGui::GetStyle().ItemSpacing.x) / 2;
    ImGui::SetNextItemWidth(half);
    bool isTyped =
        ImGui::InputDouble("##low", &typed.low, 0, 0, format, ImGuiInputTextFlags_EnterReturnsTrue);
    widgets::tip("The lowest colour's value");
    ImGui::SameLine();
    ImGui::SetNextItemWidth(half);
    isTyped |= ImGui::InputDouble("Range", &typed.high, 0, 0, format, ImGuiInputTextFlags_EnterReturnsTrue);
    widgets::tip("The highest colour's value");
    if (isTyped) setSpan(typed);
}

void LookSection::setSpan(const ColorSpan& span)
{
    Request request = requestFor("range");
    request.set("low", span.low);
    request.set("high", span.high);
    if (request.check()) _stage.act(request);
}

void LookSection::drawBars(ColorMode mode, const ColorSpan& shown)
{
    const Scene& scene = _stage.scene;
    if (!_histogram || _mode != mode || _clouds != scene.cloudsRevision()) {
        const VelBrx::AttributeRange values = scene.coloring().values(mode);
        const ColorSpan most = Coloring::usualSpan(values);
        const double beside = kBeside * (most.high - most.low);
        std::vector<osg::ref_ptr<VelOsgDBBrx::IPointCloud>> clouds;
        for (const Scene::Cloud& cloud : scene.clouds())
            clouds.push_back(cloud.node);
        _histogram = std::make_unique<Histogram>(
            clouds, mode,
            ColorSpan{std::max(values.min, most.low - beside), std::min(values.max, most.high + beside)});
        _mode = mode;
        _clouds = scene.cloudsRevision();
    }
    if (!_histogram->isCounted()) _gui.wakeAfter(kWait);
    const ImVec2 corner = ImGui::GetCursorScreenPos();
    const ImVec2 size(ImGui::CalcItemWidth(), kBarsHeight * ImGui::GetFontSize());
    ImGui::InvisibleButton("bars", size);
    dragEnds(mode, _histogram->span(), corner.x, size.x);
    widgets::tip("Drag the ends of the range; double click: that of nearly all points");
    ImDrawList* const list = ImGui::GetWindowDrawList();
    const ImVec2 end(corner.x + size.x, corner.y + size.y);
    list->AddRectFilled(corner, end, ImGui::GetColorU32(ImGuiCol_FrameBg), ImGui::GetStyle().FrameRounding);
    const auto& bins = _histogram->bins();
    const float left = corner.x + size.x * placeOf(shown.low, _histogram->span());
    const float right = corner.x + size.x * placeOf(shown.high, _histogram->span());
    const float bar = size.x / Histogram::kBins;
    for (size_t i = 0; i < bins.size(); ++i) {
        const float x = corner.x + bar * static_cast<float>(i);
        const bool isInside = x + bar > left && x < right;
        // The root: rare values are still seen.
        list->AddRectFilled(ImVec2(x, end.y - size.y * std::sqrt(bins[i])), ImVec2(x + bar, end.y),
                            ImGui::GetColorU32(isInside ? ImGuiCol_SliderGrab : ImGuiCol_ScrollbarGrab));
    }
    for (const float x : {left, right})
        list->AddLine(ImVec2(x, corner.y), ImVec2(x, end.y), ImGui::GetColorU32(ImGuiCol_Text),
                      2 * _gui.unit());
}

void LookSection::dragEnds(ColorMode mode, const ColorSpan& plot, float left, float width)
{
    if (ImGui::IsItemHovered() && ImGui::IsMouseDoubleClicked(ImGuiMouseButton_Left)) {
        _dragged.reset();
        _stage.act(requestFor("range"));
        return;
    }
    ColorSpan shown = _stage.scene.coloring().span(mode);
    const float mouse = std::clamp((ImGui::GetIO().MousePos.x - left) / width, 0.0f, 1.0f);
    if (ImGui::IsItemActivated())
        _dragged = std::abs(mouse - placeOf(shown.low, plot)) < std::abs(mouse - placeOf(shown.high, plot))
                       ? End::LOW
                       : End::HIGH;
    if (!ImGui::IsItemActive()) _dragged.reset();
    // A click alone moves nothing: it may be the first of two.
    if (!_dragged || !ImGui::IsMouseDragging(ImGuiMouseButton_Left, 0) || ImGui::GetIO().MouseDelta.x == 0)
        return;
    (*_dragged == End::LOW ? shown.low : shown.high) = plot.low + mouse * (plot.high - plot.low);
    setSpan(shown);
}

void LookSection::drawLight()
{
    const Scene& scene = _stage.scene;
    Request edl = requestFor("edl");
    edl.set("strength", scene.shading().strength);
    edl.set("radius", scene.shading().radius);
    widgets::flagTick(_stage, "Eye-dome lighting", "on", scene.eyeDomeLighting(), edl);
    if (scene.eyeDomeLighting()) {
        edl.set("on", true);
        widgets::numberSlider(_stage, "Strength", "strength", scene.shading().strength, edl);
        widgets::numberSlider(_stage, "Radius", "radius", scene.shading().radius, edl, std::nullopt,
                              "%.1f px");
    }
    constexpr const char* kSources[] = {"none", "eye", "sun"}; // as NormalLight::Source counts
    const NormalLight& light = scene.light();
    Request shine = requestFor("light");
    const char* source = light.source == NormalLight::EYE   ? kSources[1]
                         : light.source == NormalLight::SUN ? kSources[2]
                                                            : kSources[0];
    widgets::choiceList(_stage, "Light", "from", source, shine);
    if (light.source != NormalLight::SUN) return;
    shine.set("from", std::string("sun"));
    shine.set("azimuth", light.azimuth);
    shine.set("height", light.height);
    widgets::numberSlider(_stage, "Azimuth", "azimuth", light.azimuth, shine, std::nullopt, "%.0f");
    widgets::numberSlider(_stage, "Height", "height", light.height, shine, std::nullopt, "%.0f");
}

void LookSection::drawBackground()
{
    const Scene& scene = _stage.scene;
    Request exposure = requestFor("exposure");
    exposure.set("brightness", scene.exposure().brightness);
    exposure.set("contrast", scene.exposure().contrast);
    widgets::numberSlider(_stage, "Brightness", "brightness", scene.exposure().brightness, exposure);
    widgets::numberSlider(_stage, "Contrast", "contrast", scene.exposure().contrast, exposure, 2);
    osg::Vec4f color = scene.drawing().background;
    const auto choose = [this](const std::string& text) {
        Request request = requestFor("background");
        request.set("color", text);
        _stage.act(request);
    };
    if (ImGui::ColorEdit3("##background", color.ptr(), ImGuiColorEditFlags_NoInputs))
        choose(hexadecimal(color));
    widgets::tip("The colour behind the points");
    // "Light" alone is the list of lights: names of widgets must differ.
    for (const auto& [name, preset] :
         {std::pair("Dark", "#1c1f24"), std::pair("Light##background", "#f4f4f1")}) {
        ImGui::SameLine();
        if (ImGui::Button(name)) choose(preset);
        widgets::tipOf(*findOperation("background"), nullptr);
    }
    ImGui::SameLine();
    ImGui::TextUnformatted("Background");
}

void LookSection::drawPoints()
{
    const Scene& scene = _stage.scene;
    const PointSizing& sizing = scene.pointSizing();
    widgets::numberSlider(_stage, sizing.bySpacing ? "Least size" : "Point size", "pixels", scene.pointSize(),
                          requestFor("pointSize"), 16, "%d px");
    Request size = requestFor("pointSizing");
    bool bySpacing = sizing.bySpacing;
    const Key& key = size.operation().keys.front();
    if (ImGui::Checkbox("Close gaps", &bySpacing)) _stage.act(requestOf({&size.operation(), &key}, scene));
    widgets::tipOf(size.operation(), &key);
    widgets::keyBeside(key);
    if (sizing.bySpacing) {
        size.set("by", std::string("spacing"));
        widgets::numberSlider(_stage, "Times", "factor", sizing.factor, size, 4, "%.2f of the space");
    }
    drawLimits();
}

void LookSection::drawLimits()
{
    const Scene& scene = _stage.scene;
    double millions = static_cast<double>(scene.drawing().budget.value_or(kUsualBudget)) / 1e6;
    const double fewest = kFewestPoints / 1e6;
    const double most = kMostPoints / 1e6;
    if (ImGui::SliderScalar("Budget", ImGuiDataType_Double, &millions, &fewest, &most, "%.1f M points",
                            ImGuiSliderFlags_Logarithmic | ImGuiSliderFlags_AlwaysClamp)) {
        Request request = requestFor("budget");
        request.set("points", static_cast<int>(millions * 1e6));
        _stage.act(request);
    }
    widgets::tipOf(*findOperation("budget"), nullptr);
    drawMemory();
    widgets::numberSlider(_stage, "Smooth", "perSecond", scene.drawing().framesPerSecond,
                          requestFor("frameRate"), std::nullopt, "%d a second");
}

void LookSection::drawMemory()
{
    const Scene& scene = _stage.scene;
    const std::optional<uint64_t>& limit = scene.drawing().memory;
    Request request = requestFor("memory");
    const auto set = [&](double megabytes) {
        request.set("megabytes", megabytes);
        _stage.act(request);
    };
    bool limited = limit.has_value();
    const double needed = static_cast<double>(scene.largestPoints() * scene.bytesPerPoint());
    if (ImGui::Checkbox("##limited", &limited)) {
        if (limited)
            set(needed / 1e6);
        else
            _stage.act(request);
    }
    widgets::tipOf(request.operation(), nullptr);
    ImGui::SameLine();
    double gigabytes = (limit ? static_cast<double>(*limit) : needed) / 1e9;
    const double least = kLeastSlide / 1e9;
    const double most = kMostSlide / 1e9;
    if (ImGui::SliderScalar("Memory", ImGuiDataType_Double, &gigabytes, &least, &most,
                            limit ? "%.2f GB" : "up to %.2f GB",
                            ImGuiSliderFlags_Logarithmic | ImGuiSliderFlags_AlwaysClamp))
        set(gigabytes * 1e3);
    widgets::tip("Most memory for the points, and as much again at most on the graphics card: " +
                 grouped(scene.largestPoints()) + " points at " + std::to_string(scene.bytesPerPoint()) +
                 " bytes each");
}
