#include "viewer/display/SurfaceLook.h"

#include "viewer/display/Palettes.h"

#include <VelOsgDBBrx/DefaultDisplay.h>

#include <cmath>
#include <cstdio>

double contourInterval(const SurfaceLook& look, const VelBrx::AttributeRange& elevations)
{
    if (look.interval > 0) return look.interval;
    constexpr double kLines = 20;
    const double wanted = (elevations.high - elevations.low) / kLines;
    if (!(wanted > 0)) return 1;
    const double decade = std::pow(10, std::floor(std::log10(wanted)));
    for (const double step : {1.0, 2.0, 5.0})
        if (wanted <= step * decade) return step * decade;
    return 10 * decade;
}

std::string describeSurface(const SurfaceLook& look, const VelBrx::AttributeRange& elevations,
                            const std::string& symbol)
{
    constexpr size_t kNamed = 3; // classes; more are counted
    std::string classes;
    if (look.classes.count() > kNamed) {
        classes = std::to_string(look.classes.count()) + " classes";
    } else {
        for (unsigned code = 0; code < look.classes.size(); ++code)
            if (look.classes[code]) classes += (classes.empty() ? "" : ", ") + classText(code);
    }
    char contours[64] = "";
    if (look.contours)
        std::snprintf(contours, sizeof contours, ", contours every %g", contourInterval(look, elevations));
    return "surface of " + classes + contours + (look.contours && !symbol.empty() ? " " + symbol : "");
}

void applySurface(VelOsgDBBrx::SurfaceView& view, const SurfaceLook& look,
                  const VelBrx::AttributeRange& elevations)
{
    VelOsgDBBrx::SurfaceSettings settings;
    settings.classes = look.classes;
    settings.contourInterval = look.contours ? contourInterval(look, elevations) : 0;
    settings.sunAzimuth = look.azimuth;
    settings.sunHeight = look.height;
    settings.otherPoints = look.points;
    if (look.byElevation) settings.heights = VelOsgDBBrx::DefaultDisplay::ramp(elevations);
    view.setSettings(settings);
    view.setActive(look.on);
}
