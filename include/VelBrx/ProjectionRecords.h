#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// What the projection records (`LASF_Projection`) of a LAS file or a store say of its coordinate system:
/// the bytes as the file has them but for zeros at the end, which may mean anything or nothing. All empty
/// where it says nothing.
struct ProjectionRecords
{
    std::string wkt;                 ///< OGC WKT, record 2112, up to its first NUL
    std::vector<uint8_t> geoKeys;    ///< GeoTIFF key directory, record 34735
    std::vector<uint8_t> geoDoubles; ///< numbers of the keys, record 34736
    std::vector<uint8_t> geoTexts;   ///< texts of the keys, record 34737

    bool isEmpty() const { return wkt.empty() && geoKeys.empty(); }
};

} // namespace VelBrx
