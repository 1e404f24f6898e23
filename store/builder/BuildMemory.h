#pragma once

#include <VelBrx/Builder.h>
#include <VelThreads/Mutex.h>

#include <cstdint>
#include <string>

namespace VelBrx {

/// How a build keeps within its memory: the number of its threads, the size of its chunks and of its buffers.
struct BuildMemory
{
    /// Fails when `options.memory` is too little for any build.
    static Status plan(const BuildOptions& options, uint64_t pointCount, BuildMemory& memory);

    /// Fails when `count` points that must be sorted together do not fit; each takes the memory of `weight`
    /// points of a chunk.
    Status checkFits(uint64_t count, uint64_t weight = 1) const;

    std::string output;        ///< names the build in failures
    uint64_t total = 0;        ///< the ceiling, bytes
    unsigned threads = 1;      ///< as asked for, fewer where memory is scarce
    uint64_t chunkPoints = 0;  ///< points of a chunk, where it can be divided
    uint64_t columnPoints = 0; ///< points of a chunk that is a narrow column
    uint64_t pointsAtOnce = 0; ///< points of all chunks that are in memory at the same time
    uint64_t keptBytes = 0;    ///< decoded points between the first reading and the last
    uint64_t bufferBytes = 0;  ///< buffers of all chunks together while points are handed out to them
};

/// Lets threads take points into memory as long as there is room. Any thread.
class PointGate
{
public:
    explicit PointGate(uint64_t capacity) : _capacity(capacity), _free(capacity) {}

    /// Room for some points while it lives.
    class Room
    {
    public:
        /// Waits until `points` fit; more than the gate's capacity have it for themselves. A thread that
        /// holds room must not wait.
        Room(PointGate& gate, uint64_t points);
        ~Room();
        Room(const Room&) = delete;
        Room& operator=(const Room&) = delete;

    private:
        PointGate& _gate;
        const uint64_t _points;
    };

private:
    const uint64_t _capacity;
    VelThreads::Mutex _mutex;
    VelThreads::Condition _isFreed;
    uint64_t _free VEL_GUARDED_BY(_mutex);
};

} // namespace VelBrx
