#include <VelBrx/LasInfo.h>

#include "store/PointTally.h"
#include "store/io/ByteIo.h"
#include "store/io/ParallelRun.h"
#include "store/las/ExtraFields.h"
#include "store/las/PointSource.h"
#include "store/las/Projection.h"
#include "store/las/RecordFormat.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>

namespace VelBrx {

namespace {

constexpr char kSpec[] = "LASF_Spec";
constexpr uint16_t kExtraBytesId = 4;

/// What the records of a file hold.
struct Tally
{
    RecordExtent extent;
    PointTally points;
    uint64_t withheld = 0;

    void add(const Tally& other)
    {
        extent.add(other.extent);
        points.add(other.points);
        withheld += other.withheld;
    }
};

std::string textOf(const uint8_t* bytes, size_t size)
{
    return std::string(bytes, std::find(bytes, bytes + size, uint8_t(0)));
}

const std::vector<uint8_t>* findRecord(const LasFile& file, const char* userId, uint16_t recordId)
{
    for (const auto* const records : {&file.vlrs, &file.evlrs})
        for (const LasVlr& vlr : *records)
            if (vlr.userId == userId && vlr.recordId == recordId && !vlr.data.empty()) return &vlr.data;
    return nullptr;
}

std::vector<LasInfo::ExtraBytes> extraBytesOf(const LasFile& file)
{
    std::vector<ExtraField> fields;
    for (const auto* const records : {&file.vlrs, &file.evlrs})
        for (const LasVlr& vlr : *records)
            if (vlr.userId == kSpec && vlr.recordId == kExtraBytesId)
                addExtraFields(vlr.data.data(), vlr.data.size(), fields);
    std::vector<LasInfo::ExtraBytes> all;
    for (const ExtraField& field : fields)
        all.push_back({field.name, field.typeName()});
    return all;
}

LasInfo headOf(const LasFile& file)
{
    LasInfo info;
    info.versionMinor = file.versionMinor;
    info.pointFormat = file.pointFormat;
    info.recordLength = file.recordLength;
    info.isCompressed = file.laz.has_value();
    info.isCopc = findRecord(file, "copc", 1) != nullptr;
    info.systemIdentifier =
        textOf(reinterpret_cast<const uint8_t*>(file.systemIdentifier), sizeof file.systemIdentifier);
    info.creationDay = file.creationDay;
    info.creationYear = file.creationYear;
    info.projection = projectionOf(file);
    info.coordinateSystem = systemOf(info.projection);
    std::copy_n(file.scale, 3, info.scale.begin());
    std::copy_n(file.offset, 3, info.offset.begin());
    for (const auto* const records : {&file.vlrs, &file.evlrs})
        for (const LasVlr& vlr : *records)
            info.records.push_back({vlr.userId, vlr.recordId, vlr.data.size()});
    info.extraBytes = extraBytesOf(file);
    info.notes = file.notes;
    info.pointCount = file.pointCount;
    return info;
}

/// Takes the source records of a batch in. `work` is reused from batch to batch.
void add(const PointBatch& batch, const RecordFormat& format, std::vector<uint8_t>& work, Tally& tally)
{
    using PointRecord::kPointSize;
    const size_t count = batch.records.size() / format.recordLength();
    const size_t restLength = format.restLength();
    work.resize(count * (kPointSize + 1 + restLength));
    uint8_t* const flags = work.data() + count * kPointSize;
    format.decode(batch.records.data(), count, work.data(), flags, flags + count, restLength);
    tally.extent.add(work.data(), count);
    tally.points.add(work.data(), count);
    tally.withheld += static_cast<uint64_t>(
        std::count_if(flags, flags + count, [](uint8_t flag) { return (flag & kWithheld) != 0; }));
}

Status tallyPoints(const PointSource& source, const RecordFormat& format, Tally& all)
{
    std::mutex mutex; // guards `all`
    ParallelRun run(0, nullptr, nullptr);
    return run.forEach(source.partCount(), [&](size_t part) {
        Tally tally;
        std::vector<uint8_t> work;
        const Status read = source.readPart(part, [&](const PointBatch& batch) {
            add(batch, format, work, tally);
            return Status();
        });
        const std::lock_guard lock(mutex);
        all.add(tally);
        return read;
    });
}

void fill(const Tally& tally, const RecordFormat& format, LasInfo& info)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        info.min[axis] = tally.extent.min[axis] * info.scale[axis] + info.offset[axis];
        info.max[axis] = tally.extent.max[axis] * info.scale[axis] + info.offset[axis];
    }
    const PointTally& points = tally.points;
    info.minIntensity = points.minIntensity;
    info.maxIntensity = points.maxIntensity;
    info.hasGpsTime = format.hasGpsTime();
    info.minGpsTime = points.minGpsTime;
    info.maxGpsTime = points.maxGpsTime;
    info.hasColors = format.hasColors();
    info.byClass = points.byClass;
    info.byReturn = points.byReturn();
    info.byNumberOfReturns = points.byNumberOfReturns();
    info.withheld = tally.withheld;
    for (size_t id = 0; id < points.sources.size(); ++id)
        if (points.sources[id]) info.sources.push_back(static_cast<uint16_t>(id));
}

} // namespace

Status readLasInfo(const std::string& path, LasInfo& info)
try {
    std::unique_ptr<PointSource> source;
    if (Status status = openPointSource(path, source); !status) return status;
    const LasFile& file = source->file();
    const RecordFormat format(file.pointFormat, file.recordLength);
    LasInfo read = headOf(file);
    Tally tally;
    if (Status status = tallyPoints(*source, format, tally); !status) return status;
    if (file.pointCount > 0) fill(tally, format, read);
    for (const std::string& note : source->notes())
        read.notes.push_back(note);
    info = std::move(read);
    return {};
} catch (const std::bad_alloc&) {
    return Status::failure(path + ": needs more memory than there is; close other programs",
                           Status::Kind::NO_MEMORY);
}

} // namespace VelBrx
