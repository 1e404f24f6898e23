#include "viewer/Palettes.h"

#include <array>

namespace {

constexpr unsigned kValues = 256;

struct ClassStyle
{
    const char* name;
    unsigned rgb;
};

/// Classes 0 to 22 as the LAS 1.4 standard names them.
constexpr std::array<ClassStyle, 23> kClasses = {{
    {"never classified", 0x9e9e9e},
    {"unclassified", 0xc8c8c8},
    {"ground", 0xb5834a},
    {"low vegetation", 0xa6d96a},
    {"medium vegetation", 0x66bd63},
    {"high vegetation", 0x1a9850},
    {"building", 0xe8553f},
    {"low point (noise)", 0xff00ff},
    {"model key point", 0xffd92f},
    {"water", 0x3c8dd9},
    {"rail", 0x8c6bb1},
    {"road surface", 0x707c8c},
    {"overlap", 0xd0d88a},
    {"wire, guard", 0xffffb3},
    {"wire, conductor", 0xffe119},
    {"transmission tower", 0xf58231},
    {"wire connector", 0xfabed4},
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

} // namespace

const std::vector<osg::Vec4f>& classColors()
{
    static const std::vector<osg::Vec4f> colors = [] {
        std::vector<osg::Vec4f> table;
        for (const ClassStyle& style : kClasses)
            table.push_back(opaque(style.rgb));
        while (table.size() < kValues)
            table.push_back(distinctColor(table.size()));
        return table;
    }();
    return colors;
}

std::string className(unsigned code)
{
    return code < kClasses.size() ? kClasses[code].name : "class " + std::to_string(code);
}

osg::Vec4f distinctColor(size_t n)
{
    return opaque(kDistinct[n % kDistinct.size()]);
}
