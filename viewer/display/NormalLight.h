#pragma once

#include <VelOsgDBBrx/IPointCloud.h>

#include <string>

/// Light on the normals of stores that have some.
struct NormalLight
{
    enum Source
    {
        NONE,
        EYE,
        SUN
    };

    Source source = EYE;
    double azimuth = 315; ///< of the sun, degrees clockwise from north
    double height = 45;   ///< of the sun above the horizon, degrees
};

/// Reads eye, off, or AZIMUTH,HEIGHT of the sun. False, and `light` stays, for anything else.
bool parseLight(const std::string& text, NormalLight& light);

/// Lights a cloud; one without normals stays as it is. Call it where the scene may be changed.
void applyLight(VelOsgDBBrx::IPointCloud& cloud, const NormalLight& light);
