#pragma once

#include "crs/GeoKeys.h"
#include "crs/Proj.h"

#include <string>

/// What GeoTIFF keys state.
struct GeoTiffSystem
{
    Proj::Object horizontal;     ///< empty where the keys name none that can be known; `problem` says why
    Proj::Object vertical;       ///< empty where they name none
    double verticalUnitSize = 0; ///< metres; 0: not stated
    std::string problem;         ///< empty beside no `horizontal` where they state none
};

/// On the thread that calls.
GeoTiffSystem readGeoTiffSystem(const GeoKeys& keys);
