#pragma once

#include "store/las/laz/LazChunkEncoder.h"
#include "store/las/laz/LazChunkTable.h"

#include <VelBrx/Status.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace VelBrx {

/// Whether a file of this name is to have compressed points: it ends in ".laz", in letters of either case.
bool isLazName(const std::string& path);

/// The same of ".copc.laz", by which readers know files that have an octree besides.
bool isCopcName(const std::string& path);

/// Turns the head of a LAS file, everything in front of its points, into that of a LAZ file: the format byte,
/// and a VLR for `items` behind the others. False where the head's VLRs leave no room for one more.
bool makeLazHead(std::vector<uint8_t>& head, const LazItems& items);

/// Writes the compressed points of one LAZ file. Records may come in any order and from any thread; a chunk
/// is encoded by the thread that brings the last of its points. Chunks follow on one another in the file, so
/// one that is done early waits in memory for those before it: bring points roughly in order.
class LazPointWriter
{
public:
    /// Writes `length` bytes at a position of the file; called from any thread, several at once.
    using Write = std::function<Status(uint64_t position, const void* data, uint64_t length)>;

    /// `items` have a chunk size. The points begin at `position`, behind the head, and are `pointCount`.
    LazPointWriter(const LazItems& items, uint64_t position, uint64_t pointCount, Write write);

    /// Takes `count` records from the point with number `first` on. Each point comes once.
    Status write(uint64_t first, const uint8_t* records, uint64_t count);

    /// Writes the table of chunks. Call it when all points are written; `end` is the first byte behind it.
    Status finish(uint64_t& end);

    /// Bytes that each thread which writes takes at most.
    static constexpr uint64_t kThreadMemory = 16u << 20;

private:
    /// Points of a chunk on their way to the encoder.
    struct Gathered
    {
        std::vector<uint8_t> records;
        uint64_t missing = 0;
    };
    /// A chunk that is encoded, and its place in the file.
    struct Encoded
    {
        std::vector<uint8_t> bytes;
        uint64_t position = 0;
    };

    uint64_t pointsOf(uint64_t chunk) const;
    Status gather(uint64_t chunk, uint64_t first, const uint8_t* records, uint64_t count);
    Status encode(uint64_t chunk, const uint8_t* records);
    std::vector<Encoded> place(uint64_t chunk, std::vector<uint8_t> bytes,
                               std::unique_ptr<LazChunkEncoder> encoder);

    const LazItems _items;
    const uint64_t _position;
    const uint64_t _pointCount;
    const Write _write;

    std::mutex _mutex; ///< guards what follows
    std::map<uint64_t, std::shared_ptr<Gathered>> _gathered;
    std::vector<std::unique_ptr<LazChunkEncoder>> _idle; ///< that no thread uses now
    std::map<uint64_t, std::vector<uint8_t>> _early;     ///< encoded, and some chunk before them is not
    std::vector<LazChunk> _chunks;                       ///< that have their place in the file
    uint64_t _end;                                       ///< behind the last of them
};

} // namespace VelBrx
