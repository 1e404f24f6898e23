#include <VelBrx/ClassTable.h>

#include <VelBrx/ClassNames.h>

#include <algorithm>
#include <cmath>

namespace {

/// Of the classes that have a name, in their order.
constexpr std::array<uint32_t, 23> kStandard = {0x9e9e9e, 0xc8c8c8, 0xb5834a, 0xa6d96a, 0x66bd63, 0x1a9850,
                                                0xe8553f, 0xff00ff, 0xffd92f, 0x3c8dd9, 0x8c6bb1, 0x707c8c,
                                                0xd0d88a, 0xffffb3, 0xffe119, 0xf58231, 0xfabed4, 0x8dd3c7,
                                                0xff66ff, 0xbc80bd, 0x8a6a45, 0xf2fbff, 0x5e5e7a};

/// The scheme "Paired" of ColorBrewer (Cynthia Brewer, Pennsylvania State University), strong colours first.
constexpr std::array<uint32_t, 12> kDistinct = {0x1f78b4, 0xff7f00, 0x33a02c, 0xe31a1c, 0x9467c8, 0xffff99,
                                                0xa6cee3, 0xfdbf6f, 0xb2df8a, 0xfb9a99, 0xcab2d6, 0xc98a54};

/// A colour of full brightness and the given hue and saturation, both in [0, 1], made darker by `value`.
uint32_t fromHsv(double hue, double saturation, double value)
{
    const auto channel = [&](double shift) {
        const double k = std::fmod(shift + hue * 6, 6);
        const double bright = value * (1 - saturation * std::clamp(std::min(k, 4 - k), 0.0, 1.0));
        return static_cast<uint32_t>(std::lround(255 * bright));
    };
    return channel(5) << 16 | channel(3) << 8 | channel(1);
}

} // namespace

namespace VelBrx {

ClassTable::ClassTable()
{
    for (unsigned code = 0; code < _entries.size(); ++code) {
        const char* const name = className(code);
        _entries[code] = {name ? name : "", code < kStandard.size() ? kStandard[code] : distinctColor(code)};
    }
}

const std::string& ClassTable::name(unsigned code) const
{
    static const std::string none;
    return code < _entries.size() ? _entries[code].name : none;
}

uint32_t ClassTable::color(unsigned code) const
{
    return code < _entries.size() ? _entries[code].color : distinctColor(code);
}

std::string ClassTable::text(unsigned code) const
{
    const std::string& called = name(code);
    return std::to_string(code) + (called.empty() ? "" : " ") + called;
}

void ClassTable::setName(unsigned code, const std::string& name)
{
    if (code >= _entries.size()) return;
    _entries[code].name = name;
    _own.set(code);
}

void ClassTable::setColor(unsigned code, uint32_t rgb)
{
    if (code >= _entries.size()) return;
    _entries[code].color = rgb & 0xffffff;
    _own.set(code);
}

uint32_t distinctColor(size_t n)
{
    if (n < kDistinct.size()) return kDistinct[n];
    // Steps of the golden ratio around the colour circle never meet, and neighbours are far apart.
    constexpr double kGoldenRatio = 0.6180339887498949;
    constexpr double kSaturations[] = {0.75, 0.45, 0.95};
    constexpr double kBrightness[] = {0.95, 0.75};
    const auto step = static_cast<double>(n - kDistinct.size());
    return fromHsv(std::fmod(step * kGoldenRatio, 1.0), kSaturations[n % 3], kBrightness[n % 2]);
}

} // namespace VelBrx
