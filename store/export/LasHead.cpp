#include "store/export/LasHead.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/laz/LazPointWriter.h"

#include <algorithm>
#include <limits>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr size_t kShortHeaderSize = 227;
constexpr uint8_t kCompressionBits = 0xC0;
constexpr int kMaxRecordLength = 0xFFFF;
constexpr char kSpecUserId[] = "LASF_Spec";
constexpr uint16_t kExtraBytesId = 4;

template <typename T>
T field(const std::vector<uint8_t>& bytes, size_t position)
{
    return loadLe<T>(bytes.data() + position);
}

template <typename T>
void setField(std::vector<uint8_t>& bytes, size_t position, T value)
{
    storeLe<T>(bytes.data() + position, value);
}

std::string userIdOf(const uint8_t* recordHeader)
{
    const uint8_t* const text = recordHeader + kVlrUserId;
    return {text, std::find(text, text + kUserIdSize, uint8_t{0})};
}

/// Whether a VLR or EVLR speaks of how points are compressed.
bool isForCompression(const uint8_t* recordHeader)
{
    const std::string user = userIdOf(recordHeader);
    return user == "laszip encoded" || user == "copc";
}

bool isUsable(const std::vector<uint8_t>& head)
{
    return head.size() >= kShortHeaderSize && field<uint16_t>(head, kHeaderSizeField) >= kShortHeaderSize &&
           field<uint16_t>(head, kHeaderSizeField) <= head.size();
}

bool hasWaveformStart(const std::vector<uint8_t>& head)
{
    return head[kVersionMinor] >= 3 && field<uint16_t>(head, kHeaderSizeField) >= kWaveformStart + 8;
}

bool hasLongHeader(const std::vector<uint8_t>& head)
{
    return head[kVersionMinor] >= 4 && field<uint16_t>(head, kHeaderSizeField) >= kHeaderSize;
}

/// The whole VLRs of a file's head, as far as they lie inside it.
std::vector<ByteRange> vlrsOf(const std::vector<uint8_t>& head)
{
    std::vector<ByteRange> vlrs;
    uint64_t position = field<uint16_t>(head, kHeaderSizeField);
    for (uint32_t left = field<uint32_t>(head, kVlrCount); left > 0; --left) {
        if (head.size() - position < kVlrHeaderSize) break;
        const uint64_t length = kVlrHeaderSize + field<uint16_t>(head, position + kVlrLength);
        if (head.size() - position < length) break;
        vlrs.push_back({position, length});
        position += length;
    }
    return vlrs;
}

/// Takes out of a head what is said there of compression.
void removeCompression(std::vector<uint8_t>& head)
{
    std::vector<ByteRange> vlrs = vlrsOf(head);
    uint32_t removed = 0;
    for (auto vlr = vlrs.rbegin(); vlr != vlrs.rend(); ++vlr) {
        const auto start = head.begin() + static_cast<std::ptrdiff_t>(vlr->start);
        if (!isForCompression(&*start)) continue;
        head.erase(start, start + static_cast<std::ptrdiff_t>(vlr->length));
        ++removed;
    }
    setField<uint32_t>(head, kVlrCount, field<uint32_t>(head, kVlrCount) - removed);
    setField<uint32_t>(head, kPointDataStart, static_cast<uint32_t>(head.size()));
    head[kPointFormat] &= static_cast<uint8_t>(~kCompressionBits);
}

/// Finds the EVLRs of a compressed file that stay, in its tail.
class EvlrWalk
{
public:
    EvlrWalk(const FileReader& store, uint64_t tailStart, const OriginSource& source, uint64_t pointsLength,
             LasHead& head)
        : _store(store), _tailStart(tailStart), _source(source), _pointsLength(pointsLength), _head(head)
    {
    }

    Status run()
    {
        std::vector<uint8_t>& bytes = _head.bytes;
        const uint64_t waveform = hasWaveformStart(bytes) ? field<uint64_t>(bytes, kWaveformStart) : 0;
        const bool isLong = hasLongHeader(bytes);
        uint64_t position = isLong ? field<uint64_t>(bytes, kEvlrStart) : waveform;
        uint32_t left = isLong ? field<uint32_t>(bytes, kEvlrCount) : waveform != 0;
        uint32_t kept = 0;
        uint64_t newWaveform = 0;
        for (; left > 0; --left) {
            uint8_t header[kEvlrHeaderSize];
            ByteRange record;
            if (!find(position, record)) break; // as reading the file did
            if (!_store.read(static_cast<int64_t>(record.start), header, sizeof header))
                return Status::failure("cannot be read to its end");
            const uint64_t next = position + record.length;
            if (!isForCompression(header)) {
                if (position == waveform) newWaveform = bytes.size() + _pointsLength + _head.tailLength;
                _head.tail.push_back(record);
                _head.tailLength += record.length;
                ++kept;
            }
            position = next;
        }
        if (isLong) setField<uint64_t>(bytes, kEvlrStart, kept ? bytes.size() + _pointsLength : 0);
        if (isLong) setField<uint32_t>(bytes, kEvlrCount, kept);
        if (hasWaveformStart(bytes)) setField<uint64_t>(bytes, kWaveformStart, newWaveform);
        return {};
    }

private:
    /// The record at a position of the source in the store; false where it is not whole.
    bool find(uint64_t position, ByteRange& record) const
    {
        const uint64_t tailAt = _source.fileSize - _source.tailLength;
        if (position < tailAt || position > _source.fileSize || _source.fileSize - position < kEvlrHeaderSize)
            return false;
        record.start = _tailStart + position - tailAt;
        uint8_t header[kEvlrHeaderSize];
        if (!_store.read(static_cast<int64_t>(record.start), header, sizeof header)) return false;
        const auto length = loadLe<uint64_t>(header + kEvlrLength);
        if (length > _source.fileSize - position - kEvlrHeaderSize) return false;
        record.length = kEvlrHeaderSize + length;
        return true;
    }

    const FileReader& _store;
    const uint64_t _tailStart; ///< of the source's tail in the store
    const OriginSource& _source;
    const uint64_t _pointsLength; ///< of the exported file
    LasHead& _head;
};

/// The VLRs that describe a source's extra bytes, one behind the other.
std::vector<std::vector<uint8_t>> extraVlrsOf(const OriginSource& source)
{
    std::vector<std::vector<uint8_t>> found;
    if (!isUsable(source.head)) return found;
    for (const ByteRange& vlr : vlrsOf(source.head)) {
        const uint8_t* const bytes = source.head.data() + vlr.start;
        if (userIdOf(bytes) == kSpecUserId && loadLe<uint16_t>(bytes + kVlrRecordId) == kExtraBytesId)
            found.emplace_back(bytes, bytes + vlr.length);
    }
    return found;
}

uint16_t extraLengthOf(const OriginSource& source)
{
    return static_cast<uint16_t>(source.recordLength - coreRecordLength(source.pointFormat));
}

/// Whether the VLRs describe the same; names and other text of their heads do not count.
bool haveSamePayload(const std::vector<std::vector<uint8_t>>& a, const std::vector<std::vector<uint8_t>>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const std::vector<uint8_t>& one, const std::vector<uint8_t>& other) {
                          return std::equal(one.begin() + kVlrHeaderSize, one.end(),
                                            other.begin() + kVlrHeaderSize, other.end());
                      });
}

bool hasOtherEvlrs(const OriginSource& source)
{
    return isUsable(source.head) && hasLongHeader(source.head) &&
           field<uint32_t>(source.head, kEvlrCount) > 0;
}

} // namespace

MergedFormat mergedFormat(const std::vector<OriginSource>& sources)
{
    MergedFormat merged;
    const OriginSource* first = nullptr;
    bool hasColors = false;
    bool hasNearInfrared = false;
    bool hasSameExtra = true;
    for (const OriginSource& source : sources) {
        if (source.pointCount == 0) continue;
        const RecordFormat format(source.pointFormat, source.recordLength);
        hasColors = hasColors || format.hasColors();
        hasNearInfrared = hasNearInfrared || format.hasNearInfrared();
        if (format.hasWavePacket())
            merged.notes.push_back(source.name + ": a merged file leaves its wave packets out");
        if (hasOtherEvlrs(source))
            merged.notes.push_back(source.name +
                                   ": a merged file leaves its extended variable length records out");
        if (!first) first = &source;
        if (extraLengthOf(source) == extraLengthOf(*first) &&
            haveSamePayload(extraVlrsOf(source), extraVlrsOf(*first)))
            continue;
        hasSameExtra = false;
        merged.notes.push_back(source.name + ": its extra bytes are not those of " + first->name +
                               "; a merged file leaves extra bytes out");
    }
    merged.pointFormat = static_cast<uint8_t>(hasNearInfrared ? 8 : hasColors ? 7 : 6);
    if (!first || !hasSameExtra || extraLengthOf(*first) == 0) return merged;
    if (coreRecordLength(merged.pointFormat) + extraLengthOf(*first) > kMaxRecordLength) {
        merged.notes.push_back(first->name +
                               ": its extra bytes find no room in a record of the merged file, which leaves "
                               "extra bytes out");
        return merged;
    }
    merged.extraLength = extraLengthOf(*first);
    merged.extraVlrs = extraVlrsOf(*first);
    return merged;
}

Status makeSourceHead(const FileReader& store, int64_t originStart, const OriginSource& source,
                      uint64_t points, LasHead& head)
{
    head = LasHead();
    head.bytes = source.head;
    if (!isUsable(head.bytes)) return Status::failure("holds no usable header of " + source.name);
    const uint64_t tailStart = static_cast<uint64_t>(originStart) + source.tailStart;
    const uint64_t pointsLength = points * source.recordLength;
    if (head.bytes[kPointFormat] & kCompressionBits) {
        removeCompression(head.bytes);
        return EvlrWalk(store, tailStart, source, pointsLength, head).run();
    }
    head.tail.push_back({tailStart, source.tailLength});
    head.tailLength = source.tailLength;
    if (points != source.pointCount)
        moveTail(source.fileSize - source.tailLength, head.bytes.size() + pointsLength, head);
    return {};
}

Status makeMergedHead(const FileReader& store, const StoreHead& storeHead, const MergedFormat& format,
                      LasHead& head)
{
    head = LasHead();
    head.bytes.resize(static_cast<size_t>(storeHead.header.pointDataStart));
    if (!store.read(0, head.bytes.data(), head.bytes.size()))
        return Status::failure("cannot be read up to its points");
    for (const std::vector<uint8_t>& vlr : format.extraVlrs)
        head.bytes.insert(head.bytes.end(), vlr.begin(), vlr.end());
    setField<uint32_t>(head.bytes, kVlrCount,
                       field<uint32_t>(head.bytes, kVlrCount) +
                           static_cast<uint32_t>(format.extraVlrs.size()));
    setField<uint32_t>(head.bytes, kPointDataStart, static_cast<uint32_t>(head.bytes.size()));
    head.bytes[kPointFormat] = format.pointFormat;
    setField<uint16_t>(head.bytes, kRecordLength,
                       static_cast<uint16_t>(coreRecordLength(format.pointFormat) + format.extraLength));
    setField<uint64_t>(head.bytes, kEvlrStart, 0);
    setField<uint32_t>(head.bytes, kEvlrCount, 0);
    return {};
}

bool compressHead(const LazItems& items, LasHead& head)
{
    removeCompression(head.bytes);
    return makeLazHead(head.bytes, items);
}

void moveTail(uint64_t oldPointsEnd, uint64_t newPointsEnd, LasHead& head)
{
    std::vector<uint8_t>& bytes = head.bytes;
    const auto move = [&](size_t at) {
        const auto start = field<uint64_t>(bytes, at);
        if (start >= oldPointsEnd) setField<uint64_t>(bytes, at, start - oldPointsEnd + newPointsEnd);
    };
    if (hasLongHeader(bytes) && field<uint32_t>(bytes, kEvlrCount) > 0) move(kEvlrStart);
    if (hasWaveformStart(bytes) && field<uint64_t>(bytes, kWaveformStart) != 0) move(kWaveformStart);
}

bool isCountRight(const LasHead& head, uint64_t points)
{
    const auto legacy = field<uint32_t>(head.bytes, kLegacyPointCount);
    const uint64_t stated = hasLongHeader(head.bytes) ? field<uint64_t>(head.bytes, kPointCount) : 0;
    return (stated == 0 ? legacy : stated) == points;
}

void tellPoints(const RecordScan& scan, uint64_t points, LasHead& head)
{
    std::vector<uint8_t>& bytes = head.bytes;
    const bool isLong = hasLongHeader(bytes);
    if (!isLong || field<uint32_t>(bytes, kLegacyPointCount) != 0) {
        const bool fits = points <= std::numeric_limits<uint32_t>::max();
        setField<uint32_t>(bytes, kLegacyPointCount, fits ? static_cast<uint32_t>(points) : 0);
        for (size_t i = 0; i < 5; ++i)
            setField<uint32_t>(bytes, kLegacyPointsByReturn + 4 * i,
                               fits ? static_cast<uint32_t>(scan.pointsByReturn[i + 1]) : 0);
    }
    if (isLong) {
        setField<uint64_t>(bytes, kPointCount, points);
        for (size_t i = 0; i < 15; ++i)
            setField<uint64_t>(bytes, kPointsByReturn + 8 * i, scan.pointsByReturn[i + 1]);
    }
    for (size_t axis = 0; axis < 3; ++axis) {
        const auto coordinate = [&](int32_t value) {
            return points == 0 ? 0.0
                               : value * field<double>(bytes, kScale + 8 * axis) +
                                     field<double>(bytes, kOffset + 8 * axis);
        };
        setField<double>(bytes, kBounds + 16 * axis, coordinate(scan.max[axis]));
        setField<double>(bytes, kBounds + 16 * axis + 8, coordinate(scan.min[axis]));
    }
}

} // namespace VelBrx
