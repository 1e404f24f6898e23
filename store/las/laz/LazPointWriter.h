#pragma once

#include "store/las/laz/LazChunkEncoder.h"
#include "store/las/laz/LazChunkSequence.h"

#include <VelBrx/Status.h>
#include <VelThreads/Mutex.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace VelBrx {

/// Whether a file of this name is to have compressed points: it ends in ".laz", in letters of either case.
bool isLazName(const std::string& path);

/// The same of ".copc.laz", by which readers know files that have an octree besides.
bool isCopcName(const std::string& path);

/// Turns the head of a LAS file, everything in front of its points, into the head of a LAZ file: the format
/// byte, and a VLR for `items` behind the others. False where the head's VLRs leave no room for one more.
bool makeLazHead(std::vector<uint8_t>& head, const LazItems& items);

/// Writes the compressed points of one LAZ file in chunks of one size. Records may come in any order and from
/// any thread; a chunk is encoded by the thread that brings the last of its points. Bring points roughly in
/// order: chunks wait in memory for their predecessors.
class LazPointWriter
{
public:
    using Write = LazChunkSequence::Write;

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

    uint64_t pointsOf(uint64_t chunk) const;
    Status gather(uint64_t chunk, uint64_t first, const uint8_t* records, uint64_t count);
    Status encode(uint64_t chunk, const uint8_t* records);

    const LazItems _items;
    const uint64_t _pointCount;
    LazChunkEncoders _encoders;
    LazChunkSequence _chunks;

    VelThreads::Mutex _mutex;
    std::map<uint64_t, std::shared_ptr<Gathered>> _gathered VEL_GUARDED_BY(_mutex); ///< by chunk
};

} // namespace VelBrx
