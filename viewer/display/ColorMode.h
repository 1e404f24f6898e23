#pragma once

#include "viewer/display/Legend.h"

#include <VelBrx/StoreStatistics.h>
#include <osg/Node>
#include <osg/Vec4f>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// How points are coloured.
enum class ColorMode
{
    AUTOMATIC, ///< by their colours, by elevation in stores that have none
    RGB,
    SINGLE,
    ELEVATION,
    INTENSITY,
    CLASSIFICATION,
    RETURN_NUMBER,
    NUMBER_OF_RETURNS,
    POINT_SOURCE,
    FLIGHT_LINE,
    GPS_TIME,
    CHANGED ///< by edits: see ChangedColors
};

/// A mode that the user can choose.
struct ColorModeChoice
{
    ColorMode mode;
    const char* name; ///< for --mode
    int key;
    const char* description;
};

const std::vector<ColorModeChoice>& colorModeChoices();

/// The mode of that name; empty for another text.
std::optional<ColorMode> namedColorMode(const std::string& name);

/// The names of the choices, as a sentence lists them.
std::string colorModeNames();

/// From the lowest to the highest value that a gradient shows.
struct ColorSpan
{
    double low = 0;
    double high = 0;
};

/// How modes with a gradient colour, where the user chose.
struct Gradients
{
    std::string palette = "own";          ///< one of `paletteNames`
    std::map<ColorMode, ColorSpan> spans; ///< of the modes that have one of their own
};

/// Elevation, intensity and time: modes whose colours are a gradient.
bool hasGradient(ColorMode mode);

/// Colours and legends for clouds with the given statistics over all of them.
class Coloring
{
public:
    Coloring() = default;
    Coloring(const VelBrx::StoreStatistics& statistics, const osg::Vec4f& singleColor,
             const Gradients& gradients = {});

    /// From the 2nd to the 98th percentile, or from end to end where those are one.
    static ColorSpan usualSpan(const VelBrx::AttributeRange& values);

    /// The span of a mode's gradient, which is the user's or that of nearly all values.
    ColorSpan span(ColorMode mode) const;

    /// The values of a mode with a gradient.
    VelBrx::AttributeRange values(ColorMode mode) const;

    /// The colour of ColorMode::SINGLE where nobody chose one.
    static osg::Vec4f defaultSingleColor() { return osg::Vec4f(0.85f, 0.85f, 0.8f, 1.0f); }

    /// What AUTOMATIC means for clouds with these statistics.
    static ColorMode automatic(const VelBrx::StoreStatistics& statistics);

    /// Call it where the scene may be changed. AUTOMATIC is RGB here.
    void apply(osg::Node* cloud, ColorMode mode) const;

    /// Points may have this class from now on: the legend lists it.
    void addClass(uint8_t code);

    /// Empty for modes that explain themselves.
    Legend legend(ColorMode mode) const;

private:
    VelOsgDBBrx::ColorWithRangeInfo gradient(ColorMode mode) const;
    VelOsgDBBrx::ColorScale timeScale() const;

    VelBrx::StoreStatistics _statistics;
    osg::Vec4f _singleColor;
    Gradients _gradients;
};
