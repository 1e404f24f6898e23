#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace VelBrx {

/// The horizontal coordinate system that GeoTIFF keys, the payload of VLR 34735, name by its EPSG code, as
/// "EPSG:25832"; empty where they name none.
std::string epsgOfGeoKeys(const uint8_t* keys, size_t size);

} // namespace VelBrx
