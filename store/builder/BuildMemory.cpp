#include "store/builder/BuildMemory.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <thread>

#include <unistd.h>

namespace VelBrx {

namespace {

constexpr uint64_t kMegabyte = 1 << 20;
constexpr uint64_t kLeastMemory = 128 * kMegabyte;
constexpr uint64_t kThreadBytes = 24 * kMegabyte; ///< batches of source points and of store records
constexpr uint64_t kPointBytes = 96;              ///< of a point in a chunk that is sorted or written
constexpr uint64_t kChunkPoints = 1 << 19;        ///< small enough for the processor's caches to help
constexpr uint64_t kMostChunks = 8192;            ///< about; each needs a buffer
constexpr uint64_t kLeastChunkPoints = 1 << 15;
constexpr uint64_t kColumnFactor = 4; ///< columns of a tower have many octree nodes; so they are left larger

/// Memory of the machine or of the control group that this process is in.
uint64_t machineMemory()
{
    uint64_t bytes =
        static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    std::ifstream limit("/sys/fs/cgroup/memory.max");
    uint64_t limited = 0;
    if (limit >> limited) bytes = std::min(bytes, limited);
    return bytes;
}

} // namespace

Status BuildMemory::plan(const BuildOptions& options, uint64_t pointCount, BuildMemory& memory)
{
    memory.output = options.output;
    memory.total = options.memory ? options.memory : std::max(kLeastMemory, machineMemory() / 2);
    if (memory.total < kLeastMemory)
        return Status::failure(options.output +
                               ": cannot be built in less than 128 MiB of memory; allow more");
    const unsigned threads =
        options.threads ? options.threads : std::max(1u, std::thread::hardware_concurrency());
    const uint64_t threadsThatFit =
        std::min(memory.total / 3 / kThreadBytes, memory.total / 2 / kPointBytes / kLeastChunkPoints);
    memory.threads =
        static_cast<unsigned>(std::clamp<uint64_t>(threads, 1, std::max<uint64_t>(1, threadsThatFit)));
    memory.pointsAtOnce =
        std::min<uint64_t>(memory.total / 2 / kPointBytes, std::numeric_limits<uint32_t>::max());
    memory.chunkPoints =
        std::min(std::max(kChunkPoints, pointCount / kMostChunks), memory.pointsAtOnce / memory.threads);
    if (options.chunkPoints) memory.chunkPoints = std::min(memory.chunkPoints, options.chunkPoints);
    memory.columnPoints = std::min(kColumnFactor * memory.chunkPoints, memory.pointsAtOnce / memory.threads);
    memory.keptBytes = memory.total / 3;
    memory.bufferBytes = memory.total / 4;
    return {};
}

Status BuildMemory::checkFits(uint64_t count, uint64_t weight) const
{
    if (count * weight <= pointsAtOnce) return {};
    const uint64_t needed = total / pointsAtOnce * count * weight;
    return Status::failure(output + ": " + std::to_string(count) +
                           " points are so close above each other that they must be sorted together; allow " +
                           std::to_string((needed >> 20) + 1) + " MiB of memory");
}

PointGate::Room::Room(PointGate& gate, uint64_t points)
    : _gate(gate), _points(std::min(points, gate._capacity))
{
    const VelThreads::Lock lock(_gate._mutex);
    while (_gate._free < _points)
        _gate._isFreed.wait(_gate._mutex);
    _gate._free -= _points;
}

PointGate::Room::~Room()
{
    {
        const VelThreads::Lock lock(_gate._mutex);
        _gate._free += _points;
    }
    _gate._isFreed.notifyAll();
}

} // namespace VelBrx
