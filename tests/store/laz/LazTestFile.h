#pragma once

#include "store/las/laz/LazChunkTable.h"

#include <cstdint>
#include <string>
#include <vector>

/// All bytes of a file.
std::vector<uint8_t> readBytes(const std::string& path);

/// The point records of an uncompressed LAS file.
std::vector<uint8_t> lasRecords(const std::string& path);

/// Reads the header of a LAZ file, finds its chunks and decodes them all. `table` tells how it went.
VelBrx::Status decodeLaz(const std::string& path, std::vector<uint8_t>& records,
                         VelBrx::LazChunkTable& table);

/// What `decodeLaz` needs of a LAS header.
struct LasHead
{
    uint64_t pointDataStart = 0;
    uint64_t pointCount = 0;
    uint16_t recordLength = 0;
};

/// Reads the head and the LAZ record of a file's bytes.
VelBrx::Status readLazHead(const std::vector<uint8_t>& bytes, LasHead& head, VelBrx::LazItems& items);
