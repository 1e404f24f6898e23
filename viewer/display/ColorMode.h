#pragma once

#include "viewer/display/Legend.h"

#include <VelBrx/StoreStatistics.h>
#include <osg/Node>
#include <osg/Vec4f>

#include <cstdint>
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

/// Colours and legends for clouds with the given statistics over all of them.
class Coloring
{
public:
    Coloring() = default;
    Coloring(const VelBrx::StoreStatistics& statistics, const osg::Vec4f& singleColor);

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
    VelBrx::StoreStatistics _statistics;
    osg::Vec4f _singleColor;
};
