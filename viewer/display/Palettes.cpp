#include "viewer/display/Palettes.h"

#include <VelBrx/ClassNames.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr unsigned kClassCodes = 256;

/// Of the classes that have a name, in their order.
constexpr std::array<unsigned, 23> kClassColors = {0x9e9e9e, 0xc8c8c8, 0xb5834a, 0xa6d96a, 0x66bd63, 0x1a9850,
                                                   0xe8553f, 0xff00ff, 0xffd92f, 0x3c8dd9, 0x8c6bb1, 0x707c8c,
                                                   0xd0d88a, 0xffffb3, 0xffe119, 0xf58231, 0xfabed4, 0x8dd3c7,
                                                   0xff66ff, 0xbc80bd, 0x8a6a45, 0xf2fbff, 0x5e5e7a};

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
        for (const unsigned rgb : kClassColors)
            table.push_back(opaque(rgb));
        while (table.size() < kClassCodes)
            table.push_back(distinctColor(table.size()));
        return table;
    }();
    return colors;
}

std::string classText(unsigned code)
{
    const std::string text = std::to_string(code);
    const char* const name = VelBrx::className(code);
    return name ? text + " " + name : text;
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
