#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/ProjectionRecords.h>
#include <VelBrx/Status.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// What a LAS or LAZ file has: what it says of itself and, of its points, what is so.
struct LasInfo
{
    /// A variable length record, extended or not.
    struct Record
    {
        std::string userId;
        uint16_t recordId = 0;
        uint64_t size = 0; ///< bytes of its payload
    };

    /// An attribute that the file adds to those of its point format.
    struct ExtraBytes
    {
        std::string name;
        std::string type; ///< such as "uint16" or "double[3]"; of an undocumented one "bytes"
    };

    unsigned versionMinor = 0; ///< of LAS 1.x
    unsigned pointFormat = 0;
    unsigned recordLength = 0; ///< bytes of a point
    bool isCompressed = false;
    bool isCopc = false;
    std::string systemIdentifier;
    unsigned creationDay = 0; ///< of the year
    unsigned creationYear = 0;
    std::string coordinateSystem; ///< OGC WKT, or "EPSG:" and a code; empty where the file tells neither
    ProjectionRecords projection; ///< all that the file says of it
    std::array<double, 3> scale{};
    std::array<double, 3> offset{};
    std::vector<Record> records;
    std::vector<ExtraBytes> extraBytes;
    std::vector<std::string> notes; ///< what is wrong in the header, or with the points

    uint64_t pointCount = 0;
    std::array<double, 3>
        min{}; ///< of the points, file units; as the six below without meaning where there are none
    std::array<double, 3> max{};
    unsigned minIntensity = 0;
    unsigned maxIntensity = 0;
    bool hasGpsTime = false;
    double minGpsTime = 0; ///< of times that are finite
    double maxGpsTime = 0;
    bool hasColors = false;
    std::array<uint64_t, 256> byClass{};
    std::array<uint64_t, 16> byReturn{};          ///< by return number, 0 included
    std::array<uint64_t, 16> byNumberOfReturns{}; ///< 0 included
    uint64_t withheld = 0;
    std::vector<uint16_t> sources; ///< point source ids that occur, ascending
};

/// Reads the head of the LAS 1.0 to 1.4, LAZ or COPC file at `path`, and every point on all processors. A
/// failure names the file, what is wrong and what to do, and leaves `info` unchanged. Any thread may call it.
VEL_BRX_EXPORT Status readLasInfo(const std::string& path, LasInfo& info);

} // namespace VelBrx
