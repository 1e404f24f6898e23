#pragma once

#include "store/las/laz/LazItems.h"

#include <VelThreads/Mutex.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace VelBrx {

/// Encodes chunks of a LAZ file, one after the other, in any order; chunks do not depend on each other. The
/// bytes are the same as from the format's common writers for the same records. Models and streams take some
/// megabytes and are kept from chunk to chunk: threads that encode at once have one object each.
class LazChunkEncoder
{
public:
    /// No item of version 1 except wave packets: that version is read only.
    explicit LazChunkEncoder(const LazItems& items);
    ~LazChunkEncoder();
    LazChunkEncoder(const LazChunkEncoder&) = delete;
    LazChunkEncoder& operator=(const LazChunkEncoder&) = delete;

    /// Replaces `chunk` by the chunk of `pointCount` records, 1 to 2^32 - 1.
    void encode(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk);

private:
    class Impl;
    class Pointwise;
    class Layered;

    std::unique_ptr<Impl> _impl;
};

/// Encoders for any number of threads, as many as encode at once.
class LazChunkEncoders
{
public:
    explicit LazChunkEncoders(const LazItems& items) : _items(items) {}

    /// As `LazChunkEncoder::encode`; any thread.
    void encode(const uint8_t* records, uint64_t pointCount, std::vector<uint8_t>& chunk);

private:
    const LazItems _items;
    VelThreads::Mutex _mutex;
    std::vector<std::unique_ptr<LazChunkEncoder>> _idle VEL_GUARDED_BY(_mutex);
};

} // namespace VelBrx
