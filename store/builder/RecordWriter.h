#pragma once

#include "store/io/DiskFile.h"

#include <VelThreads/Mutex.h>

#include <cstdint>
#include <map>
#include <vector>

namespace VelBrx {

/// Writes one of the store's records into its file: header, content and the checksum at the end, which is
/// counted while the content is written. The content may come in pieces of any order, each byte once.
class RecordWriter
{
public:
    /// The EVLR header goes to `start`; the content has `length` bytes, checksum included.
    RecordWriter(DiskFile& file, uint64_t start, uint64_t length);

    /// Writes the EVLR header and the content's first bytes.
    Status begin(uint16_t recordId, const char* description, const std::vector<uint8_t>& head);

    /// Writes a piece of the content; `position` counts from its start. Any thread.
    Status write(uint64_t position, const void* data, uint64_t size);

    /// Writes the checksum. Fails when a part of the content was not written, or twice.
    Status finish();

private:
    struct Piece
    {
        uint64_t length;
        uint32_t checksum;
    };

    void take(uint64_t position, Piece piece) VEL_REQUIRES(_mutex);

    DiskFile& _file;
    const uint64_t _start;
    const uint64_t _length;
    VelThreads::Mutex _mutex;
    std::map<uint64_t, Piece> _pieces VEL_GUARDED_BY(_mutex); ///< by position, neighbours joined
};

} // namespace VelBrx
