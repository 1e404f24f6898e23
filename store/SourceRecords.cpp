#include "store/SourceRecords.h"

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "store/las/RecordFormat.h"

#include <VelBrx/StoreInfo.h>

#include <algorithm>
#include <new>

namespace VelBrx {

namespace {

constexpr char kKind[] = "source records";
constexpr uint64_t kBlockOrdinals = 1 << 16;
constexpr uint64_t kBlockBytes = 1 << 20;

Status damaged(const std::string& what)
{
    return Status::failure(what + "; restore the store from a copy or build it anew", Status::Kind::DAMAGED);
}

/// A number without order in it, so that sums over sets of points differ where the sets do.
uint64_t scrambled(uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u; // the finaliser of SplitMix64
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

/// Reads the part of a record in front of its point data, as long as `headLength` finds it from the first
/// `fixedSize` bytes. Empty where that is not possible.
std::vector<uint8_t> readHeadOf(const FileReader& file, const StoreRecord& record, size_t fixedSize,
                                uint64_t (*headLength)(const uint8_t*))
{
    std::vector<uint8_t> bytes(fixedSize);
    const auto length = static_cast<uint64_t>(record.length);
    if (length < fixedSize || !file.read(record.start, bytes.data(), bytes.size())) return {};
    const uint64_t whole = headLength(bytes.data());
    if (whole < fixedSize || whole > length) return {};
    bytes.resize(whole);
    if (!file.read(record.start, bytes.data(), bytes.size())) return {};
    return bytes;
}

/// Checks that the ordinals are a permutation of 0 ... N-1: none is too large, and the sums of their
/// hashes agree. A set with a repeated point has another sum,
/// except for one chance in 2^64.
class OrdinalCheck
{
public:
    OrdinalCheck(const FileReader& file, const StoreRecord& record, const OriginRecord& origin)
        : _file(file), _start(record.start + static_cast<int64_t>(origin.ordinalStart)), _origin(origin)
    {
    }

    void run(ProblemList& problems)
    {
        const uint64_t count = _origin.pointCount;
        std::vector<uint8_t> bytes(kBlockOrdinals * _origin.ordinalSize);
        for (uint64_t first = 0; first < count; first += kBlockOrdinals) {
            const uint64_t size = std::min(kBlockOrdinals, count - first);
            if (!_file.read(_start + static_cast<int64_t>(first * _origin.ordinalSize), bytes.data(),
                            size * _origin.ordinalSize)) {
                problems.add("reading", "the origin record cannot be read");
                return;
            }
            for (uint64_t i = 0; i < size; ++i) {
                const uint8_t* const place = bytes.data() + i * _origin.ordinalSize;
                take(first + i, _origin.ordinalSize == 4 ? loadLe<uint32_t>(place) : loadLe<uint64_t>(place),
                     problems);
            }
        }
        if (!_isOutside && _sum != 0)
            problems.add(kKind, "the origin record names points of the sources twice and leaves others out");
    }

private:
    void take(uint64_t point, uint64_t ordinal, ProblemList& problems)
    {
        _sum += scrambled(ordinal) - scrambled(point);
        if (ordinal < _origin.pointCount) return;
        _isOutside = true;
        problems.add("source of a point",
                     "point " + std::to_string(point) + " comes from source point " +
                         std::to_string(ordinal) + ", which there is not (byte " +
                         std::to_string(_start + static_cast<int64_t>(point * _origin.ordinalSize)) + ")");
    }

    const FileReader& _file;
    const int64_t _start; ///< byte position of the first ordinal
    const OriginRecord& _origin;
    uint64_t _sum = 0; ///< of the ordinals' scrambled values, less those expected
    bool _isOutside = false;
};

/// Whether the EVLR header in front of a record is the one that a store has there.
void checkRecordHeader(const FileReader& file, const StoreRecord& record, uint16_t id,
                       const char* description, ProblemList& problems)
{
    const auto expected = storeRecordHeader(id, static_cast<uint64_t>(record.length), description);
    std::vector<uint8_t> found(LasLayout::kEvlrHeaderSize);
    if (!file.read(record.headerStart, found.data(), found.size()) || found != expected)
        problems.add(kKind, "the EVLR header of record " + std::to_string(id) + " at byte " +
                                std::to_string(record.headerStart) + " was changed");
}

/// Whether the content of a record has the checksum at its end.
void checkChecksum(const FileReader& file, const StoreRecord& record, const std::string& name,
                   ProblemList& problems)
{
    const auto length = static_cast<uint64_t>(record.length);
    std::vector<uint8_t> bytes(std::min(kBlockBytes, length));
    const uint64_t checked = length - std::min<uint64_t>(length, kRecordChecksumSize);
    uint32_t checksum = 0;
    for (uint64_t done = 0; done < checked; done += bytes.size()) {
        bytes.resize(std::min<uint64_t>(kBlockBytes, checked - done));
        if (!file.read(record.start + static_cast<int64_t>(done), bytes.data(), bytes.size())) {
            problems.add("reading", "the " + name + " cannot be read");
            return;
        }
        checksum = crc32c(bytes.data(), bytes.size(), checksum);
    }
    uint8_t stated[kRecordChecksumSize];
    if (checked == 0 || !file.read(record.start + static_cast<int64_t>(checked), stated, sizeof stated) ||
        loadLe<uint32_t>(stated) != checksum)
        problems.add(kKind, "the " + name + " does not match its checksum");
}

/// The part in front of the ordinals.
Status decodeOriginHead(const FileReader& file, const StoreHead& head, OriginRecord& origin)
{
    const std::vector<uint8_t> bytes = readHeadOf(file, head.origin, kOriginFixedSize, originHeadLength);
    return decodeOrigin(bytes.data(), bytes.size(), static_cast<uint64_t>(head.origin.length),
                        head.header.pointCount, origin);
}

/// The part in front of the flags.
Status decodeFlagsHead(const FileReader& file, const StoreHead& head, FlagsRecord& flags)
{
    const std::vector<uint8_t> bytes = readHeadOf(file, head.flags, kFlagsFixedSize, flagsHeadLength);
    return decodeFlags(bytes.data(), bytes.size(), static_cast<uint64_t>(head.flags.length),
                       head.header.pointCount, flags);
}

Status checkHasSourceRecords(const StoreHead& head)
{
    if (head.origin.start != 0 && head.flags.start != 0) return {};
    return Status::failure(
        "does not tell where its points come from; it needs a store that 'brx build' made");
}

/// Whether the origin record can be decoded.
bool checkOrigin(const FileReader& file, const StoreHead& head, OriginRecord& origin, ProblemList& problems)
{
    checkRecordHeader(file, head.origin, kOriginRecordId, kOriginDescription, problems);
    checkChecksum(file, head.origin, "origin record", problems);
    const Status decoded = decodeOriginHead(file, head, origin);
    if (!decoded) {
        problems.add(kKind, decoded.message());
        return false;
    }
    OrdinalCheck(file, head.origin, origin).run(problems);
    return true;
}

bool checkFlags(const FileReader& file, const StoreHead& head, FlagsRecord& flags, ProblemList& problems)
{
    checkRecordHeader(file, head.flags, kFlagsRecordId, kFlagsDescription, problems);
    checkChecksum(file, head.flags, "flags record", problems);
    const Status decoded = decodeFlagsHead(file, head, flags);
    if (!decoded) problems.add(kKind, decoded.message());
    return decoded.ok();
}

/// Numbers of a source that its points could not be written again with.
const char* faultOf(const OriginSource& source, const FlagsSource& flags)
{
    if (source.pointCount != flags.pointCount) return "has other points in the flags record";
    if (source.recordLength < coreRecordLength(source.pointFormat))
        return "has records shorter than its point format";
    const uint32_t rest = RecordFormat(source.pointFormat, source.recordLength).restLength();
    if (source.pointCount > 0 &&
        flags.restLength != rest + (source.coordinatesKept ? kKeptCoordinatesLength : 0))
        return "has other extra bytes in the flags record";
    for (const OriginAxis& axis : source.axes)
        if (axis.factor < 1 || axis.factor > kLargestFactor || axis.shift < -kLargestShift ||
            axis.shift > kLargestShift)
            return "has a factor or shift of coordinates that cannot be";
    return nullptr;
}

void checkAgreement(const SourceRecords& records, ProblemList& problems)
{
    const std::vector<OriginSource>& sources = records.origin.sources;
    if (sources.size() != records.flags.sources.size()) {
        problems.add(kKind, "the origin record and the flags record tell of different sources");
        return;
    }
    for (size_t i = 0; i < sources.size(); ++i)
        if (const char* fault = faultOf(sources[i], records.flags.sources[i]))
            problems.add(kKind, "source " + std::to_string(i + 1) + " " + fault);
}

void check(const FileReader& file, const StoreHead& head, SourceRecords& records, ProblemList& problems)
{
    const bool hasOrigin = head.origin.start != 0 && checkOrigin(file, head, records.origin, problems);
    const bool hasFlags = head.flags.start != 0 && checkFlags(file, head, records.flags, problems);
    if (hasOrigin && hasFlags) checkAgreement(records, problems);
}

} // namespace

void checkSourceRecords(const FileReader& file, const StoreHead& head, ProblemList& problems)
{
    SourceRecords records;
    check(file, head, records, problems);
}

Status readSourceRecords(const FileReader& file, const StoreHead& head, SourceRecords& records)
{
    if (Status status = checkHasSourceRecords(head); !status) return status;
    ProblemList problems;
    check(file, head, records, problems);
    return problems.empty() ? Status() : damaged(problems.lines().front());
}

Status readSourceRecordHeads(const FileReader& file, const StoreHead& head, SourceRecords& records)
{
    if (Status status = checkHasSourceRecords(head); !status) return status;
    Status status = decodeOriginHead(file, head, records.origin);
    if (status) status = decodeFlagsHead(file, head, records.flags);
    return status ? status : damaged(status.message());
}

Status readSourceNames(const std::string& path, std::vector<std::string>& names)
try {
    FileReader file;
    StoreHead head;
    Status read = file.open(path);
    if (read) read = readStoreHead(file, head);
    OriginRecord origin;
    if (read && head.origin.start != 0) {
        read = decodeOriginHead(file, head, origin);
        if (!read) read = damaged(read.message());
    }
    if (!read) return read.of(path);
    std::vector<std::string> found;
    for (const OriginSource& source : origin.sources)
        found.push_back(source.name);
    names = std::move(found);
    return {};
} catch (const std::bad_alloc&) {
    return Status::failure(path + ": needs more memory than there is; close other programs",
                           Status::Kind::NO_MEMORY);
}

} // namespace VelBrx
