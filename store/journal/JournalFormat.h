#pragma once

#include <VelBrx/Status.h>

#include <array>
#include <cstdint>
#include <string>

/// The bytes of an edit journal. Layout and protocol: docs/journal-format.md.
namespace VelBrx::Journal {

/// Bytes of the file's header and of an entry's head. Entries begin at multiples of it, so that a head lies
/// in one sector of a disk.
constexpr size_t kUnit = 128;

using Unit = std::array<uint8_t, kUnit>;

struct FileHeader
{
    uint64_t storeId = 0;
    uint64_t pointCount = 0;
    uint64_t forgotten = 0; ///< number of the last entry that was forgotten; the first one here follows it
    uint64_t base = 0;      ///< the change whose state the first entry here found
};

enum class Kind : uint8_t
{
    CHANGE = 1, ///< a new edit
    UNDO = 2,
    REDO = 3,
    SAVE = 4, ///< brings what is deferred into the store
    MARK = 5  ///< the store's bytes are on the disk as all entries before say
};

constexpr uint32_t kMostAuthor = 255;                  ///< bytes of a name
constexpr uint32_t kMostOperation = uint32_t{1} << 24; ///< bytes of an operation

struct EntryHead
{
    uint64_t number = 0; ///< of a mark, the last entry's
    int64_t time = 0;    ///< microseconds since 1970, UTC
    Kind kind = Kind::MARK;
    uint8_t field = 0;     ///< byte of the point record that a change is about
    uint8_t mask = 0;      ///< bits of that byte that it may change
    bool deferred = false; ///< a change that reaches the store with the next SAVE
    uint32_t authorLength = 0;
    uint32_t operationLength = 0;
    uint32_t textChecksum = 0; ///< CRC-32C of author and operation
    uint64_t runsLength = 0;   ///< bytes
    uint64_t points = 0;       ///< that a change changes
    uint64_t other = 0;        ///< of a change, the change that it follows; of UNDO and REDO, what they take

    uint64_t textLength() const { return uint64_t{authorLength} + operationLength; }

    /// Bytes of the entry in the file, with the zeros behind it.
    uint64_t size() const { return (kUnit + textLength() + runsLength + kUnit - 1) / kUnit * kUnit; }
};

Unit encodeHeader(const FileHeader& header);

/// The message of a failure follows the name of the journal in a sentence; so it is for all functions here.
Status decodeHeader(const Unit& bytes, FileHeader& header);

Unit encodeHead(const EntryHead& head);

/// Nothing was written there: an entry that was begun and not finished.
bool isBlank(const Unit& bytes);

/// Whether the bytes begin and end as those of a head do that was written.
bool isHead(const Unit& bytes);

/// Decodes and checks each value by itself.
Status decodeHead(const Unit& bytes, EntryHead& head);

} // namespace VelBrx::Journal
