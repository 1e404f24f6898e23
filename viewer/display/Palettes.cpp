#include "viewer/display/Palettes.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr unsigned kClassCodes = 256;

struct ClassStyle
{
    const char* name;
    unsigned rgb;
};

/// Classes 0 to 22 as the LAS 1.4 standard names them; 8 and 12 as the point formats before 6 use them.
constexpr std::array<ClassStyle, 23> kClasses = {{
    {"created, never classified", 0x9e9e9e},
    {"unclassified", 0xc8c8c8},
    {"ground", 0xb5834a},
    {"low vegetation", 0xa6d96a},
    {"medium vegetation", 0x66bd63},
    {"high vegetation", 0x1a9850},
    {"building", 0xe8553f},
    {"low point (noise)", 0xff00ff},
    {"model key-point", 0xffd92f},
    {"water", 0x3c8dd9},
    {"rail", 0x8c6bb1},
    {"road surface", 0x707c8c},
    {"overlap", 0xd0d88a},
    {"wire - guard (shield)", 0xffffb3},
    {"wire - conductor (phase)", 0xffe119},
    {"transmission tower", 0xf58231},
    {"wire-structure connector", 0xfabed4},
    {"bridge deck", 0x8dd3c7},
    {"high noise", 0xff66ff},
    {"overhead structure", 0xbc80bd},
    {"ignored ground", 0x8a6a45},
    {"snow", 0xf2fbff},
    {"temporal exclusion", 0x5e5e7a},
}};

/// The scheme "Paired" of ColorBrewer (Cynthia Brewer, Pennsylvania State University), strong colours first.
constexpr std::array<unsigned, 12> kDistinct = {0x1f78b4, 0xff7f00, 0x33a02c, 0xe31a1c, 0x9467c8, 0xffff99,
                                                0xa6cee3, 0xfdbf6f, 0xb2df8a, 0xfb9a99, 0xcab2d6, 0xc98a54};

osg::Vec4f opaque(unsigned rgb)
{
    const auto channel = [rgb](unsigned shift) { return static_cast<float>(rgb >> shift & 0xff) / 255.0f; };
    return osg::Vec4f(channel(16), channel(8), channel(0), 1.0f);
}

/// A colour of full brightness and the given hue and saturation, both in [0, 1], made darker by `value`.
osg::Vec4f fromHsv(double hue, double saturation, double value)
{
    const auto channel = [&](double shift) {
        const double k = std::fmod(shift + hue * 6, 6);
        return static_cast<float>(value * (1 - saturation * std::clamp(std::min(k, 4 - k), 0.0, 1.0)));
    };
    return osg::Vec4f(channel(5), channel(3), channel(1), 1.0f);
}

} // namespace

const std::vector<osg::Vec4f>& classColors()
{
    static const std::vector<osg::Vec4f> colors = [] {
        std::vector<osg::Vec4f> table;
        for (const ClassStyle& style : kClasses)
            table.push_back(opaque(style.rgb));
        while (table.size() < kClassCodes)
            table.push_back(distinctColor(table.size()));
        return table;
    }();
    return colors;
}

std::string classText(unsigned code)
{
    const std::string text = std::to_string(code);
    return code < kClasses.size() ? text + " " + kClasses[code].name : text;
}

osg::Vec4f distinctColor(size_t n)
{
    if (n < kDistinct.size()) return opaque(kDistinct[n]);
    // Steps of the golden ratio around the colour circle never meet, and neighbours are far apart.
    constexpr double kGoldenRatio = 0.6180339887498949;
    constexpr double kSaturations[] = {0.75, 0.45, 0.95};
    constexpr double kBrightness[] = {0.95, 0.75};
    const auto step = static_cast<double>(n - kDistinct.size());
    return fromHsv(std::fmod(step * kGoldenRatio, 1.0), kSaturations[n % 3], kBrightness[n % 2]);
}
