#pragma once

#include "store/las/RecordFields.h"
#include "store/las/laz/LazItems.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace VelBrx {

/// Decodes chunks of a LAZ file, one after the other, in any order; chunks do not depend on each other. Its
/// models take some megabytes and are kept from chunk to chunk: threads that decode at once have one object
/// each, for as long as they decode.
class LazChunkDecoder
{
public:
    explicit LazChunkDecoder(const LazItems& items);
    ~LazChunkDecoder();
    LazChunkDecoder(const LazChunkDecoder&) = delete;
    LazChunkDecoder& operator=(const LazChunkDecoder&) = delete;

    /// Starts the chunk of `pointCount` points whose bytes are [data, data + size). The bytes must stay until
    /// its last point is read. Bytes behind the chunk are ignored. Fields of a layered chunk that are not
    /// asked for are not decoded: damage to them is not found.
    Status start(const uint8_t* data, size_t size, uint64_t pointCount,
                 RecordFields fields = RecordFields::All);

    /// Decodes the next `count` points of the chunk, no more than are left, into `count` point records.
    /// Damaged bytes end in a failure or in wrong points, never behind either buffer.
    Status read(uint8_t* records, uint64_t count);

    /// Decodes a whole chunk into `pointCount` point records.
    Status decode(const uint8_t* data, size_t size, uint64_t pointCount, uint8_t* records);

    /// Whether the points that have been read, all of a chunk, used up the bytes that `start` was given, and
    /// each stream that was decoded its own. The streams of a sound chunk do; one that does not is most
    /// likely damaged.
    bool endsExactly() const;

    /// Bytes of the chunk that are decoded: when its last point has been read, the size of a sound chunk.
    size_t bytesRead() const;

private:
    class Impl;
    template <typename Record>
    class Pointwise;
    class Layered;

    std::unique_ptr<Impl> _impl;
};

} // namespace VelBrx
