#include "store/export/ExportCopc.h"

#include <VelBrx/File.h>
#include <VelBrx/ReadErrors.h>
#include <VelThreads/Mutex.h>

#include "store/export/CopcHead.h"
#include "store/export/ExportOutput.h"
#include "store/export/ExportedStore.h"
#include "store/export/RecordEncoder.h"
#include "store/io/ByteIo.h"
#include "store/io/DiskFile.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelRun.h"
#include "store/las/laz/LazChunkEncoder.h"
#include "store/las/laz/LazChunkSequence.h"
#include "store/part/PointFilter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint64_t kMaxChunkBytes = std::numeric_limits<int32_t>::max();

/// What a thread needs of a point besides its output, roughly: store record, ordinal, order, encoder's
/// streams.
constexpr uint64_t kBytesBesideRecord = 100;

/// Places records in the order of their GPS times; those that are no numbers come last.
class TimeOrder
{
public:
    TimeOrder(const RecordFormat& format, const std::vector<uint8_t>& records)
        : _format(format), _records(records), _times(records.size() / format.recordLength())
    {
        for (size_t i = 0; i < _times.size(); ++i) {
            const auto time = loadLe<double>(&records[i * format.recordLength() + kGpsTime]);
            _times[i] = std::isnan(time) ? std::numeric_limits<double>::infinity() : time;
        }
    }

    std::vector<uint8_t> sorted() const
    {
        std::vector<uint32_t> order(_times.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [this](uint32_t a, uint32_t b) { return _times[a] < _times[b]; });
        const size_t length = _format.recordLength();
        std::vector<uint8_t> records(_records.size());
        for (size_t i = 0; i < order.size(); ++i)
            std::copy_n(&_records[order[i] * length], length, &records[i * length]);
        return records;
    }

private:
    const RecordFormat& _format;
    const std::vector<uint8_t>& _records;
    std::vector<double> _times;
};

/// What the points written until now have, for the head.
struct Summary
{
    RecordScan scan;
    GpsTimeRange times{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    uint64_t points = 0;
    uint64_t changed = 0;
    uint64_t hidden = 0;
    uint64_t strays = 0; ///< points that lie outside their node for readers

    void add(const Summary& other)
    {
        scan.add(other.scan);
        times.min = std::min(times.min, other.times.min);
        times.max = std::max(times.max, other.times.max);
        points += other.points;
        changed += other.changed;
        hidden += other.hidden;
        strays += other.strays;
    }
};

class CopcExporter
{
public:
    CopcExporter(const ExportOptions& options, ExportReport& report)
        : _options(options), _report(report), _run(options.threads, options.progress, options.cancel)
    {
    }

    Status run()
    {
        if (Status status = checkOutput(_options, _options.output); !status) return status;
        if (Status status = openStore(); !status) return status;
        if (Status status = plan(); !status) return status;
        _run.setTotal(_store.head.header.pointCount, 1 + _filter->passes());
        _run.begin("choosing");
        if (Status status = _filter->choose(_index, _options.memory, _run); !status)
            return status.of(_store.path);
        _run.begin("writing");
        if (Status status = writeNodes(); !status) return status;
        if (Status status = finish(); !status) return status;
        _run.begin("done");
        return {};
    }

private:
    Status openStore()
    {
        if (Status status = ExportedStore::open(_options.store, _store, _index); !status) return status;
        _mapping = std::make_unique<File>(_options.store.c_str());
        _bytes = static_cast<const uint8_t*>(_mapping->map(0, _store.head.lastRecordEnd));
        if (!_bytes) return _store.failure("cannot be read");
        uint64_t first = 0;
        for (const OriginSource& source : _store.sources()) {
            _sourceFirsts.push_back(first);
            first += source.pointCount;
        }
        _filter.emplace(_options.part, _store, _index);
        return {};
    }

    Status plan()
    {
        const MergedFormat format = mergedFormat(_store.sources());
        for (const std::string& note : format.notes)
            _report.notes.push_back(_options.output + ": " + note);
        const auto length = static_cast<uint16_t>(coreRecordLength(format.pointFormat) + format.extraLength);
        if (Status status = checkMemory(length); !status) return status;
        for (const OriginSource& source : _store.sources())
            _encoders.emplace_back(source, RecordFormat(format.pointFormat, length));
        if (Status status = makeMergedHead(_store.file, _store.head, format, _fileHead); !status)
            return status.of(_store.path);
        if (!hasWkt(_fileHead))
            _report.notes.push_back(_options.output +
                                    ": its source gives no coordinate system as WKT, the only "
                                    "form that readers of COPC know; they will ask for it");
        LazItems items = makeLazItems(format.pointFormat, length);
        items.chunkSize = 0;
        if (!makeCopcHead(items, _fileHead))
            return Status::failure(_options.output + ": its header has no room for the records of COPC");
        _chunkEncoders = std::make_unique<LazChunkEncoders>(items);
        _chunks = std::make_unique<LazChunkSequence>(
            _fileHead.bytes.size(), [this](uint64_t position, const void* data, uint64_t size) {
                return _file.write(position, data, size);
            });
        return _file.create(_options.output, _options.overwrite, 0);
    }

    /// A node is put together and encoded in memory.
    Status checkMemory(uint16_t recordLength) const
    {
        uint64_t largest = 0;
        for (const IndexCell& cell : _index.cells)
            largest = std::max(largest, pointsOf(cell));
        const uint64_t needed = largest * (3 * uint64_t{recordLength} + kBytesBesideRecord);
        if (needed <= _options.memory) return {};
        return Status::failure(_options.output + ": a cell of the store has " + std::to_string(largest) +
                               " points, which become one node; allow " + megabytes(needed));
    }

    static uint64_t pointsOf(const IndexCell& cell)
    {
        uint64_t points = 0;
        for (const Segment& segment : cell.segments)
            points += static_cast<uint64_t>(segment.count);
        return points;
    }

    Status writeNodes()
    {
        return _run.forEach(_index.cells.size(), [&](size_t i) -> Status {
            std::vector<uint8_t> records;
            Summary summary;
            if (Status status = collect(_index.cells[i], records, summary); !status)
                return status.of(_store.path);
            std::vector<uint8_t> chunk;
            if (summary.points > 0) {
                records = TimeOrder(_encoders.front().format(), records).sorted();
                summarise(_index.cells[i], records, summary);
                _chunkEncoders->encode(records.data(), summary.points, chunk);
            }
            if (chunk.size() > kMaxChunkBytes)
                return Status::failure(_options.output + ": a node is too large for COPC");
            {
                const VelThreads::Lock lock(_mutex);
                _summary.add(summary);
            }
            _run.done(pointsOf(_index.cells[i]));
            return _chunks->add(i, summary.points, std::move(chunk));
        });
    }

    /// Points of a cell that follow on one another and come from one source.
    struct Batch
    {
        size_t source = 0;
        std::vector<uint8_t> records; ///< the store's
        std::vector<uint8_t> flags;
        std::vector<uint8_t> rests;
    };

    /// The records of a cell's points, and how many of them were changed or are left out.
    Status collect(const IndexCell& cell, std::vector<uint8_t>& records, Summary& summary) const
    {
        const size_t length = _encoders.front().recordLength();
        records.reserve(pointsOf(cell) * length);
        Batch batch;
        for (const Segment& segment : cell.segments) {
            if (!_filter->mayTakeAnyOf(static_cast<uint64_t>(segment.first),
                                       static_cast<uint64_t>(segment.count)))
                continue;
            for (int64_t i = segment.first; i < segment.first + segment.count; ++i)
                if (!addPoint(static_cast<uint64_t>(i), batch, records, summary))
                    return Status::failure("was changed while it was read; export it again");
        }
        if (!encode(batch, records)) return Status::failure("its records cannot be brought into one format");
        summary.points = records.size() / length;
        return {};
    }

    /// Appends the records of the batch, which is empty afterwards.
    bool encode(Batch& batch, std::vector<uint8_t>& records) const
    {
        const EncoderInput input{batch.flags.size(), batch.records.data(), batch.flags.data(),
                                 batch.rests.data()};
        if (!_encoders[batch.source].encode(input, records)) return false;
        batch.records.clear();
        batch.flags.clear();
        batch.rests.clear();
        return true;
    }

    /// Adds a point to the batch; one of another source ends the batch before.
    bool addPoint(uint64_t index, Batch& batch, std::vector<uint8_t>& records, Summary& summary) const
    {
        const uint64_t ordinal = ordinalOf(index);
        if (ordinal >= _store.records.origin.pointCount) return false;
        const auto next = std::upper_bound(_sourceFirsts.begin(), _sourceFirsts.end(), ordinal);
        const auto source = static_cast<size_t>(next - _sourceFirsts.begin()) - 1;
        if (source != batch.source && !encode(batch, records)) return false;
        batch.source = source;

        const FlagsRecord& kept = _store.records.flags;
        const uint8_t* const record = _bytes + _store.head.header.pointDataStart + index * kPointSize;
        const uint8_t* const keptBytes = _bytes + _store.head.flags.start;
        const uint8_t before = keptBytes[kept.flagsStart + ordinal / 2] >> (ordinal % 2 ? 4 : 0) & 0x0F;
        const bool isHidden = record[kFlags] & kHiddenBits;
        const auto flags = static_cast<uint8_t>((before & ~kWithheld) | (isHidden ? kWithheld : 0));
        const bool isChanged = flags != before || record[kClass] != keptBytes[kept.classesStart + ordinal];
        summary.hidden += _filter->leavesOutAsHidden(record);
        if (!_filter->takes(index, record)) return true;
        summary.changed += isChanged;

        const FlagsSource& ofSource = kept.sources[source];
        const uint8_t* const rest =
            keptBytes + ofSource.restStart + (ordinal - _sourceFirsts[source]) * ofSource.restLength;
        batch.records.insert(batch.records.end(), record, record + kPointSize);
        batch.flags.push_back(flags);
        batch.rests.insert(batch.rests.end(), rest, rest + ofSource.restLength);
        return true;
    }

    uint64_t ordinalOf(uint64_t index) const
    {
        const size_t size = _store.records.origin.ordinalSize;
        const uint8_t* const place =
            _bytes + _store.head.origin.start + _store.records.origin.ordinalStart + index * size;
        return size == 4 ? loadLe<uint32_t>(place) : loadLe<uint64_t>(place);
    }

    void summarise(const IndexCell& cell, const std::vector<uint8_t>& records, Summary& summary) const
    {
        const RecordFormat& format = _encoders.front().format();
        format.scan(records.data(), summary.points, summary.scan);
        const CopcCube::Box box = CopcCube(_index, _store.head.header).node(cell.level, cell.code);
        for (uint64_t i = 0; i < summary.points; ++i) {
            const uint8_t* const record = &records[i * format.recordLength()];
            bool isInside = true;
            for (size_t axis = 0; axis < 3; ++axis) {
                const double value =
                    loadLe<int32_t>(record + kX + 4 * axis) * _store.head.header.scale[axis] +
                    _store.head.header.offset[axis];
                isInside = isInside && value >= box.min[axis] && value <= box.max[axis];
            }
            summary.strays += !isInside;
            const auto time = loadLe<double>(record + kGpsTime);
            if (time < summary.times.min) summary.times.min = time;
            if (time > summary.times.max) summary.times.max = time;
        }
    }

    Status finish()
    {
        const VelThreads::Lock lock(_mutex);
        uint64_t hierarchyStart = 0;
        if (Status status = checkReads(*_mapping); !status) return status.of(_store.path);
        if (Status status = _chunks->finish(true, hierarchyStart); !status) return status;
        const std::vector<uint8_t> hierarchy = makeCopcHierarchy(_index.cells, _chunks->chunks());
        if (Status status = _file.write(hierarchyStart, hierarchy.data(), hierarchy.size()); !status)
            return status;
        if (!(_summary.times.min <= _summary.times.max)) _summary.times = GpsTimeRange();
        tellPoints(_summary.scan, _summary.points, _fileHead);
        tellCopc(CopcCube(_index, _store.head.header), _summary.times, hierarchyStart, hierarchy.size(),
                 _fileHead);
        if (Status status = _file.write(0, _fileHead.bytes.data(), _fileHead.bytes.size()); !status)
            return status;
        if (Status status = _run.step(0); !status) return status;
        if (_summary.strays > 0)
            _report.notes.push_back(_options.output + ": " + std::to_string(_summary.strays) +
                                    " points lie outside their nodes by less than a step of the coordinates");
        _report.files.push_back({_options.output, _summary.points, _summary.changed});
        _report.leftOut = _store.head.header.pointCount - _summary.points;
        _report.hiddenLeftOut = _summary.hidden;
        return _file.commit(); // the last: nothing may be thrown once the file has its name
    }

    const ExportOptions& _options;
    ExportReport& _report;
    ParallelRun _run;
    ExportedStore _store;
    StoreIndex _index;
    std::optional<PointFilter> _filter;
    std::vector<uint64_t> _sourceFirsts;  ///< ordinals of the sources' first points
    std::unique_ptr<File> _mapping;       ///< mapped: what is kept of a cell's points is all over the file
    const uint8_t* _bytes = nullptr;      ///< of the store
    std::vector<RecordEncoder> _encoders; ///< by source
    LasHead _fileHead;
    std::unique_ptr<LazChunkEncoders> _chunkEncoders;
    std::unique_ptr<LazChunkSequence> _chunks;
    OutputFile _file;
    VelThreads::Mutex _mutex;
    Summary _summary VEL_GUARDED_BY(_mutex);
};

} // namespace

Status exportCopc(const ExportOptions& options, ExportReport& report)
{
    return CopcExporter(options, report).run();
}

} // namespace VelBrx
