#pragma once

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/build/BuildRun.h"
#include "store/build/OutputFile.h"
#include "store/build/PointChunks.h"
#include "store/build/RecordWriter.h"
#include "store/build/SourceSet.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// Writes a store: LAS header and VLRs, points cell by cell, then index, origin and flags record. Every
/// position is known before the first byte is written.
class StoreWriter
{
public:
    StoreWriter(const SourceSet& sources, const StoreGrid& grid, const PointChunks& chunks);

    /// Lays out the file.
    Status plan(uint64_t storeId);

    uint64_t fileSize() const { return _fileSize; }

    Status write(OutputFile& file, BuildRun& run);

private:
    class ItemWriter;
    struct Cursors;

    Status planOrigin();
    void planFlags();
    std::vector<uint8_t> encodeCells(uint64_t storeId) const;
    Status writePoints(OutputFile& file, RecordWriter& origin, BuildRun& run) const;
    Status writeChunk(size_t index, ItemWriter& writer, Cursors& cursors) const;
    Status writeSharedCell(const PointChunks::Cell& cell, ItemWriter& writer) const;
    Status writeFlags(RecordWriter& flags, BuildRun& run) const;
    Status writeRest(size_t source, RecordWriter& flags) const;
    Status writeTails(RecordWriter& origin, BuildRun& run) const;

    const SourceSet& _sources;
    const StoreGrid& _grid;
    const PointChunks& _chunks;
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
