#pragma once

#include <VelBrx/Status.h>

#include "store/io/FileReader.h"
#include "store/las/LasLayout.h"
#include "store/las/laz/LazChunkTable.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VelBrx {

/// A variable length record, extended or not.
struct LasVlr
{
    /// As in the file, of an extended one made to match, except for the length, which is zero.
    std::array<uint8_t, LasLayout::kVlrHeaderSize> head{};
    std::string userId;
    uint16_t recordId = 0;
    std::vector<uint8_t> data; ///< the payload behind the head
};

/// How the points of a LAZ file are compressed and where they are.
struct LazPoints
{
    LazItems items;
    LazChunkTable chunks;
};

/// What a LAS or LAZ file says of itself and, where that is not so, what is so: `pointCount` and the byte
/// ranges lie inside the file.
struct LasFile
{
    std::string path;
    FileState state; ///< of the file that was read
    uint64_t fileSize = 0;
    uint8_t versionMinor = 0;
    uint16_t sourceId = 0;
    uint16_t globalEncoding = 0;
    uint8_t projectId[16] = {};
    char systemIdentifier[32] = {};
    uint16_t creationDay = 0;
    uint16_t creationYear = 0;
    uint8_t pointFormat = 0;      ///< 0 to 10
    uint16_t recordLength = 0;    ///< at least what the format needs
    uint64_t pointDataStart = 0;  ///< byte position of the first record or of the compressed points
    uint64_t pointCount = 0;      ///< whole records in the file
    std::optional<LazPoints> laz; ///< of a file with compressed points
    double scale[3] = {0, 0, 0};
    double offset[3] = {0, 0, 0};
    double min[3] = {0, 0, 0}; ///< as the header states them, right or wrong
    double max[3] = {0, 0, 0};
    uint64_t pointsByReturn[15] = {}; ///< as the header states them, right or wrong
    std::vector<LasVlr> vlrs;
    std::vector<LasVlr> evlrs; ///< payloads above 65535 bytes are left empty
    std::vector<std::string>
        notes; ///< what was found wrong and how it is read all the same, without the path

    /// First byte behind the last record or the compressed points.
    uint64_t pointDataEnd() const
    {
        return laz ? laz->chunks.end : pointDataStart + pointCount * recordLength;
    }
};

constexpr uint16_t kGpsStandardTimeBit =
    0x0001; ///< of the global encoding: GPS time is adjusted standard time
constexpr uint16_t kSyntheticReturnsBit = 0x0008;
constexpr uint16_t kWktBit = 0x0010;

/// Reads the header, VLRs and EVLRs of the LAS 1.0 to 1.4 file at `path`, and of a LAZ file where its points
/// are. Fails with one line that names the file
/// when its points cannot be read.
Status readLasFile(const std::string& path, LasFile& file);

} // namespace VelBrx
