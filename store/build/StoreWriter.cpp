#include "store/build/StoreWriter.h"

#include "store/ByteIo.h"
#include "store/Crc32c.h"
#include "store/FileReader.h"
#include "store/LasLayout.h"
#include "store/StoreHead.h"
#include "store/StoreIndex.h"
#include "store/build/StoreHeader.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint32_t kRecordCount = 3;
constexpr size_t kPartPoints = 1 << 18; ///< points that are put in order and written together
constexpr uint64_t kCopyBytes = 4 << 20;

using LevelCounts = std::array<uint64_t, kMaxLevel + 1>;

std::string nameOf(const std::string& path)
{
    return path.substr(path.find_last_of('/') + 1);
}

} // namespace

StoreWriter::StoreWriter(const SourceSet& sources, const StoreGrid& grid, const PointTable& table)
    : _sources(sources), _grid(grid), _table(table)
{
}

Status StoreWriter::plan(uint64_t storeId)
{
    const std::vector<const LasFile*> files = _sources.files();
    _header = makeStoreHeader({files, _grid, _table.statistics(), _table.pointCount(), kRecordCount});
    if (_header.size() > static_cast<size_t>(kMaxHeadSize))
        return Status::failure(files.front()->path +
                               ": has more bytes of variable length records than a store takes");

    const std::vector<uint8_t> cells = encodeCells(storeId);
    const auto indexHeader = storeRecordHeader(kIndexRecordId, cells.size(), kIndexDescription);
    _index.assign(indexHeader.begin(), indexHeader.end());
    _index.insert(_index.end(), cells.begin(), cells.end());
    if (Status status = planOrigin(); !status) return status;
    planFlags();
    _indexStart = _header.size() + _table.pointCount() * kPointSize;
    _originStart = _indexStart + _index.size();
    _flagsStart = _originStart + kEvlrHeaderSize + _origin.length;
    _fileSize = _flagsStart + kEvlrHeaderSize + _flags.length;
    return {};
}

std::vector<uint8_t> StoreWriter::encodeCells(uint64_t storeId) const
{
    StoreIndex index;
    index.headerChecksum = crc32c(_header.data(), _header.size());
    index.storeId = storeId;
    for (size_t axis = 0; axis < 3; ++axis)
        index.cubeMin[axis] = _grid.coordinate(axis, _grid.min[axis]);
    index.cubeSize = _grid.cubeSize;
    index.gridSize = 1 << kGridDigits;
    index.statistics = _table.statistics();
    int64_t first = 0;
    for (const TreeCell& cell : _table.cells()) {
        const auto count = static_cast<int64_t>(cell.pointCount);
        index.cells.push_back({cell.level, cell.code, {{first, count}}});
        first += count;
    }
    return encodeIndex(index);
}

Status StoreWriter::planOrigin()
{
    _origin.pointCount = _table.pointCount();
    for (size_t i = 0; i < _sources.sources().size(); ++i) {
        const LasFile& file = _sources.sources()[i].points->file();
        OriginSource source;
        source.name = nameOf(file.path);
        source.fileSize = file.fileSize;
        source.pointCount = file.pointCount;
        source.pointFormat = file.pointFormat;
        source.recordLength = file.recordLength;
        source.colorsWidened = _sources.hasNarrowColors();
        source.coordinatesKept = !_grid.isExact(i);
        for (size_t axis = 0; axis < 3; ++axis)
            source.axes[axis] = {_grid.mappings[i][axis].factor, _grid.mappings[i][axis].shift};
        source.head.resize(file.pointDataStart);
        source.tailLength = file.fileSize - file.pointDataEnd();
        FileReader reader;
        if (!reader.open(file.path) || !reader.read(0, source.head.data(), source.head.size()))
            return Status::failure(file.path + ": its header cannot be read again");
        _origin.sources.push_back(std::move(source));
    }
    _originHead = encodeOrigin(_origin);
    return {};
}

void StoreWriter::planFlags()
{
    _flags.pointCount = _table.pointCount();
    for (size_t i = 0; i < _sources.sources().size(); ++i)
        _flags.sources.push_back({_sources.sources()[i].points->file().pointCount, _table.restLength(i), 0});
    _flagsHead = encodeFlags(_flags);
}

Status StoreWriter::write(OutputFile& file, BuildRun& run)
{
    if (Status status = file.write(0, _header.data(), _header.size()); !status) return status;
    if (Status status = file.write(_indexStart, _index.data(), _index.size()); !status) return status;
    RecordWriter origin(file, _originStart, _origin.length);
    if (Status status = origin.begin(kOriginRecordId, kOriginDescription, _originHead); !status)
        return status;
    if (Status status = writePoints(file, origin, run); !status) return status;
    if (Status status = writeTails(origin, run); !status) return status;
    if (Status status = origin.finish(); !status) return status;
    RecordWriter flags(file, _flagsStart, _flags.length);
    if (Status status = flags.begin(kFlagsRecordId, kFlagsDescription, _flagsHead); !status) return status;
    if (Status status = writeFlags(flags, run); !status) return status;
    return flags.finish();
}

/// Points stand by level, then Morton code. Each part of the Morton order adds a run to every level, whose
/// place follows from the counts of the parts before.
Status StoreWriter::writePoints(OutputFile& file, RecordWriter& origin, BuildRun& run) const
{
    const size_t count = _table.pointCount();
    const size_t parts = (count + kPartPoints - 1) / kPartPoints;
    const auto partEnd = [&](size_t part) { return std::min(count, (part + 1) * kPartPoints); };
    std::vector<LevelCounts> places(parts);
    Status status = run.forEach(parts, [&](size_t part) -> Status {
        for (size_t i = part * kPartPoints; i < partEnd(part); ++i)
            ++places[part][_table.levels()[i]];
        return {};
    });
    if (!status) return status;
    uint64_t place = 0;
    for (size_t level = 0; level <= kMaxLevel; ++level)
        for (LevelCounts& part : places)
            place += std::exchange(part[level], place);

    return run.forEach(parts, [&](size_t part) -> Status {
        Status written = writePart(file, origin, part * kPartPoints, partEnd(part),
                                   {places[part].begin(), places[part].end()});
        if (written) run.done(partEnd(part) - part * kPartPoints);
        return written;
    });
}

/// Writes the points [first, last) of the Morton order; those of a level go to `positions[level]` and on.
Status StoreWriter::writePart(OutputFile& file, RecordWriter& origin, size_t first, size_t last,
                              std::vector<uint64_t> positions) const
{
    const size_t ordinalSize = _origin.ordinalSize;
    std::vector<uint8_t> records;
    std::vector<uint8_t> ordinals;
    for (size_t level = 0; level <= kMaxLevel; ++level) {
        records.clear();
        ordinals.clear();
        for (size_t i = first; i < last; ++i) {
            if (_table.levels()[i] != level) continue;
            const uint64_t ordinal = _table.points()[i].ordinal;
            const uint8_t* record = _table.record(ordinal);
            records.insert(records.end(), record, record + kPointSize);
            uint8_t bytes[8];
            storeLe(bytes, ordinal);
            ordinals.insert(ordinals.end(), bytes, bytes + ordinalSize);
        }
        if (records.empty()) continue;
        const uint64_t place = positions[level];
        if (Status status = file.write(_header.size() + place * kPointSize, records.data(), records.size());
            !status)
            return status;
        const uint64_t ordinalsAt = _origin.ordinalStart + place * ordinalSize;
        if (Status status = origin.write(ordinalsAt, ordinals.data(), ordinals.size()); !status)
            return status;
    }
    return {};
}

Status StoreWriter::writeFlags(RecordWriter& record, BuildRun& run) const
{
    const uint64_t count = _table.pointCount();
    const size_t parts = (count + kPartPoints - 1) / kPartPoints;
    const uint8_t* flags = _table.flags();
    Status status = run.forEach(parts, [&](size_t part) -> Status {
        const uint64_t first = part * kPartPoints;
        const uint64_t last = std::min<uint64_t>(count, first + kPartPoints);
        std::vector<uint8_t> packed((last - first + 1) / 2);
        for (uint64_t i = first; i < last; ++i)
            packed[(i - first) / 2] |= static_cast<uint8_t>(i % 2 ? flags[i] << 4 : flags[i]);
        std::vector<uint8_t> classes(last - first);
        for (uint64_t i = first; i < last; ++i)
            classes[i - first] = _table.record(i)[kClass];
        if (Status written = record.write(_flags.flagsStart + first / 2, packed.data(), packed.size());
            !written)
            return written;
        return record.write(_flags.classesStart + first, classes.data(), classes.size());
    });
    for (size_t i = 0; status && i < _flags.sources.size(); ++i) {
        const std::vector<uint8_t>& rest = _table.rest(i);
        status = record.write(_flags.sources[i].restStart, rest.data(), rest.size());
    }
    return status;
}

/// Copies what the sources hold behind their points.
Status StoreWriter::writeTails(RecordWriter& origin, BuildRun& run) const
{
    return run.forEach(_origin.sources.size(), [&](size_t i) -> Status {
        const OriginSource& source = _origin.sources[i];
        const LasFile& las = _sources.sources()[i].points->file();
        if (source.tailLength == 0) return {};
        FileReader reader;
        if (Status status = reader.open(las.path); !status)
            return Status::failure(las.path + ": " + status.message());
        std::vector<uint8_t> bytes(std::min(kCopyBytes, source.tailLength));
        for (uint64_t done = 0; done < source.tailLength; done += bytes.size()) {
            bytes.resize(std::min<uint64_t>(bytes.size(), source.tailLength - done));
            if (!reader.read(static_cast<int64_t>(las.pointDataEnd() + done), bytes.data(), bytes.size()))
                return Status::failure(las.path + ": cannot be read behind its points");
            if (Status status = origin.write(source.tailStart + done, bytes.data(), bytes.size()); !status)
                return status;
        }
        return {};
    });
}

} // namespace VelBrx
