#pragma once

#include <VelBrx/StoreStatistics.h>
#include <VelOsgDBBrx/SurfaceView.h>

#include <bitset>
#include <string>

constexpr double kLargestInterval = 1e4; ///< of contour lines, world units

/// How the surface of some classes is shown.
struct SurfaceLook
{
    bool on = false;
    std::bitset<256> classes = std::bitset<256>().set(2); ///< ground
    bool contours = true;
    double interval = 0;      ///< of the contour lines, world units; 0: see `contourInterval`
    double azimuth = 315;     ///< of the sun, degrees clockwise from north
    double height = 45;       ///< degrees above the horizon
    bool points = true;       ///< the points of the other classes are drawn over it
    bool byElevation = false; ///< coloured by elevation
};

/// The interval of the contour lines. Where none was chosen it is a round number that gives some twenty lines
/// from the lowest to the highest point, strays left out.
double contourInterval(const SurfaceLook& look, const VelBrx::AttributeRange& elevations);

/// What the surface shows, for legends: "surface of 2 ground, contours every 0.5 m". `symbol`: of the unit of
/// heights; empty where nobody states it.
std::string describeSurface(const SurfaceLook& look, const VelBrx::AttributeRange& elevations,
                            const std::string& symbol);

/// Call it where the scene may be changed.
void applySurface(VelOsgDBBrx::SurfaceView& view, const SurfaceLook& look,
                  const VelBrx::AttributeRange& elevations);
