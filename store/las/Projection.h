#pragma once

#include <VelBrx/ProjectionRecords.h>

#include "store/las/LasFile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// \name User id and record ids of the coordinate system
/// @{
constexpr char kProjectionUserId[] = "LASF_Projection";
constexpr uint16_t kMathTransformWktId = 2111;
constexpr uint16_t kWktId = 2112;
constexpr uint16_t kGeoKeysId = 34735;
constexpr uint16_t kGeoDoublesId = 34736;
constexpr uint16_t kGeoTextsId = 34737;
/// @}

/// Takes in what a projection record with this id holds, unless it is empty; of others nothing. NULs that
/// some writers add at the end are left out.
void addProjectionRecord(uint16_t recordId, const uint8_t* data, size_t size, ProjectionRecords& records);

/// What a file says: the first of its VLRs, or else EVLRs, that says it.
ProjectionRecords projectionOf(const LasFile& file);

/// Whether two files state the same in the same words.
bool areSameWords(const ProjectionRecords& a, const ProjectionRecords& b);

/// The OGC WKT or else the EPSG code of GeoTIFF keys, as "EPSG:25832"; empty where neither is there.
std::string systemOf(const ProjectionRecords& records);

} // namespace VelBrx
