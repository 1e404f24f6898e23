#include <VelBrx/AsBuilt.h>

#include "store/SourceRecords.h"
#include "store/io/ByteIo.h"

#include <new>

namespace VelBrx {

Status AsBuilt::open(const std::string& path, const std::shared_ptr<File>& file, AsBuilt& built)
try {
    FileReader reader;
    StoreHead head;
    SourceRecords records;
    Status status = reader.open(path);
    if (status) status = readStoreHead(reader, head);
    if (status) status = readSourceRecordHeads(reader, head, records);
    if (!status) return status.of(path);
    const auto bytes = [&](const StoreRecord& record) {
        return static_cast<const uint8_t*>(file->map(record.start, record.length));
    };
    const uint8_t* const origin = bytes(head.origin);
    const uint8_t* const flags = bytes(head.flags);
    if (reader.identity() != file->identity() || !origin || !flags)
        return Status::failure(path + ": was replaced or cut; open it again");
    built._file = file;
    built._count = head.header.pointCount;
    built._ordinalSize = records.origin.ordinalSize;
    built._ordinals = origin + records.origin.ordinalStart;
    built._flags = flags + records.flags.flagsStart;
    built._classes = flags + records.flags.classesStart;
    return {};
} catch (const std::bad_alloc&) {
    return Status::failure(path + ": needs more memory than there is; close other programs",
                           Status::Kind::NO_MEMORY);
}

/// A damaged ordinal leads to a wrong point, not out of the record.
uint64_t AsBuilt::ordinalOf(uint64_t point) const
{
    const uint8_t* const place = _ordinals + point * _ordinalSize;
    const uint64_t ordinal = _ordinalSize == 4 ? loadLe<uint32_t>(place) : loadLe<uint64_t>(place);
    return ordinal < _count ? ordinal : 0;
}

} // namespace VelBrx
