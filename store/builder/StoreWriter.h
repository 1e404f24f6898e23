#pragma once

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/builder/BuildMemory.h"
#include "store/builder/ChunkPlan.h"
#include "store/builder/PointSpool.h"
#include "store/builder/RecordWriter.h"
#include "store/builder/SourceSet.h"
#include "store/builder/StoreCells.h"
#include "store/io/DiskFile.h"
#include "store/io/ParallelRun.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// Writes a store: LAS header and VLRs, points cell by cell, then index, origin and flags record. Every
/// position is known before the first byte is written.
class StoreWriter
{
public:
    /// What a store is written from. Everything must live as long as the writer; the spool gives up what is
    /// written.
    struct Content
    {
        const SourceSet& sources;
        const StoreGrid& grid;
        const StoreStatistics& statistics;
        const std::vector<Chunk>& chunks;
        const StoreCells& cells;
        const GridPlaces& places;
        PointSpool& spool;
        PointGate& gate;
        const std::string& coordinateSystem; ///< see `BuildOptions`
    };

    explicit StoreWriter(const Content& content) : _content(content) {}

    /// Lays out the file.
    Status plan(uint64_t storeId);

    uint64_t fileSize() const { return _fileSize; }

    Status write(DiskFile& file, ParallelRun& run);

private:
    class ItemWriter;
    struct Cursors;

    Status planOrigin();
    void planFlags();
    std::vector<uint8_t> encodeCells(uint64_t storeId) const;
    Status writePoints(DiskFile& file, RecordWriter& origin, ParallelRun& run) const;
    Status writeChunk(size_t index, ItemWriter& writer, Cursors& cursors) const;
    Status writeSharedCell(const StoreCell& cell, ItemWriter& writer) const;
    Status writeFlags(RecordWriter& flags, ParallelRun& run) const;
    Status writeRest(size_t source, RecordWriter& flags) const;
    Status writeTails(RecordWriter& origin, ParallelRun& run) const;

    const Content _content;
    std::vector<uint8_t> _header;
    std::vector<uint8_t> _index; ///< with its EVLR header
    std::vector<uint8_t> _originHead;
    std::vector<uint8_t> _flagsHead;
    OriginRecord _origin;
    FlagsRecord _flags;
    uint64_t _indexStart = 0; ///< byte positions of the EVLR headers
    uint64_t _originStart = 0;
    uint64_t _flagsStart = 0;
    uint64_t _fileSize = 0;
};

} // namespace VelBrx
