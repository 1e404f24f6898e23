#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// A LAS file put together byte by byte, for tests of all that reads LAS files. What the header tells can be
/// set apart from what is there.
struct TestLas
{
    uint8_t versionMinor = 4;
    uint8_t pointFormat = 7;
    uint16_t globalEncoding = 0;
    std::array<double, 3> scale = {0.01, 0.01, 0.01};
    std::array<double, 3> offset = {0, 0, 0};

    struct Vlr
    {
        std::string userId;
        uint16_t recordId;
        std::vector<uint8_t> data;
    };
    std::vector<Vlr> vlrs;
    std::vector<uint8_t> gap; ///< between the VLRs and the points
    std::vector<std::vector<uint8_t>> records;
    std::vector<Vlr> evlrs;

    /// Bytes of a record with `extraBytes`.
    uint16_t recordLength = 36;

    /// Adds a point: a record of zeros but for its place.
    std::vector<uint8_t>& addPoint(int32_t x, int32_t y, int32_t z);

    size_t headerSize() const;
    size_t pointDataStart() const;
    std::vector<uint8_t> bytes() const;
};

/// A VLR with a coordinate system in OGC WKT.
TestLas::Vlr wktVlr(const std::string& text);
