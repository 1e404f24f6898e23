#include "store/las/LasFile.h"

#include "store/io/ByteIo.h"
#include "store/io/FileReader.h"
#include "store/las/LasLayout.h"
#include "store/las/RecordFormat.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint64_t kHeaderSize12 = 227;
constexpr uint64_t kMaxKeptEvlr = 65535;

std::string fixedText(const uint8_t* bytes, size_t width)
{
    const uint8_t* end = std::find(bytes, bytes + width, uint8_t{0});
    return {bytes, end};
}

/// Reads one file's head; the parts of the format in their order.
class HeadReader
{
public:
    HeadReader(const FileReader& input, LasFile& file) : _input(input), _file(file) {}

    Status read()
    {
        if (Status status = readHeader(); !status) return status;
        if (Status status = readPointLayout(); !status) return status;
        if (Status status = readVlrs(); !status) return status;
        if (Status status = _compressed ? findCompressed() : Status(); !status) return status;
        return readEvlrs();
    }

private:
    const FileReader& _input;
    LasFile& _file;
    std::vector<uint8_t> _header;
    uint64_t _declaredVlrs = 0;
    uint64_t _evlrStart = 0;
    uint64_t _declaredEvlrs = 0;
    bool _compressed = false;

    Status failure(const std::string& text) const { return Status::failure(_file.path + ": " + text); }

    Status readAt(uint64_t position, void* bytes, size_t length) const
    {
        if (_input.read(static_cast<int64_t>(position), bytes, length)) return {};
        return failure("cannot be read at byte " + std::to_string(position));
    }

    void note(const std::string& text) { _file.notes.push_back(text); }

    template <typename T>
    T field(size_t position) const
    {
        return loadLe<T>(_header.data() + position);
    }

    uint64_t headerSize() const { return field<uint16_t>(kHeaderSizeField); }
    bool hasLongHeader() const { return _file.versionMinor >= 4 && headerSize() >= kHeaderSize; }

    Status readHeader()
    {
        const uint64_t present = std::min(_file.fileSize, kHeaderSize);
        _header.assign(kHeaderSize, 0);
        if (Status status = readAt(0, _header.data(), present); !status) return status;
        if (present < 4 || std::memcmp(_header.data(), "LASF", 4) != 0)
            return failure("is no LAS file: it does not begin with LASF");
        if (present < kHeaderSize12) return failure("is cut off inside its LAS header; get a whole copy");
        _file.versionMinor = field<uint8_t>(kVersionMinor);
        if (field<uint8_t>(kVersionMajor) != 1)
            return failure("has LAS version " + std::to_string(field<uint8_t>(kVersionMajor)) + "." +
                           std::to_string(_file.versionMinor) + "; versions 1.0 to 1.4 can be read");
        if (_file.versionMinor > 4)
            note("LAS 1." + std::to_string(_file.versionMinor) + " is read as LAS 1.4");
        if (headerSize() < kHeaderSize12 || headerSize() > _file.fileSize)
            return failure("states a header of " + std::to_string(headerSize()) + " bytes, which cannot be");
        if (_file.versionMinor >= 4 && !hasLongHeader())
            note("the header is shorter than LAS 1.4 asks for; its 32-bit counts are used");

        if (_file.versionMinor >= 1) _file.sourceId = field<uint16_t>(kFileSourceId);
        if (_file.versionMinor >= 2) _file.globalEncoding = field<uint16_t>(kGlobalEncoding);
        std::memcpy(_file.projectId, &_header[kGuid], sizeof _file.projectId);
        std::memcpy(_file.systemIdentifier, &_header[kSystemIdentifier], sizeof _file.systemIdentifier);
        _file.creationDay = field<uint16_t>(kCreationDay);
        _file.creationYear = field<uint16_t>(kCreationYear);
        _declaredVlrs = field<uint32_t>(kVlrCount);
        return readGeometry();
    }

    Status readGeometry()
    {
        for (size_t axis = 0; axis < 3; ++axis) {
            _file.scale[axis] = field<double>(kScale + 8 * axis);
            _file.offset[axis] = field<double>(kOffset + 8 * axis);
            _file.max[axis] = field<double>(kBounds + 16 * axis);
            _file.min[axis] = field<double>(kBounds + 16 * axis + 8);
            if (!std::isfinite(_file.scale[axis]) || _file.scale[axis] <= 0 ||
                !std::isfinite(_file.offset[axis]))
                return failure("has a scale factor or offset that is not a usable number; repair its header");
        }
        return {};
    }

    Status readPointLayout()
    {
        const uint8_t formatByte = field<uint8_t>(kPointFormat);
        if (formatByte & kLazPreReleaseBit)
            return failure("is compressed by a trial version of LAZ, which cannot be read; get it as LAS");
        _compressed = formatByte & kLazFormatBit;
        const uint8_t format = formatByte & ~kLazFormatBit;
        if (format > 10)
            return failure("has point format " + std::to_string(format) + "; formats 0 to 10 can be read");
        _file.pointFormat = format;
        _file.recordLength = field<uint16_t>(kRecordLength);
        if (_file.recordLength < coreRecordLength(format))
            return failure("has point records of " + std::to_string(_file.recordLength) +
                           " bytes, but format " + std::to_string(format) + " needs " +
                           std::to_string(coreRecordLength(format)));
        _file.pointDataStart = field<uint32_t>(kPointDataStart);
        if (_file.pointDataStart < headerSize() || _file.pointDataStart > _file.fileSize)
            return failure("states that its points start at byte " + std::to_string(_file.pointDataStart) +
                           ", which is not behind its header inside the file");
        if (hasLongHeader()) {
            _evlrStart = field<uint64_t>(kEvlrStart);
            _declaredEvlrs = field<uint32_t>(kEvlrCount);
        }
        readCounts();
        return {};
    }

    void readCounts()
    {
        const uint64_t legacyCount = field<uint32_t>(kLegacyPointCount);
        uint64_t declared = hasLongHeader() ? field<uint64_t>(kPointCount) : legacyCount;
        const bool useLegacy = !hasLongHeader() || (declared == 0 && legacyCount != 0);
        if (useLegacy) declared = legacyCount;
        for (size_t i = 0; i < (useLegacy ? 5u : 15u); ++i)
            _file.pointsByReturn[i] = useLegacy ? field<uint32_t>(kLegacyPointsByReturn + 4 * i)
                                                : field<uint64_t>(kPointsByReturn + 8 * i);

        _file.pointCount = declared;
        if (!_compressed) checkCount(declared);
    }

    /// Takes no more points than stand in the file.
    void checkCount(uint64_t declared)
    {
        uint64_t end = _file.fileSize;
        if (_declaredEvlrs > 0 && _evlrStart >= _file.pointDataStart && _evlrStart < end) end = _evlrStart;
        const uint64_t present = (end - _file.pointDataStart) / _file.recordLength;
        _file.pointCount = std::min(declared, present);
        if (present < declared)
            note("the header states " + std::to_string(declared) + " points, the file holds " +
                 std::to_string(present) + " whole ones; these are read");
        else if (present > declared && _declaredEvlrs == 0)
            note(std::to_string(end - _file.pointDataEnd()) + " bytes behind the last of the " +
                 std::to_string(declared) + " points that the header states are not read as points");
    }

    LasVlr vlrOf(const uint8_t* head, size_t descriptionAt) const
    {
        LasVlr vlr;
        std::copy(head, head + kVlrLength, vlr.head.begin());
        std::copy(head + descriptionAt, head + descriptionAt + kDescriptionSize,
                  vlr.head.begin() + kVlrDescription);
        vlr.userId = fixedText(head + kVlrUserId, kUserIdSize);
        vlr.recordId = loadLe<uint16_t>(head + kVlrRecordId);
        return vlr;
    }

    Status readVlrs()
    {
        uint64_t position = headerSize();
        for (uint64_t i = 0; i < _declaredVlrs; ++i) {
            const uint64_t room = _file.pointDataStart - position;
            uint8_t head[kVlrHeaderSize];
            if (room >= kVlrHeaderSize)
                if (Status status = readAt(position, head, sizeof head); !status) return status;
            if (room < kVlrHeaderSize || room - kVlrHeaderSize < loadLe<uint16_t>(head + kVlrLength)) {
                note("the header states " + std::to_string(_declaredVlrs) + " variable length records, " +
                     std::to_string(i) + " stand before the points; these are read");
                return {};
            }
            LasVlr vlr = vlrOf(head, kVlrDescription);
            vlr.data.resize(loadLe<uint16_t>(head + kVlrLength));
            position += kVlrHeaderSize;
            if (Status status = readAt(position, vlr.data.data(), vlr.data.size()); !status) return status;
            position += vlr.data.size();
            _file.vlrs.push_back(std::move(vlr));
        }
        return {};
    }

    Status findCompressed()
    {
        const auto vlr = std::find_if(_file.vlrs.begin(), _file.vlrs.end(), [](const LasVlr& v) {
            return v.userId == kLazUserId && v.recordId == kLazRecordId;
        });
        if (vlr == _file.vlrs.end())
            return failure("has compressed points (LAZ) but not the record that tells how; get a whole copy");
        LazPoints laz;
        Status status = parseLazItems(vlr->data.data(), vlr->data.size(), _file.recordLength, laz.items);
        const bool isLayered = laz.items.compressor == LazCompressor::Layered;
        if (status && isLayered != (_file.pointFormat >= 6))
            status = Status::failure("its LAZ record is for other points than its format " +
                                     std::to_string(_file.pointFormat));
        if (status)
            status = readLazChunkTable(_input, laz.items, _file.pointDataStart, _file.pointCount, laz.chunks);
        if (!status) return failure("cannot be read: " + status.message());
        // Where the table does not give its end, the first extended record does.
        const uint64_t lastByte =
            laz.chunks.chunks.empty() ? _file.pointDataStart : laz.chunks.chunks.back().end();
        if (_declaredEvlrs > 0 && _evlrStart >= lastByte)
            laz.chunks.end = std::min(laz.chunks.end, _evlrStart);
        if (!laz.chunks.note.empty()) note(laz.chunks.note);
        if (laz.items.isCompatibilityMode)
            note("its LAS 1.4 points are rewritten for older programs and read as these read them: classes "
                 "above "
                 "31, return numbers above 7 and scanner channels are in the extra bytes");
        _file.pointCount = laz.chunks.pointCount;
        _file.laz = std::move(laz);
        return {};
    }

    Status readEvlrs()
    {
        uint64_t position = _evlrStart;
        for (uint64_t i = 0; i < _declaredEvlrs; ++i) {
            uint8_t head[kEvlrHeaderSize];
            const bool inside = position >= _file.pointDataEnd() && position <= _file.fileSize &&
                                _file.fileSize - position >= kEvlrHeaderSize;
            if (inside)
                if (Status status = readAt(position, head, sizeof head); !status) return status;
            const uint64_t length = inside ? loadLe<uint64_t>(head + kEvlrLength) : 0;
            if (!inside || _file.fileSize - position - kEvlrHeaderSize < length) {
                note("the header states " + std::to_string(_declaredEvlrs) +
                     " extended variable length records, " + std::to_string(i) +
                     " stand in the file; these are read");
                return {};
            }
            LasVlr vlr = vlrOf(head, kEvlrDescription);
            position += kEvlrHeaderSize;
            if (length <= kMaxKeptEvlr) {
                vlr.data.resize(length);
                if (Status status = readAt(position, vlr.data.data(), length); !status) return status;
            }
            position += length;
            _file.evlrs.push_back(std::move(vlr));
        }
        return {};
    }
};

} // namespace

Status readLasFile(const std::string& path, LasFile& file)
{
    FileReader input;
    if (Status status = input.open(path); !status) return status.of(path);
    file = LasFile();
    file.path = path;
    file.state = input.state();
    file.fileSize = static_cast<uint64_t>(input.size());
    return HeadReader(input, file).read();
}

} // namespace VelBrx
