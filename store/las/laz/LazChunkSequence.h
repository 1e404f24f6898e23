#pragma once

#include "store/las/laz/LazChunkTable.h"

#include <VelBrx/Status.h>
#include <VelThreads/Mutex.h>

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace VelBrx {

/// The chunks of one LAZ file, which follow on one another in the file in the order of their numbers, and
/// their table. Any thread may add chunks, in any order: one that comes early waits in memory for those
/// before it.
class LazChunkSequence
{
public:
    /// Writes `length` bytes at a position of the file; called from any thread, several at once.
    using Write = std::function<Status(uint64_t position, const void* data, uint64_t length)>;

    /// The points begin at `position`, behind the head.
    LazChunkSequence(uint64_t position, Write write);

    /// Takes the chunk of this number, 0 and on, each once. No bytes: there is no such chunk.
    Status add(uint64_t number, uint64_t pointCount, std::vector<uint8_t> bytes);

    /// Writes the table. All chunks are there. `tellsCounts` where their numbers of points vary; `end` is the
    /// first byte behind the table.
    Status finish(bool tellsCounts, uint64_t& end);

    /// By number; complete after `finish`. Of a chunk that is not there the size is 0.
    const std::vector<LazChunk>& chunks() const { return _chunks; }

private:
    struct Encoded
    {
        std::vector<uint8_t> bytes;
        uint64_t position = 0; ///< in the file, once it has its place
        uint64_t pointCount = 0;
    };

    std::vector<Encoded> place(uint64_t number, Encoded chunk);

    const uint64_t _position;
    const Write _write;

    VelThreads::Mutex _mutex;
    std::map<uint64_t, Encoded> _early VEL_GUARDED_BY(_mutex); ///< some chunk before them is not there yet
    std::vector<LazChunk> _chunks VEL_GUARDED_BY(_mutex);      ///< that have their place in the file
    uint64_t _pointCount VEL_GUARDED_BY(_mutex) = 0;           ///< of these
    uint64_t _end VEL_GUARDED_BY(_mutex);                      ///< behind the last of these
};

} // namespace VelBrx
