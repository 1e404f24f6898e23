#include "viewer/display/Palettes.h"

#include <VelOsgDBBrx/PointColors.h>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

/// A table with its colours as OSG has them.
struct ShownClasses
{
    explicit ShownClasses(const VelBrx::ClassTable& shown)
        : table(shown), colors(VelOsgDBBrx::classColors(shown))
    {
    }

    VelBrx::ClassTable table;
    std::vector<osg::Vec4f> colors;
};

ShownClasses& shownClasses()
{
    static ShownClasses shown{VelBrx::ClassTable()};
    return shown;
}

} // namespace

const VelBrx::ClassTable& classTable()
{
    return shownClasses().table;
}

void setClassTable(const VelBrx::ClassTable& table)
{
    shownClasses() = ShownClasses(table);
}

const std::vector<osg::Vec4f>& classColors()
{
    return shownClasses().colors;
}

std::string classText(unsigned code)
{
    return classTable().text(code);
}

osg::Vec4f distinctColor(size_t n)
{
    return VelOsgDBBrx::opaqueColor(VelBrx::distinctColor(n));
}

const std::vector<std::string>& paletteNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all = VelOsgDBBrx::paletteNames();
        all.insert(all.begin(), "own");
        return all;
    }();
    return names;
}

std::optional<osg::Vec4f> colorOf(const std::string& text)
{
    unsigned rgb = 0;
    if (text.size() != 7 || text[0] != '#') return std::nullopt;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), rgb, 16);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return VelOsgDBBrx::opaqueColor(rgb);
}

std::string hexadecimal(const osg::Vec4f& color)
{
    const auto channel = [&](unsigned i) { return static_cast<unsigned>(std::lround(color[i] * 255)); };
    char text[16];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", channel(0) & 0xff, channel(1) & 0xff,
                  channel(2) & 0xff);
    return text;
}
