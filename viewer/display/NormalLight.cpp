#include "viewer/display/NormalLight.h"

#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PointCloudHelper.h>

#include <charconv>
#include <cmath>

using VelOsgDBBrx::PointCloudHelper;

namespace {

/// The number that is the whole of a text.
bool parse(const char* begin, const char* end, double& number)
{
    const auto [rest, error] = std::from_chars(begin, end, number);
    return error == std::errc() && rest == end;
}

} // namespace

bool parseLight(const std::string& text, NormalLight& light)
{
    if (text == "off" || text == "eye") {
        light.source = text == "off" ? NormalLight::NONE : NormalLight::EYE;
        return true;
    }
    const size_t comma = text.find(',');
    if (comma == std::string::npos) return false;
    const char* const begin = text.data();
    NormalLight sun{NormalLight::SUN};
    if (!parse(begin, begin + comma, sun.azimuth) ||
        !parse(begin + comma + 1, begin + text.size(), sun.height))
        return false;
    // NaN is none of these.
    if (!(std::abs(sun.azimuth) <= 360) || !(sun.height > 0 && sun.height <= 90)) return false;
    light = sun;
    return true;
}

void applyLight(VelOsgDBBrx::IPointCloud& cloud, const NormalLight& light)
{
    const auto& normals = cloud.getOctree()->normalsFile;
    if (!normals || !normals->isValid()) return;
    switch (light.source) {
    case NormalLight::NONE:
        PointCloudHelper::setLightOff(&cloud);
        break;
    case NormalLight::EYE:
        PointCloudHelper::setHeadLight(&cloud);
        break;
    case NormalLight::SUN:
        PointCloudHelper::setSunLight(&cloud, light.azimuth, light.height);
        break;
    }
}
