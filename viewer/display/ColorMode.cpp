#include "viewer/display/ColorMode.h"

#include "viewer/display/Palettes.h"

#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/PointColors.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

using VelBrx::AttributeRange;
using VelOsgDBBrx::ColorEntry;
using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::DefaultDisplay;
using VelOsgDBBrx::ShaderHelper;

namespace {

constexpr size_t kLongestText = 24; ///< of a legend's entry, letters
constexpr int kRampNumbers = 5;
constexpr double kLargestPlain = 1e12; ///< number written with all its digits
constexpr unsigned kTableSize = 256;   ///< colours that a shader's table has
constexpr double kFullIntensity = 65535.0;

/// Grey that is still seen on the background, to white.
std::vector<ColorEntry> intensityStops()
{
    ColorEntry dark;
    dark.color.set(0.2f, 0.2f, 0.2f, 1.0f);
    ColorEntry light;
    light.color.set(1.0f, 1.0f, 1.0f, 1.0f);
    light.position = 1.0f;
    return {dark, light};
}

std::string numberText(double number, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, std::abs(number) < kLargestPlain ? "%.*f" : "%.*e", decimals, number);
    return text;
}

/// The numbers from `low` to `high` beside a gradient; a remark instead where all `values` are one.
Legend rampLegend(const std::string& title, const AttributeRange& values, const std::vector<ColorEntry>& ramp,
                  double low, double high)
{
    Legend legend;
    legend.title = title;
    if (values.min == values.max) {
        legend.remark =
            "every point has " + numberText(values.min, values.min == std::floor(values.min) ? 0 : 3);
        return legend;
    }
    legend.ramp = ramp;
    const double step = (high - low) / (kRampNumbers - 1);
    const int decimals = step > 0 ? std::clamp(1 - static_cast<int>(std::floor(std::log10(step))), 0, 5) : 0;
    for (int i = 0; i < kRampNumbers; ++i)
        legend.numbers.push_back(numberText(low + step * i, decimals));
    return legend;
}

/// One value of an attribute whose values have a colour each.
struct TableValue
{
    unsigned index; ///< in the colour table
    osg::Vec4f color;
    std::string text;
};

/// The values with points. A value has the same colour in every store: 1, the most frequent, the first of
/// all.
template <class Counts>
std::vector<TableValue> valuesIn(const Counts& counts)
{
    std::vector<TableValue> values;
    for (unsigned value = 0; value < counts.size(); ++value) {
        const size_t place = (value + counts.size() - 1) % counts.size();
        if (counts[value] > 0) values.push_back({value, distinctColor(place), std::to_string(value)});
    }
    return values;
}

std::vector<TableValue> classesIn(const VelBrx::StoreStatistics& statistics)
{
    std::vector<TableValue> values;
    for (unsigned code = 0; code < kTableSize; ++code)
        if (statistics.pointsByClass[code] > 0)
            values.push_back({code, classColors()[code], classText(code)});
    return values;
}

/// The first of the ids that the shader has one colour for.
std::vector<uint16_t>::const_iterator sharedSources(const std::vector<uint16_t>& ids)
{
    return std::lower_bound(ids.begin(), ids.end(), kTableSize - 1);
}

std::vector<TableValue> sourcesIn(const VelBrx::StoreStatistics& statistics)
{
    constexpr unsigned kLast = kTableSize - 1;
    const auto& ids = statistics.pointSources;
    const auto sharing = sharedSources(ids);
    std::vector<TableValue> values;
    for (auto id = ids.begin(); id != sharing; ++id)
        values.push_back({*id, distinctColor(*id), std::to_string(*id)});
    if (sharing == ids.end()) return values;
    const auto count = ids.end() - sharing;
    values.push_back(
        {kLast, distinctColor(kLast),
         count == 1 ? std::to_string(*sharing) : "255 and above: " + std::to_string(count) + " ids"});
    return values;
}

/// The shader takes the id modulo 256 for the flight line.
std::vector<TableValue> flightLinesIn(const VelBrx::StoreStatistics& statistics)
{
    std::vector<TableValue> values;
    for (const uint16_t id : statistics.pointSources) {
        const unsigned index = id % kTableSize;
        const auto same = std::find_if(values.begin(), values.end(),
                                       [&](const TableValue& value) { return value.index == index; });
        if (same == values.end())
            values.push_back({index, distinctColor(index), std::to_string(id)});
        else if (same->text.size() < kLongestText)
            same->text += ", " + std::to_string(id);
        else if (same->text.back() != '.')
            same->text += " ...";
    }
    return values;
}

std::vector<TableValue> tableValues(ColorMode mode, const VelBrx::StoreStatistics& statistics)
{
    switch (mode) {
    case ColorMode::CLASSIFICATION:
        return classesIn(statistics);
    case ColorMode::RETURN_NUMBER:
        return valuesIn(statistics.pointsByReturn);
    case ColorMode::NUMBER_OF_RETURNS:
        return valuesIn(statistics.pointsByNumberOfReturns);
    case ColorMode::POINT_SOURCE:
        return sourcesIn(statistics);
    case ColorMode::FLIGHT_LINE:
        return flightLinesIn(statistics);
    default:
        return {};
    }
}

/// Classes that come about by editing have their colour too.
std::vector<osg::Vec4f> colorTable(const std::vector<TableValue>& values)
{
    std::vector<osg::Vec4f> colors = classColors();
    for (const TableValue& value : values)
        colors[value.index] = value.color;
    return colors;
}

Legend tableLegend(const std::string& title, const std::vector<TableValue>& values)
{
    Legend legend;
    legend.title = title;
    for (const TableValue& value : values)
        legend.entries.push_back({value.color, value.text});
    return legend;
}

} // namespace

const std::vector<ColorModeChoice>& colorModeChoices()
{
    static const std::vector<ColorModeChoice> choices = {
        {ColorMode::RGB, "rgb", 'r', "Colour by the points' own colours"},
        {ColorMode::SINGLE, "single", 'o', "One colour for all points"},
        {ColorMode::ELEVATION, "elevation", 'e', "Colour by elevation"},
        {ColorMode::INTENSITY, "intensity", 'i', "Colour by intensity"},
        {ColorMode::CLASSIFICATION, "class", 'k', "Colour by class"},
        {ColorMode::RETURN_NUMBER, "return", 'n', "Colour by return number"},
        {ColorMode::NUMBER_OF_RETURNS, "returns", 'u', "Colour by number of returns"},
        {ColorMode::POINT_SOURCE, "source", 'p', "Colour by point source id"},
        {ColorMode::FLIGHT_LINE, "flightline", 'l', "Colour by flight line"},
        {ColorMode::GPS_TIME, "time", 'g', "Colour by GPS time"},
        {ColorMode::CHANGED, "changed", 'm', "Colour by edits: each, author, age, as built"},
    };
    return choices;
}

std::optional<ColorMode> namedColorMode(const std::string& name)
{
    for (const ColorModeChoice& choice : colorModeChoices())
        if (name == choice.name) return choice.mode;
    return std::nullopt;
}

std::string colorModeNames()
{
    std::string names;
    const auto& choices = colorModeChoices();
    for (size_t i = 0; i < choices.size(); ++i) {
        if (i > 0) names += i + 1 < choices.size() ? ", " : " or ";
        names += choices[i].name;
    }
    return names;
}

bool hasGradient(ColorMode mode)
{
    return mode == ColorMode::ELEVATION || mode == ColorMode::INTENSITY || mode == ColorMode::GPS_TIME;
}

Coloring::Coloring(const VelBrx::StoreStatistics& statistics, const osg::Vec4f& singleColor,
                   const Gradients& gradients)
    : _statistics(statistics), _singleColor(singleColor), _gradients(gradients)
{
}

AttributeRange Coloring::values(ColorMode mode) const
{
    if (mode == ColorMode::INTENSITY) return _statistics.intensity;
    return mode == ColorMode::GPS_TIME ? _statistics.gpsTime : _statistics.elevation;
}

ColorSpan Coloring::usualSpan(const AttributeRange& values)
{
    return values.high > values.low ? ColorSpan{values.low, values.high} : ColorSpan{values.min, values.max};
}

ColorSpan Coloring::span(ColorMode mode) const
{
    const auto chosen = _gradients.spans.find(mode);
    return chosen != _gradients.spans.end() ? chosen->second : usualSpan(values(mode));
}

ColorWithRangeInfo Coloring::gradient(ColorMode mode) const
{
    AttributeRange shown = values(mode);
    const auto [low, high] = span(mode);
    shown.low = low;
    shown.high = high;
    ColorWithRangeInfo info = DefaultDisplay::ramp(shown);
    if (mode == ColorMode::INTENSITY) {
        info.entries = intensityStops();
        info.range /= static_cast<float>(kFullIntensity);
    }
    const std::vector<ColorEntry> chosen = VelOsgDBBrx::paletteStops(_gradients.palette);
    if (!chosen.empty()) info.entries = chosen;
    return info;
}

/// A gradient over most times and its end colours for those before and after: a time outside the scale would
/// be black. The scale's ends lie a step of a float outside all times, because the points' are rounded to
/// floats.
VelOsgDBBrx::ColorScale Coloring::timeScale() const
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr double kMargin = 1e-3; // seconds
    const auto [low, high] = span(ColorMode::GPS_TIME);
    const double first = std::min(low, _statistics.gpsTime.min);
    const double last = std::max(high, _statistics.gpsTime.max);
    const std::vector<ColorEntry> ramp = gradient(ColorMode::GPS_TIME).entries;
    VelOsgDBBrx::ColorScale scale;
    scale.addColorScaleElement(std::nextafter(static_cast<float>(first), -kInfinity) - kMargin,
                               ramp.front().color);
    for (const ColorEntry& entry : ramp)
        scale.addColorScaleElement(low + (high - low) * entry.position, entry.color);
    scale.addColorScaleElement(std::nextafter(static_cast<float>(last), kInfinity) + kMargin,
                               ramp.back().color);
    return scale;
}

ColorMode Coloring::automatic(const VelBrx::StoreStatistics& statistics)
{
    return statistics.maxColor > 0 ? ColorMode::RGB : ColorMode::ELEVATION;
}

void Coloring::apply(osg::Node* cloud, ColorMode mode) const
{
    std::vector<osg::Vec4f> colors = colorTable(tableValues(mode, _statistics));
    ColorWithRangeInfo ramp = gradient(mode);
    switch (mode) {
    case ColorMode::AUTOMATIC:
    case ColorMode::RGB:
        return ShaderHelper::originColorShader(cloud);
    case ColorMode::SINGLE:
        return ShaderHelper::singleColorShader(cloud, _singleColor);
    case ColorMode::ELEVATION:
        return DefaultDisplay::elevation(cloud, ramp);
    case ColorMode::INTENSITY:
        return ShaderHelper::intensityShader(cloud, ramp);
    case ColorMode::CLASSIFICATION:
        return ShaderHelper::classificationColorShader(cloud, colors);
    case ColorMode::RETURN_NUMBER:
        return ShaderHelper::returnNumberColorShader(cloud, colors);
    case ColorMode::NUMBER_OF_RETURNS:
        return ShaderHelper::numbersReturnColorShader(cloud, colors);
    case ColorMode::POINT_SOURCE:
        return ShaderHelper::pointSourceIDColorShader(cloud, colors);
    case ColorMode::FLIGHT_LINE:
        return ShaderHelper::flightLineColorShader(cloud, colors);
    case ColorMode::GPS_TIME: {
        VelOsgDBBrx::ColorScale scale = timeScale();
        return ShaderHelper::gpsTimeColorShader(cloud, scale);
    }
    case ColorMode::CHANGED:
        return; // ChangedColors does it
    }
}

void Coloring::addClass(uint8_t code)
{
    uint64_t& points = _statistics.pointsByClass[code];
    points = std::max<uint64_t>(points, 1);
}

Legend Coloring::legend(ColorMode mode) const
{
    const auto ramp = [&](const char* title) {
        const auto [low, high] = span(mode);
        return rampLegend(title, values(mode), gradient(mode).entries, low, high);
    };
    const auto table = [&](const char* title) { return tableLegend(title, tableValues(mode, _statistics)); };
    switch (mode) {
    case ColorMode::ELEVATION:
        return ramp("elevation");
    case ColorMode::INTENSITY:
        return ramp("intensity");
    case ColorMode::GPS_TIME:
        return ramp("GPS time, s");
    case ColorMode::CLASSIFICATION:
        return table("class");
    case ColorMode::RETURN_NUMBER:
        return table("return number");
    case ColorMode::NUMBER_OF_RETURNS:
        return table("number of returns");
    case ColorMode::POINT_SOURCE: {
        Legend legend = table("point source id");
        const auto& ids = _statistics.pointSources;
        if (ids.end() - sharedSources(ids) > 1)
            legend.remark = "ids above 254 share a colour: see flightline";
        return legend;
    }
    case ColorMode::FLIGHT_LINE:
        return table("flight line");
    case ColorMode::RGB: {
        Legend legend;
        if (_statistics.maxColor > 0) return legend;
        legend.title = "colour";
        legend.remark = "no point has one";
        return legend;
    }
    default:
        return Legend();
    }
}
