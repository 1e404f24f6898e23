#include <VelBrx/SourcePoint.h>

#include "store/SourceRecords.h"
#include "store/io/ByteIo.h"
#include "store/las/ExtraFields.h"
#include "store/las/LasLayout.h"
#include "store/las/RecordFormat.h"

#include <algorithm>
#include <array>
#include <new>

namespace VelBrx {

namespace {

constexpr size_t kNearInfraredSize = 2;
constexpr size_t kWavePacketSize = 29;

/// The fields that the head of a source describes.
std::vector<ExtraField> fieldsOf(const std::vector<uint8_t>& head)
{
    using namespace LasLayout;
    constexpr uint16_t kExtraBytesId = 4;
    std::vector<ExtraField> fields;
    if (head.size() < kVlrCount + 4) return fields;
    size_t at = loadLe<uint16_t>(head.data() + kHeaderSizeField);
    for (uint32_t left = loadLe<uint32_t>(head.data() + kVlrCount); left > 0; --left) {
        if (at > head.size() || head.size() - at < kVlrHeaderSize) break;
        const uint8_t* const vlr = head.data() + at;
        const size_t length = loadLe<uint16_t>(vlr + kVlrLength);
        at += kVlrHeaderSize;
        if (head.size() - at < length) break;
        const uint8_t* const user = vlr + kVlrUserId;
        if (std::string(user, std::find(user, user + kUserIdSize, uint8_t{0})) == "LASF_Spec" &&
            loadLe<uint16_t>(vlr + kVlrRecordId) == kExtraBytesId)
            addExtraFields(head.data() + at, length, fields);
        at += length;
    }
    return fields;
}

/// Takes in what format 7 cannot hold of a point.
void takeRest(const std::vector<uint8_t>& rest, const OriginSource& source, SourcePoint& found)
{
    size_t at = source.coordinatesKept ? kKeptCoordinatesLength : 0;
    const unsigned format = source.pointFormat;
    if ((format == 8 || format == 10) && rest.size() >= at + kNearInfraredSize) {
        found.nearInfrared = loadLe<uint16_t>(rest.data() + at);
        at += kNearInfraredSize;
    }
    if (format == 4 || format == 5 || format == 9 || format == 10) at += kWavePacketSize;
    for (const ExtraField& field : fieldsOf(source.head)) {
        if (at > rest.size() || rest.size() - at < field.size()) break;
        found.extraBytes.push_back({field.name, field.valueText(rest.data() + at)});
        at += field.size();
    }
    if (at < rest.size())
        found.extraBytes.push_back({"undocumented", bytesText(rest.data() + at, rest.size() - at)});
}

/// Reads the values of a point, once it is known where the records hold what.
class Reading
{
public:
    Reading(const FileReader& reader, const StoreHead& head, const SourceRecords& records)
        : _reader(reader), _head(head), _records(records)
    {
    }

    Status run(uint64_t point, SourcePoint& found)
    {
        uint64_t ordinal = 0;
        if (!findOrdinal(point, ordinal)) return failure();
        size_t index = 0;
        uint64_t first = 0;
        const std::vector<OriginSource>& sources = _records.origin.sources;
        while (index < sources.size() && ordinal - first >= sources[index].pointCount)
            first += sources[index++].pointCount;
        if (index >= sources.size() || index >= _records.flags.sources.size()) return failure();
        const OriginSource& source = sources[index];
        const FlagsSource& kept = _records.flags.sources[index];
        uint8_t flags = 0;
        std::vector<uint8_t> rest(kept.restLength);
        found = SourcePoint();
        found.file = source.name;
        found.number = ordinal - first;
        found.pointFormat = source.pointFormat;
        if (!read(_head.flags, _records.flags.flagsStart + ordinal / 2, &flags, 1) ||
            !read(_head.flags, _records.flags.classesStart + ordinal, &found.classCode, 1) ||
            !read(_head.flags, kept.restStart + found.number * kept.restLength, rest.data(), rest.size()))
            return failure();
        flags = static_cast<uint8_t>(flags >> ordinal % 2 * 4);
        found.isSynthetic = (flags & kSynthetic) != 0;
        found.isKeyPoint = (flags & kKeyPoint) != 0;
        found.isWithheld = (flags & kWithheld) != 0;
        found.isOverlap = (flags & kOverlap) != 0;
        takeRest(rest, source, found);
        return {};
    }

private:
    static Status failure()
    {
        return Status::failure(
            "what its sources had of a point cannot be read; restore the store from a copy",
            Status::Kind::DAMAGED);
    }

    bool read(const StoreRecord& record, uint64_t at, void* data, size_t size) const
    {
        const auto length = static_cast<uint64_t>(record.length);
        if (at > length || length - at < size) return false;
        return size == 0 || _reader.read(record.start + static_cast<int64_t>(at), data, size);
    }

    bool findOrdinal(uint64_t point, uint64_t& ordinal) const
    {
        const OriginRecord& origin = _records.origin;
        std::array<uint8_t, 8> bytes{};
        if (point >= origin.pointCount ||
            !read(_head.origin, origin.ordinalStart + point * origin.ordinalSize, bytes.data(),
                  origin.ordinalSize))
            return false;
        ordinal = loadLe<uint64_t>(bytes.data());
        return ordinal < origin.pointCount;
    }

    const FileReader& _reader;
    const StoreHead& _head;
    const SourceRecords& _records;
};

} // namespace

Status readSourcePoint(const std::string& path, const File& file, uint64_t point, SourcePoint& found)
try {
    FileReader reader;
    StoreHead head;
    SourceRecords records;
    Status status = reader.open(path);
    if (status && reader.identity() != file.identity())
        status = Status::failure("was replaced; open it again");
    if (status) status = readStoreHead(reader, head);
    if (status) status = readSourceRecordHeads(reader, head, records);
    if (status) status = Reading(reader, head, records).run(point, found);
    return status.of(path);
} catch (const std::bad_alloc&) {
    return Status::failure(path + ": needs more memory than there is; close other programs",
                           Status::Kind::NO_MEMORY);
}

} // namespace VelBrx
