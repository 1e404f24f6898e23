#pragma once

#include <VelBrx/PointRecord.h>

#include <cstddef>
#include <cstdint>

/// Byte positions in LAS 1.4 files; older versions use the same positions as far as their header reaches.
namespace VelBrx::LasLayout {

using namespace PointRecord;

/// \name File header
/// @{
constexpr size_t kSignature = 0; ///< "LASF"
constexpr size_t kSignatureSize = 4;
constexpr size_t kFileSourceId = 4;
constexpr size_t kGlobalEncoding = 6;
constexpr size_t kGuid = 8;
constexpr size_t kVersionMajor = 24;
constexpr size_t kVersionMinor = 25;
constexpr size_t kSystemIdentifier = 26;
constexpr size_t kGeneratingSoftware = 58;
constexpr size_t kSoftwareSize = 32; ///< characters of each of the two
constexpr size_t kCreationDay = 90;
constexpr size_t kCreationYear = 92;
constexpr size_t kHeaderSizeField = 94;
constexpr size_t kPointDataStart = 96;
constexpr size_t kVlrCount = 100;
constexpr size_t kPointFormat = 104;
constexpr size_t kRecordLength = 105;
constexpr size_t kLegacyPointCount = 107;
constexpr size_t kLegacyPointsByReturn = 111; ///< 5 uint32
constexpr size_t kScale = 131;                ///< 3 float64
constexpr size_t kOffset = 155;               ///< 3 float64
constexpr size_t kBounds = 179;               ///< float64 max x, min x, max y, min y, max z, min z
constexpr size_t kWaveformStart = 227;        ///< since version 1.3
constexpr size_t kEvlrStart = 235;            ///< since version 1.4, as all that follows
constexpr size_t kEvlrCount = 243;
constexpr size_t kPointCount = 247;
constexpr size_t kPointsByReturn = 255; ///< 15 uint64
constexpr size_t kHeaderSize = 375;
/// @}

/// \name Header of a variable length record
/// @{
constexpr size_t kVlrUserId = 2; ///< 16 characters
constexpr size_t kUserIdSize = 16;
constexpr size_t kVlrRecordId = 18;
constexpr size_t kVlrLength = 20;
constexpr size_t kVlrDescription = 22; ///< 32 characters
constexpr size_t kDescriptionSize = 32;
constexpr size_t kVlrHeaderSize = 54;
/// @}

/// \name Header of an extended variable length record
/// User id and record id stand where they do in the short one.
/// @{
constexpr size_t kEvlrLength = 20;
constexpr size_t kEvlrDescription = 28;
constexpr size_t kEvlrHeaderSize = 60;
/// @}

} // namespace VelBrx::LasLayout
