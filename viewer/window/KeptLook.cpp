#include "viewer/window/KeptLook.h"

#include "viewer/display/Palettes.h"

#include <algorithm>

namespace {

const std::string kSize = "look.pointSize";
const std::string kBySpacing = "look.pointsBySpacing";
const std::string kFactor = "look.spacingFactor";
const std::string kEdl = "look.edl";
const std::string kEdlStrength = "look.edlStrength";
const std::string kEdlRadius = "look.edlRadius";
const std::string kLight = "look.light"; // source, azimuth, height
const std::string kBackground = "look.background";
const std::string kPalette = "look.palette";
const std::string kFrameRate = "look.framesPerSecond";
const std::string kBudget = "look.budget";
const std::string kMemory = "look.memory";

/// Changes `value` where the setting is there and from `low` to `high`.
template <class T, class Value>
void recall(const Settings& settings, const std::string& key, T low, T high, Value& value)
{
    const std::optional<T> kept = settings.get<T>(key);
    if (kept && *kept >= low && *kept <= high) value = static_cast<Value>(*kept);
}

void recallCount(const Settings& settings, const std::string& key, double low, double high,
                 std::optional<uint64_t>& count)
{
    double number = 0;
    recall(settings, key, low, high, number);
    if (number > 0) count = static_cast<uint64_t>(number);
}

} // namespace

void recallLook(const Settings& settings, Options& options)
{
    recall(settings, kSize, 1, kLargestPointSize, options.pointSize);
    recall(settings, kBySpacing, false, true, options.pointSizing.bySpacing);
    recall(settings, kFactor, 0.01, kLargestSizeFactor, options.pointSizing.factor);
    recall(settings, kEdl, false, true, options.edl);
    recall(settings, kEdlStrength, 0.01, kStrongestEdl, options.shading.strength);
    recall(settings, kEdlRadius, 0.01, kWidestEdl, options.shading.radius);
    recallCount(settings, kBudget, 1000, 2e9, options.budget);
    recallCount(settings, kMemory, kLeastMemory, kLargestMemory, options.memory);
    const auto light = settings.get<std::vector<double>>(kLight);
    if (!light || light->size() != 3 ||
        !((*light)[0] >= NormalLight::NONE && (*light)[0] <= NormalLight::SUN))
        return;
    options.light.source = static_cast<NormalLight::Source>((*light)[0]);
    options.light.azimuth = std::clamp((*light)[1], -360.0, 360.0);
    options.light.height = std::clamp((*light)[2], 0.0, 90.0);
}

void recallLook(const Settings& settings, Scene& scene)
{
    Scene::Drawing drawing = scene.drawing();
    recall(settings, kFrameRate, 5.0, 120.0, drawing.framesPerSecond);
    if (const auto color = colorOf(settings.get<std::string>(kBackground).value_or("")))
        drawing.background = *color;
    scene.setDrawing(drawing);
    const auto palette = settings.get<std::string>(kPalette);
    const std::vector<std::string> known = paletteNames();
    if (palette && std::find(known.begin(), known.end(), *palette) != known.end()) scene.setPalette(*palette);
}

void keepLook(const Scene& scene, Settings& settings)
{
    settings.set(kSize, scene.pointSize());
    settings.set(kBySpacing, scene.pointSizing().bySpacing);
    settings.set(kFactor, scene.pointSizing().factor);
    settings.set(kEdl, scene.eyeDomeLighting());
    settings.set(kEdlStrength, scene.shading().strength);
    settings.set(kEdlRadius, scene.shading().radius);
    const NormalLight& light = scene.light();
    settings.set(kLight, std::vector<double>{double(light.source), light.azimuth, light.height});
    const Scene::Drawing& drawing = scene.drawing();
    settings.set(kFrameRate, drawing.framesPerSecond);
    settings.set(kBackground, hexadecimal(drawing.background));
    settings.set(kPalette, scene.gradients().palette);
    settings.set(kBudget, static_cast<double>(drawing.budget.value_or(0)));
    settings.set(kMemory, static_cast<double>(drawing.memory.value_or(0)));
}
