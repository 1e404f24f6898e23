#include <VelOsgDBBrx/DefaultDisplay.h>

#include "render/FileHeights.h"

#include <VelOsgDBBrx/PointCloudHelper.h>

namespace VelOsgDBBrx {

void DefaultDisplay::apply(osg::Node* node, const VelBrx::StoreStatistics& statistics)
{
    if (!node) return;
    if (statistics.maxColor > 0) {
        ShaderHelper::originColorShader(node);
    } else {
        elevation(node, statistics.elevation);
    }
    PointCloudHelper::setPointSize(node, kPointSize);
}

void DefaultDisplay::elevation(osg::Node* node, const VelBrx::AttributeRange& elevations)
{
    ColorWithRangeInfo gradient = ramp(elevations);
    elevation(node, gradient);
}

void DefaultDisplay::elevation(osg::Node* node, ColorWithRangeInfo& gradient)
{
    if (!node || gradient.entries.size() < 2) return;
    ShaderHelper::elevationColorShader(node, gradient, false);
    markFileHeights(*node->getStateSet());
}

ColorWithRangeInfo DefaultDisplay::ramp(const VelBrx::AttributeRange& values)
{
    // The scheme "Spectral" of ColorBrewer (Cynthia Brewer, Pennsylvania State University), reversed: its
    // ends are told apart by the colour blind and stand out from a dark and from a light background.
    static const unsigned kColors[] = {0x3288bd, 0x66c2a5, 0xabdda4, 0xe6f598,
                                       0xfee08b, 0xfdae61, 0xf46d43, 0xd53e4f};
    constexpr size_t kCount = sizeof kColors / sizeof *kColors;
    ColorWithRangeInfo info;
    for (size_t i = 0; i < kCount; ++i) {
        const auto channel = [&](unsigned shift) {
            return static_cast<float>(kColors[i] >> shift & 0xff) / 255.0f;
        };
        ColorEntry entry;
        entry.color.set(channel(16), channel(8), channel(0), 1.0f);
        entry.position = static_cast<float>(i) / (kCount - 1);
        info.entries.push_back(entry);
    }
    const bool spread = values.high > values.low;
    const double low = spread ? values.low : values.min;
    const double high = spread ? values.high : values.max;
    info.range.set(static_cast<float>(low), high > low ? static_cast<float>(high - low) : 1.0f);
    return info;
}

} // namespace VelOsgDBBrx
