#include "store/build/SourceSet.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace VelBrx {

namespace {

/// Whether a header's bounds are those of the points, to half a step of the coordinates.
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

} // namespace

Status SourceSet::open(const std::vector<std::string>& paths)
{
    if (paths.empty()) return Status::failure("no input file is named; name the LAS files to build from");
    for (const std::string& path : paths) {
        std::unique_ptr<PointSource> points;
        if (Status status = openPointSource(path, points); !status) return status;
        const LasFile& file = points->file();
        for (const std::string& note : file.notes)
            _notes.push_back(path + ": " + note);
        if (file.pointCount == 0 && paths.size() == 1)
            return Status::failure(path + ": has no points, so there is nothing to build a store of");
        if (file.pointCount == 0) _notes.push_back(path + ": has no points");
        const RecordFormat format(file.pointFormat, file.recordLength);
        const uint64_t count = file.pointCount;
        _sources.push_back({std::move(points), format, _pointCount, {}});
        _pointCount += count;
    }
    if (_pointCount == 0)
        return Status::failure(paths.front() + ": has no points, nor has any other input; nothing to build");
    return {};
}

Status SourceSet::scan(BuildRun& run)
{
    const std::vector<Part> all = parts();
    std::mutex mutex; // guards the sources' scans
    const Status status = run.forEach(all.size(), [&](size_t i) -> Status {
        BuildSource& source = _sources[all[i].source];
        RecordScan scan;
        Status read = source.points->readPart(all[i].index, [&](const PointBatch& batch) {
            const size_t count = batch.records.size() / source.format.recordLength();
            source.format.scan(batch.records.data(), count, scan);
            return run.step(count);
        });
        const std::lock_guard lock(mutex);
        source.scan.add(scan);
        return read;
    });
    if (!status) return status;
    for (const BuildSource& source : _sources)
        noteHeader(source);
    return {};
}

void SourceSet::noteHeader(const BuildSource& source)
{
    const LasFile& file = source.points->file();
    if (file.pointCount == 0) return;
    for (const std::string& note : source.points->notes())
        _notes.push_back(file.path + ": " + note);
    if (!boundsAreRight(file, source.scan))
        _notes.push_back(file.path +
                         ": the header's bounds are not those of the points; the store has the right ones");
    if (!countsAreRight(file, source.scan))
        _notes.push_back(
            file.path +
            ": the header's points by return are not those of the points; the store has the right ones");
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
    std::vector<SourceExtent> extents;
    for (const BuildSource& source : _sources) {
        const LasFile& file = source.points->file();
        SourceExtent extent;
        extent.path = file.path;
        extent.empty = file.pointCount == 0;
        for (size_t axis = 0; axis < 3; ++axis) {
            extent.scale[axis] = file.scale[axis];
            extent.offset[axis] = file.offset[axis];
            extent.min[axis] = source.scan.min[axis];
            extent.max[axis] = source.scan.max[axis];
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
    return maxColor > 0 && maxColor <= 255;
}

std::vector<SourceSet::Part> SourceSet::parts() const
{
    std::vector<Part> all;
    for (size_t source = 0; source < _sources.size(); ++source)
        for (uint64_t index = 0; index < _sources[source].points->partCount(); ++index)
            all.push_back({source, index});
    return all;
}

} // namespace VelBrx
