#pragma once

#include "store/builder/ChunkPlan.h"
#include "store/builder/SourceSet.h"
#include "store/io/ByteIo.h"
#include "store/io/TemporaryFile.h"
#include "store/io/Uninitialised.h"

#include <VelThreads/Mutex.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace VelBrx {

/// The points of a build between reading and writing, in a temporary file: store records with their ordinals
/// by chunk, their order in the cells when it is known, and what the store keeps by
/// ordinal. Any thread may call it; no two may write the same.
class PointSpool
{
public:
    /// `restLengths` gives for each source the bytes a point that neither record nor flags hold.
    PointSpool(const SourceSet& sources, const ChunkPlan& plan, std::vector<uint32_t> restLengths);

    uint64_t size() const { return _sharedStart; }
    uint32_t restLength(size_t source) const { return _restLengths[source]; }

    /// Makes the temporary file next to `output`. `bufferBytes`: buffered for all chunks together, at most.
    Status create(const std::string& output, uint64_t bufferBytes);

    /// \name Records with their ordinals: items
    /// @{
    size_t ordinalSize() const { return _ordinalSize; }
    size_t itemSize() const { return LasLayout::kPointSize + _ordinalSize; }

    /// The same of a build of so many points.
    static size_t itemSize(uint64_t points)
    {
        return LasLayout::kPointSize + (points <= std::numeric_limits<uint32_t>::max() ? 4 : 8);
    }

    /// Appends to each of `chunks` the records that belong there: record `i` has ordinal `firstOrdinal + i`
    /// and goes to `chunks[i]`.
    Status append(const uint8_t* records, const std::vector<uint32_t>& chunks, uint64_t firstOrdinal);

    /// Writes what `append` still holds in memory. Fails when a chunk has not all its points.
    Status flush();

    /// `count` items of a chunk from its `first` on.
    Status readItems(const Chunk& chunk, uint64_t first, uint64_t count, uint8_t* items) const;

    /// Forgets a chunk's items: what the disk has not been given yet need not be written there.
    void discardItems(const Chunk& chunk);

    uint64_t ordinal(const uint8_t* item) const;
    /// @}

    /// \name Order of a chunk's points in its cells: numbers of its items
    /// @{
    Status writeOrder(const Chunk& chunk, const uint32_t* order);
    Status readOrder(const Chunk& chunk, uint32_t* order) const;
    /// @}

    /// \name By ordinal
    /// @{
    Status writeFlags(uint64_t firstOrdinal, const std::vector<uint8_t>& flags);
    Status readFlags(uint64_t firstOrdinal, std::vector<uint8_t>& flags) const;
    Status writeClasses(uint64_t firstOrdinal, const std::vector<uint8_t>& classes);
    Status readClasses(uint64_t firstOrdinal, std::vector<uint8_t>& classes) const;

    /// Positions count from the start of the source's rest.
    Status writeRest(size_t source, uint64_t position, const std::vector<uint8_t>& rest);
    Status readRest(size_t source, uint64_t position, std::vector<uint8_t>& rest) const;
    /// @}

    /// \name Items of the cells that points of several chunks share, numbered on their own
    /// @{
    Status writeShared(uint64_t first, const std::vector<uint8_t>& items);
    Status readShared(uint64_t first, uint64_t count, uint8_t* items) const;
    /// @}

private:
    void storeOrdinal(uint8_t* to, uint64_t ordinal) const
    {
        if (_ordinalSize == 4)
            storeLe(to, static_cast<uint32_t>(ordinal));
        else
            storeLe(to, ordinal);
    }

    struct Buffer
    {
        VelThreads::Mutex mutex;
        Uninitialised<uint8_t> bytes VEL_GUARDED_BY(mutex);
        size_t filled VEL_GUARDED_BY(mutex) = 0;
        uint64_t written VEL_GUARDED_BY(mutex) = 0;
    };

    Status flush(size_t chunk, Buffer& buffer) VEL_REQUIRES(buffer.mutex);

    const std::vector<Chunk>& _chunks;
    const std::vector<uint32_t> _restLengths; ///< by source
    const size_t _ordinalSize;
    uint64_t _orderStart = 0; ///< positions in the file
    uint64_t _flagsStart = 0;
    uint64_t _classesStart = 0;
    std::vector<uint64_t> _restStarts; ///< by source
    uint64_t _sharedStart = 0;
    size_t _bufferSize = 0; ///< of each chunk
    std::vector<Buffer> _buffers;
    TemporaryFile _file;
};

} // namespace VelBrx
