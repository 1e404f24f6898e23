#pragma once

#include "store/OriginRecord.h"
#include "store/StoreHead.h"
#include "store/io/FileReader.h"
#include "store/las/RecordFormat.h"
#include "store/las/laz/LazItems.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// A range of bytes.
struct ByteRange
{
    uint64_t start = 0;
    uint64_t length = 0;
};

/// What an exported file has around its points.
struct LasHead
{
    std::vector<uint8_t> bytes;  ///< in front of the points: header, VLRs, what follows them
    std::vector<ByteRange> tail; ///< parts of the store that follow the points
    uint64_t tailLength = 0;
};

/// How the records of a merged file are made.
struct MergedFormat
{
    uint8_t pointFormat = 6; ///< 6, 7 or 8
    uint16_t extraLength = 0;
    std::vector<std::vector<uint8_t>> extraVlrs; ///< whole VLRs that describe the extra bytes
    std::vector<std::string> notes;              ///< what merging leaves out
};

/// The format that holds what all sources have, as far as a merged file can.
MergedFormat mergedFormat(const std::vector<OriginSource>& sources);

/// Head and tail of `source` with `points` of its points. `originStart` is the position of the origin
/// record's content in `store`. What a file of compressed points has for its compression is left out.
Status makeSourceHead(const FileReader& store, int64_t originStart, const OriginSource& source,
                      uint64_t points, LasHead& head);

/// Head of a merged file, from the store's head.
Status makeMergedHead(const FileReader& store, const StoreHead& storeHead, const MergedFormat& format,
                      LasHead& head);

/// Whether the header states other points than there are; it does not where a source was cut off.
bool isCountRight(const LasHead& head, uint64_t points);

/// Turns the head into the head of a file whose points are compressed as `items` say. False where it has no
/// room for the record that says so.
bool compressHead(const LazItems& items, LasHead& head);

/// Sets where the records behind the points are, now that the points end elsewhere.
void moveTail(uint64_t oldPointsEnd, uint64_t newPointsEnd, LasHead& head);

/// Brings numbers and bounds in the header in line with the points of the file.
void tellPoints(const RecordScan& scan, uint64_t points, LasHead& head);

} // namespace VelBrx
