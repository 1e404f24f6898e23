#pragma once

#include "store/io/FileReader.h"
#include "store/las/laz/LazItems.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// Points of a LAZ file that are decoded by themselves.
struct LazChunk
{
    uint64_t position = 0; ///< of its first byte in the file
    uint64_t size = 0;     ///< in bytes
    uint64_t firstPoint = 0;
    uint64_t pointCount = 0;

    uint64_t end() const { return position + size; }
};

/// The chunks of a LAZ file, without gaps in the points; chunks without points are left out.
struct LazChunkTable
{
    std::vector<LazChunk> chunks;
    uint64_t pointCount = 0;
    uint64_t end = 0; ///< first byte behind the chunks and the file's table
    /// When the file's table is missing or unreadable, or chunks are: what was found and how the points are
    /// read all the same, without a file name. Otherwise empty.
    std::string note;
};

/// Finds the chunks of the points of a file whose header gives `pointDataStart` and `pointCount`. Every chunk
/// lies inside the file, and none claims more points than its bytes can hold, so that a table is no reason to
/// reserve memory that the file does not justify. Without a usable table the chunks are found one by one, as
/// far as they are whole; that costs a pass over the points when they are compressed pointwise, and is
/// refused when these chunks vary in size.
Status readLazChunkTable(const FileReader& file, const LazItems& items, uint64_t pointDataStart,
                         uint64_t pointCount, LazChunkTable& table);

/// The bytes of a file's table of `chunks`, in their order. `tellsCounts` where their numbers of points vary.
std::vector<uint8_t> makeLazChunkTable(const std::vector<LazChunk>& chunks, bool tellsCounts);

} // namespace VelBrx
