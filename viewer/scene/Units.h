#pragma once

#include "crs/CoordinateSystem.h"

#include <optional>
#include <string>

/// The units of coordinates on show.
struct Units
{
    std::string level;       ///< symbol of x and y, "m"; empty where nobody states it
    std::string height;      ///< symbol of z; likewise
    double heightFactor = 1; ///< units of x and y in one of z; 1 where that is not known
    double metres = 1;       ///< about, in one unit of x and y; 1 where nobody states it
    bool isGeographic = false;
    std::string system; ///< name and code of the coordinate system; empty where there is none

    Units() = default;
    explicit Units(const std::optional<CoordinateSystem>& of);
};
