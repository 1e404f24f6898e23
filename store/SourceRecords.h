#pragma once

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/ProblemList.h"
#include "store/StoreHead.h"
#include "store/io/FileReader.h"

namespace VelBrx {

/// The records that say where the points of a store come from, as far as they can be decoded.
struct SourceRecords
{
    OriginRecord origin;
    FlagsRecord flags;
};

/// Checks these records, as far as the store has them: their layout and checksums, that they agree with each
/// other, and that the order of the points names every source point once.
void checkSourceRecords(const FileReader& file, const StoreHead& head, ProblemList& problems);

/// Reads and checks both records; a failure names the first thing wrong. The message does not hold the path.
Status readSourceRecords(const FileReader& file, const StoreHead& head, SourceRecords& records);

/// Reads where both records hold what; of the values only those are checked, and no checksum.
Status readSourceRecordHeads(const FileReader& file, const StoreHead& head, SourceRecords& records);

} // namespace VelBrx
