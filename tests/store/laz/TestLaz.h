#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// A LAZ file of point format 0 put together byte by byte. All its points are alike but for their heights.
struct TestLaz
{
    std::vector<std::vector<int32_t>> chunks; ///< heights of the points of each chunk
    bool variableChunks = false;              ///< otherwise all chunks but the last must be of one size
    bool tellsTableAtEnd = false;             ///< as a writer does that could not go back
    bool hasTable = true;

    std::vector<uint8_t> bytes() const;
    /// The points that it holds, uncompressed.
    std::vector<uint8_t> records() const;

    static constexpr uint16_t kRecordLength = 20;

    /// Byte positions in the file.
    static size_t lazRecord();
    static size_t pointDataStart();
    size_t table() const;

private:
    std::vector<uint8_t> points() const;
};

/// The payload of the record that tells how points are compressed: items are type, size, version.
std::vector<uint8_t> lazRecord(uint16_t compressor, uint32_t chunkSize,
                               const std::vector<std::vector<uint16_t>>& items);
