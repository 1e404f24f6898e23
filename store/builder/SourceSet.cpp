#include "store/builder/SourceSet.h"

#include <VelBrx/FolderFiles.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <limits>
#include <mutex>

namespace VelBrx {

namespace fs = std::filesystem;

namespace {

constexpr uint16_t kMaxNarrowColor = 255;

/// Whether a header's bounds agree with the points, to half a step of the coordinates.
bool boundsAreRight(const LasFile& file, const RecordScan& scan)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        const double scale = file.scale[axis];
        const double offset = file.offset[axis];
        if (!(std::abs(scan.min[axis] * scale + offset - file.min[axis]) <= scale / 2) ||
            !(std::abs(scan.max[axis] * scale + offset - file.max[axis]) <= scale / 2))
            return false;
    }
    return true;
}

bool countsAreRight(const LasFile& file, const RecordScan& scan)
{
    const size_t returns = file.versionMinor >= 4 ? 15 : 5;
    return std::equal(file.pointsByReturn, file.pointsByReturn + returns, scan.pointsByReturn.begin() + 1);
}

/// The integer of a coordinate, 0 where there is none.
int32_t stepOf(double coordinate, const SourceExtent& extent, size_t axis)
{
    const double steps = std::round((coordinate - extent.offset[axis]) / extent.scale[axis]);
    const bool isInteger =
        steps >= std::numeric_limits<int32_t>::min() && steps <= std::numeric_limits<int32_t>::max();
    return isInteger ? static_cast<int32_t>(steps) : 0;
}

/// Adds `path` to `files`, or where it is a folder the LAS and LAZ files under it.
Status addFiles(const std::string& path, std::vector<std::string>& files)
{
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        files.push_back(path);
        return {};
    }
    std::vector<std::string> found;
    if (Status status = findFiles(path, {".las", ".laz"}, found); !status) return status;
    if (found.empty()) return Status::failure(path + ": is a folder without LAS or LAZ files");
    files.insert(files.end(), found.begin(), found.end());
    return {};
}

} // namespace

Status SourceSet::open(const std::vector<std::string>& paths)
{
    if (paths.empty()) return Status::failure("no input file is named; name the LAS files to build from");
    std::vector<std::string> files;
    for (const std::string& path : paths)
        if (Status status = addFiles(path, files); !status) _bad.push_back(status);
    for (const std::string& file : files)
        if (Status status = open(file, files.size() == 1); !status) _bad.push_back(status);
    return {};
}

void SourceSet::noteUnreadable(size_t source, const Status& why)
{
    const std::lock_guard lock(_unreadableMutex);
    _unreadable.emplace(source, why);
}

std::vector<Status> SourceSet::bad() const
{
    std::vector<Status> all = _bad;
    const std::lock_guard lock(_unreadableMutex);
    for (const auto& [source, why] : _unreadable)
        all.push_back(why);
    return all;
}

bool SourceSet::areReadable() const
{
    const std::lock_guard lock(_unreadableMutex);
    return _unreadable.empty();
}

Status SourceSet::dropUnreadable()
{
    _bad = bad();
    for (auto place = _unreadable.rbegin(); place != _unreadable.rend(); ++place)
        _sources.erase(_sources.begin() + static_cast<std::ptrdiff_t>(place->first));
    _unreadable.clear();
    _kept.clear();
    _pointCount = 0;
    for (BuildSource& source : _sources) {
        source.firstOrdinal = _pointCount;
        source.scan = {};
        _pointCount += source.points->file().pointCount;
    }
    if (_pointCount > 0) return {};
    if (!_bad.empty()) return _bad.front();
    return Status::failure(_sources.front().points->file().path +
                           ": has no points, nor has any other input; nothing to build");
}

Status SourceSet::open(const std::string& path, bool isOnly)
{
    std::unique_ptr<PointSource> points;
    if (Status status = openPointSource(path, points); !status) return status;
    const LasFile& file = points->file();
    for (const std::string& note : file.notes)
        _notes.push_back(path + ": " + note);
    if (file.pointCount == 0 && isOnly)
        return Status::failure(path + ": has no points, so there is nothing to build a store of");
    if (file.pointCount == 0) _notes.push_back(path + ": has no points");
    add(std::move(points));
    return {};
}

void SourceSet::add(std::unique_ptr<PointSource> points)
{
    const LasFile& file = points->file();
    const RecordFormat format(file.pointFormat, file.recordLength);
    const uint64_t count = file.pointCount;
    _sources.push_back({std::move(points), format, _pointCount, {}});
    _pointCount += count;
}

Status SourceSet::scan(ParallelRun& run, uint64_t keptBytes, const BatchVisitor& visit)
{
    const std::vector<Part> all = parts();
    _kept.assign(all.size(), {});
    std::mutex mutex;                       // guards the sources' scans and keptBytes
    std::atomic<bool> hasWideColors{false}; // one is enough: the others need not be decoded
    const auto takeRoom = [&](uint64_t size) {
        const std::lock_guard lock(mutex);
        const bool fits = size > 0 && size <= keptBytes;
        if (fits) keptBytes -= size;
        return fits;
    };
    const Status status = run.forEach(all.size(), [&](size_t i) -> Status {
        BuildSource& source = _sources[all[i].source];
        const bool isKept = takeRoom(source.points->decodedSize(all[i].index));
        RecordScan scan;
        Status step;
        const auto use = [&](const PointBatch& batch) {
            const size_t count = batch.records.size() / source.format.recordLength();
            source.format.scan(batch.records.data(), count, scan);
            visit(all[i].source, batch);
            if (isKept) _kept[i].push_back(batch);
            return step = run.step(count);
        };
        const RecordFields fields = isKept          ? RecordFields::All
                                    : hasWideColors ? RecordFields::Places
                                                    : RecordFields::PlacesAndColors;
        const Status read = source.points->readPart(all[i].index, use, fields);
        if (scan.maxColor > kMaxNarrowColor) hasWideColors = true;
        const std::lock_guard lock(mutex);
        source.scan.add(scan);
        if (step && !read) noteUnreadable(all[i].source, read);
        return step;
    });
    if (!status || !areReadable()) return status;
    for (const BuildSource& source : _sources)
        noteHeader(source);
    return {};
}

Status SourceSet::read(ParallelRun& run, const BatchVisitor& visit) const
{
    const std::vector<Part> all = parts();
    return run.forEach(all.size(), [&](size_t i) -> Status {
        const BuildSource& source = _sources[all[i].source];
        const auto use = [&](const PointBatch& batch) {
            visit(all[i].source, batch);
            return run.step(batch.records.size() / source.format.recordLength());
        };
        return readPart(all[i], use, RecordFields::Places);
    });
}

Status SourceSet::readPart(const Part& part, const PointSource::Use& use, RecordFields fields) const
{
    const std::vector<PointBatch>& kept = _kept[part.number];
    if (kept.empty()) return _sources[part.source].points->readPart(part.index, use, fields);
    for (const PointBatch& batch : kept)
        if (Status status = use(batch); !status) return status;
    return {};
}

void SourceSet::forget(const Part& part)
{
    _kept[part.number] = {};
}

void SourceSet::noteHeader(const BuildSource& source)
{
    const LasFile& file = source.points->file();
    if (file.pointCount == 0) return;
    if (!boundsAreRight(file, source.scan))
        _notes.push_back(file.path +
                         ": the header's bounds are not those of the points; the store has the right ones");
    if (!countsAreRight(file, source.scan))
        _notes.push_back(
            file.path +
            ": the header's points by return are not those of the points; the store has the right ones");
}

std::vector<std::string> SourceSet::notes() const
{
    std::vector<std::string> notes = _notes;
    for (const BuildSource& source : _sources)
        for (const std::string& note : source.points->notes())
            notes.push_back(source.points->file().path + ": " + note);
    return notes;
}

std::vector<const LasFile*> SourceSet::files() const
{
    std::vector<const LasFile*> files;
    for (const BuildSource& source : _sources)
        files.push_back(&source.points->file());
    return files;
}

std::vector<SourceExtent> SourceSet::extents() const
{
    std::vector<SourceExtent> extents = statedExtents();
    for (size_t source = 0; source < _sources.size(); ++source) {
        std::copy_n(_sources[source].scan.min.begin(), 3, extents[source].min);
        std::copy_n(_sources[source].scan.max.begin(), 3, extents[source].max);
    }
    return extents;
}

std::vector<SourceExtent> SourceSet::statedExtents() const
{
    std::vector<SourceExtent> extents;
    for (const BuildSource& source : _sources) {
        const LasFile& file = source.points->file();
        SourceExtent extent;
        extent.path = file.path;
        extent.empty = file.pointCount == 0;
        for (size_t axis = 0; axis < 3; ++axis) {
            extent.scale[axis] = file.scale[axis];
            extent.offset[axis] = file.offset[axis];
            extent.min[axis] = stepOf(file.min[axis], extent, axis);
            extent.max[axis] = stepOf(file.max[axis], extent, axis);
        }
        extents.push_back(extent);
    }
    return extents;
}

bool SourceSet::hasNarrowColors() const
{
    uint16_t maxColor = 0;
    for (const BuildSource& source : _sources)
        maxColor = std::max(maxColor, source.scan.maxColor);
    return maxColor > 0 && maxColor <= kMaxNarrowColor;
}

std::vector<SourceSet::Part> SourceSet::parts() const
{
    std::vector<Part> all;
    for (size_t source = 0; source < _sources.size(); ++source)
        for (uint64_t index = 0; index < _sources[source].points->partCount(); ++index)
            all.push_back({source, index, all.size()});
    return all;
}

} // namespace VelBrx
