#pragma once

#include <VelBrx/BrxHeader.h>
#include <VelBrx/Status.h>

#include "store/StoreIndex.h"
#include "store/io/FileReader.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// Most bytes that LAS header and VLRs of a store take together.
constexpr int64_t kMaxHeadSize = int64_t(64) << 20;

/// Most EVLRs of a store.
constexpr uint32_t kMaxEvlrCount = 65536;

/// A record of the store at the end of its file.
struct StoreRecord
{
    int64_t headerStart = 0; ///< byte position of its EVLR header
    int64_t start = 0;       ///< byte position of its content
    int64_t length = 0;      ///< bytes of its content; they lie inside the file
};

/// What LAS header, VLRs and EVLR headers say, every position in it checked against the size of the file.
struct StoreHead
{
    BrxHeader header;            ///< all but format version, store id and cell count, which the index holds
    uint32_t headerChecksum = 0; ///< CRC-32C of the bytes in front of the points, as they are
    StoreRecord index;           ///< content length 0 where there is none
    StoreRecord origin;          ///< likewise
    StoreRecord flags;           ///< likewise
    int64_t pointDataEnd = 0;    ///< byte position behind the last point record
    int64_t lastRecordEnd = 0;   ///< byte position behind the last EVLR
};

/// Reads the head of the store that `file` has open. The message of a failure does not hold the path; so it
/// is for all functions of this header.
Status readStoreHead(const FileReader& file, StoreHead& head);

/// Reads the bytes of the index record.
Status readIndexBytes(const FileReader& file, const StoreHead& head, std::vector<uint8_t>& bytes);

/// Whether the bytes in front of the points are those that the store was built with.
Status checkHeaderChecksum(const StoreHead& head, const StoreIndex& index);

/// Opens the store at `path`, reads and checks its head and index, and completes `head.header` from the
/// index.
Status readStore(const std::string& path, FileReader& file, StoreHead& head, StoreIndex& index,
                 FileReader::Access access = FileReader::Access::READ);

} // namespace VelBrx
