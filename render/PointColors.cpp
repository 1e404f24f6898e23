#include <VelOsgDBBrx/PointColors.h>

#include <map>

namespace VelOsgDBBrx {

namespace {

const std::map<std::string, std::vector<uint32_t>>& palettes()
{
    static const std::map<std::string, std::vector<uint32_t>> all = {
        {"viridis",
         {0x440154, 0x482878, 0x3e4989, 0x31688e, 0x26828e, 0x1f9e89, 0x35b779, 0x6ece58, 0xb5de2b,
          0xfde725}},
        {"cividis",
         {0x00224e, 0x123570, 0x3b496c, 0x575d6d, 0x707173, 0x8a8678, 0xa59c74, 0xc3b369, 0xe1cc55,
          0xfee838}},
        {"inferno",
         {0x000004, 0x1b0c41, 0x4a0c6b, 0x781c6d, 0xa52c60, 0xcf4446, 0xed6925, 0xfb9b06, 0xf7d13d,
          0xfcffa4}},
        {"turbo",
         {0x30123b, 0x4145ab, 0x4675ed, 0x39a2fc, 0x1bcfd4, 0x24eca6, 0x61fc6c, 0xa4fc3b, 0xd1e834, 0xf3c63a,
          0xfe9b2d, 0xf36315, 0xd93806, 0xb11901, 0x7a0403}},
        {"grey", {0x333333, 0xffffff}}};
    return all;
}

} // namespace

osg::Vec4f opaqueColor(uint32_t rgb)
{
    const auto channel = [rgb](unsigned shift) { return static_cast<float>(rgb >> shift & 0xff) / 255.0f; };
    return osg::Vec4f(channel(16), channel(8), channel(0), 1.0f);
}

std::vector<osg::Vec4f> classColors(const VelBrx::ClassTable& table)
{
    std::vector<osg::Vec4f> colors;
    for (unsigned code = 0; code < table.own().size(); ++code)
        colors.push_back(opaqueColor(table.color(code)));
    return colors;
}

const std::vector<std::string>& paletteNames()
{
    static const std::vector<std::string> names = {"viridis", "cividis", "inferno", "turbo", "grey"};
    return names;
}

std::vector<ColorEntry> paletteStops(const std::string& name)
{
    std::vector<ColorEntry> stops;
    const auto found = palettes().find(name);
    if (found == palettes().end()) return stops;
    for (const uint32_t rgb : found->second) {
        ColorEntry stop;
        stop.color = opaqueColor(rgb);
        stop.position = static_cast<float>(stops.size()) / static_cast<float>(found->second.size() - 1);
        stops.push_back(stop);
    }
    return stops;
}

} // namespace VelOsgDBBrx
