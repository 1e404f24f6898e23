#include "store/builder/StoreWriter.h"

#include "store/StoreHead.h"
#include "store/StoreIndex.h"
#include "store/builder/StoreHeader.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "store/io/FileReader.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint32_t kRecordCount = 3;
constexpr size_t kPartPoints = 1 << 18; ///< points whose flags are written together; an even number
constexpr size_t kRunPoints = 1 << 13;  ///< points of a run that are written together
constexpr size_t kAhead = 16;           ///< items that are fetched into the cache before they are copied
constexpr uint64_t kCopyBytes = 4 << 20;

std::string nameOf(const std::string& path)
{
    return path.substr(path.find_last_of('/') + 1);
}

} // namespace

Status StoreWriter::plan(uint64_t storeId)
{
    const std::vector<const LasFile*> files = _content.sources.files();
    _header = makeStoreHeader({files, _content.grid, _content.statistics, _content.sources.pointCount(),
                               kRecordCount, _content.coordinateSystem});
    if (_header.size() > static_cast<size_t>(kMaxHeadSize))
        return Status::failure(files.front()->path +
                               ": has more bytes of variable length records than a store takes");

    const std::vector<uint8_t> cells = encodeCells(storeId);
    const auto indexHeader = storeRecordHeader(kIndexRecordId, cells.size(), kIndexDescription);
    _index.assign(indexHeader.begin(), indexHeader.end());
    _index.insert(_index.end(), cells.begin(), cells.end());
    if (Status status = planOrigin(); !status) return status;
    planFlags();
    _indexStart = _header.size() + _content.sources.pointCount() * kPointSize;
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
        index.cubeMin[axis] = _content.grid.coordinate(axis, _content.grid.min[axis]);
    index.cubeSize = _content.grid.cubeSize;
    index.gridSize = 1 << kGridDigits;
    index.statistics = _content.statistics;
    for (const StoreCell& cell : _content.cells.all())
        index.cells.push_back(
            {cell.level,
             cell.code,
             {{static_cast<int64_t>(cell.firstPoint), static_cast<int64_t>(cell.pointCount)}}});
    return encodeIndex(index);
}

Status StoreWriter::planOrigin()
{
    _origin.pointCount = _content.sources.pointCount();
    for (size_t i = 0; i < _content.sources.sources().size(); ++i) {
        const LasFile& file = _content.sources.sources()[i].points->file();
        OriginSource source;
        source.name = nameOf(file.path);
        source.fileSize = file.fileSize;
        source.pointCount = file.pointCount;
        source.pointFormat = file.pointFormat;
        source.recordLength = file.recordLength;
        source.colorsWidened = _content.sources.hasNarrowColors();
        source.coordinatesKept = !_content.grid.isExact(i);
        for (size_t axis = 0; axis < 3; ++axis)
            source.axes[axis] = {_content.grid.mappings[i][axis].factor,
                                 _content.grid.mappings[i][axis].shift};
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
    _flags.pointCount = _content.sources.pointCount();
    for (size_t i = 0; i < _content.sources.sources().size(); ++i)
        _flags.sources.push_back(
            {_content.sources.sources()[i].points->file().pointCount, _content.spool.restLength(i), 0});
    _flagsHead = encodeFlags(_flags);
}

Status StoreWriter::write(DiskFile& file, ParallelRun& run)
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

/// How many points of each merged cell are in the spool's shared part.
struct StoreWriter::Cursors
{
    explicit Cursors(size_t cellCount) : ofCells(cellCount) {}

    std::vector<std::atomic<uint64_t>> ofCells;
};

/// Writes items to their places in the store, neighbouring places together.
class StoreWriter::ItemWriter
{
public:
    ItemWriter(DiskFile& file, RecordWriter& origin, uint64_t pointsStart, const OriginRecord& layout)
        : _file(file), _origin(origin), _pointsStart(pointsStart), _ordinalsStart(layout.ordinalStart),
          _ordinalSize(layout.ordinalSize), _records(uninitialised<uint8_t>(kRunPoints * kPointSize)),
          _ordinals(uninitialised<uint8_t>(kRunPoints * _ordinalSize))
    {
    }

    Status write(uint64_t place, const uint8_t* item)
    {
        if (place != _first + _count || _count == kRunPoints)
            if (Status status = flush(place); !status) return status;
        std::memcpy(&_records[_count * kPointSize], item, kPointSize);
        uint8_t* const ordinal = &_ordinals[_count * _ordinalSize];
        if (_ordinalSize == 4) // nearly always: a copy of known size is one instruction
            std::memcpy(ordinal, item + kPointSize, 4);
        else
            std::memcpy(ordinal, item + kPointSize, _ordinalSize);
        ++_count;
        return {};
    }

    /// Writes the buffered run; the next run begins at `next`.
    Status flush(uint64_t next = 0)
    {
        const uint64_t first = std::exchange(_first, next);
        const size_t count = std::exchange(_count, 0);
        if (count == 0) return {};
        if (Status status =
                _file.write(_pointsStart + first * kPointSize, _records.get(), count * kPointSize);
            !status)
            return status;
        return _origin.write(_ordinalsStart + first * _ordinalSize, _ordinals.get(), count * _ordinalSize);
    }

private:
    DiskFile& _file;
    RecordWriter& _origin;
    const uint64_t _pointsStart;
    const uint64_t _ordinalsStart;
    const size_t _ordinalSize;
    const Uninitialised<uint8_t> _records;
    const Uninitialised<uint8_t> _ordinals;
    uint64_t _first = 0;
    size_t _count = 0;
};

/// Each chunk writes its own cells and its parts of large ones, and brings its points of other shared cells
/// together in the spool; these are sorted and written at the end.
Status StoreWriter::writePoints(DiskFile& file, RecordWriter& origin, ParallelRun& run) const
{
    Cursors cursors(_content.cells.all().size());
    const auto writeWith = [&](const auto& use) -> Status {
        ItemWriter writer(file, origin, _header.size(), _origin);
        if (Status status = use(writer); !status) return status;
        return writer.flush();
    };
    const Status status = run.forEach(_content.chunks.size(), [&](size_t i) {
        Status written = writeWith([&](ItemWriter& writer) { return writeChunk(i, writer, cursors); });
        run.done(_content.chunks[i].pointCount);
        return written;
    });
    if (!status) return status;
    return run.forEach(_content.cells.all().size(), [&](size_t i) -> Status {
        const StoreCell& cell = _content.cells.all()[i];
        if (!cell.isMerged) return {};
        return writeWith([&](ItemWriter& writer) { return writeSharedCell(cell, writer); });
    });
}

Status StoreWriter::writeChunk(size_t index, ItemWriter& writer, Cursors& cursors) const
{
    PointSpool& spool = _content.spool;
    const Chunk& chunk = _content.chunks[index];
    const PointGate::Room room(_content.gate, chunk.pointCount);
    const auto items = uninitialised<uint8_t>(chunk.pointCount * spool.itemSize());
    const auto order = uninitialised<uint32_t>(chunk.pointCount);
    Status status = spool.readItems(chunk, 0, chunk.pointCount, items.get());
    if (status) status = spool.readOrder(chunk, order.get());
    if (!status) return status;
    spool.discardItems(chunk);

    const auto itemAt = [&](size_t i) {
        return &items[order[std::min(i, chunk.pointCount - 1)] * spool.itemSize()];
    };
    std::vector<uint8_t> shared;
    size_t first = 0;
    for (const TreeCell& taken : _content.cells.ofChunk(index)) {
        const size_t number = _content.cells.indexOf(taken.level, taken.code);
        const StoreCell& cell = _content.cells.all()[number];
        const uint64_t done = cursors.ofCells[number].fetch_add(taken.pointCount);
        shared.clear();
        for (size_t i = 0; i < taken.pointCount; ++i) {
            const uint8_t* const item = itemAt(first + i);
            __builtin_prefetch(itemAt(first + i + kAhead));
            if (cell.isMerged)
                shared.insert(shared.end(), item, item + spool.itemSize());
            else if (status = writer.write(cell.firstPoint + taken.first + i, item); !status)
                return status;
        }
        if (status = spool.writeShared(cell.firstShared + done, shared); !status) return status;
        first += taken.pointCount;
    }
    return {};
}

Status StoreWriter::writeSharedCell(const StoreCell& cell, ItemWriter& writer) const
{
    const PointSpool& spool = _content.spool;
    const PointGate::Room room(_content.gate, cell.pointCount);
    const auto items = uninitialised<uint8_t>(cell.pointCount * spool.itemSize());
    if (Status status = spool.readShared(cell.firstShared, cell.pointCount, items.get()); !status)
        return status;
    const auto points = uninitialised<TreePoint>(cell.pointCount);
    const auto scratch = uninitialised<TreePoint>(cell.pointCount);
    const auto ordinals = uninitialised<uint64_t>(cell.pointCount);
    const auto coordinate = [&](size_t i, size_t axis) {
        return loadLe<int32_t>(&items[i * spool.itemSize() + kX + 4 * axis]);
    };
    _content.places.forColumnCodes(cell.pointCount, 3, coordinate, [&](size_t i, uint64_t code) {
        ordinals[i] = spool.ordinal(&items[i * spool.itemSize()]);
        points[i] = {code, static_cast<uint32_t>(i), 0};
    });
    makeMortonCodes(points.get(), cell.pointCount);
    sortByCode(points.get(), cell.pointCount, scratch.get(), ordinals.get());
    for (uint64_t i = 0; i < cell.pointCount; ++i)
        if (Status status = writer.write(cell.firstPoint + i, &items[points[i].index * spool.itemSize()]);
            !status)
            return status;
    return {};
}

Status StoreWriter::writeFlags(RecordWriter& record, ParallelRun& run) const
{
    const uint64_t count = _content.sources.pointCount();
    const size_t parts = (count + kPartPoints - 1) / kPartPoints;
    const PointSpool& spool = _content.spool;
    Status status = run.forEach(parts, [&](size_t part) -> Status {
        const uint64_t first = part * kPartPoints;
        const uint64_t last = std::min<uint64_t>(count, first + kPartPoints);
        std::vector<uint8_t> flags(last - first);
        if (Status read = spool.readFlags(first, flags); !read) return read;
        std::vector<uint8_t> packed((last - first + 1) / 2);
        for (uint64_t i = 0; i < flags.size(); ++i)
            packed[i / 2] |= static_cast<uint8_t>(i % 2 ? flags[i] << 4 : flags[i]);
        std::vector<uint8_t> classes(last - first);
        if (Status read = spool.readClasses(first, classes); !read) return read;
        if (Status written = record.write(_flags.flagsStart + first / 2, packed.data(), packed.size());
            !written)
            return written;
        return record.write(_flags.classesStart + first, classes.data(), classes.size());
    });
    if (!status) return status;
    return run.forEach(_flags.sources.size(), [&](size_t i) { return writeRest(i, record); });
}

Status StoreWriter::writeRest(size_t source, RecordWriter& record) const
{
    const FlagsSource& layout = _flags.sources[source];
    const uint64_t length = layout.pointCount * layout.restLength;
    std::vector<uint8_t> bytes(std::min(kCopyBytes, length));
    for (uint64_t done = 0; done < length; done += bytes.size()) {
        bytes.resize(std::min<uint64_t>(bytes.size(), length - done));
        if (Status status = _content.spool.readRest(source, done, bytes); !status) return status;
        if (Status status = record.write(layout.restStart + done, bytes.data(), bytes.size()); !status)
            return status;
    }
    return {};
}

/// Copies what the sources hold behind their points.
Status StoreWriter::writeTails(RecordWriter& origin, ParallelRun& run) const
{
    return run.forEach(_origin.sources.size(), [&](size_t i) -> Status {
        const OriginSource& source = _origin.sources[i];
        const LasFile& las = _content.sources.sources()[i].points->file();
        if (source.tailLength == 0) return {};
        FileReader reader;
        if (Status status = reader.open(las.path); !status) return status.of(las.path);
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
