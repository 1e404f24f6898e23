#include <VelBrx/Verify.h>

#include "store/PointScan.h"
#include "store/PointTally.h"
#include "store/SourceRecords.h"
#include "store/StoreHead.h"

#include <VelThreads/Mutex.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <new>

namespace VelBrx {

namespace {

/// Integer coordinates that the records of a cell may have. A coordinate within one step of the cell's faces
/// counts as inside: faces need not lie on whole steps.
struct RecordBox
{
    double min[3];
    double max[3];

    RecordBox(const StoreIndex& index, const IndexCell& cell, const BrxHeader& header)
    {
        const double edge = std::ldexp(index.cubeSize, -static_cast<int>(cell.level));
        const std::array<uint32_t, 3> grid = mortonDecode(cell.code);
        for (size_t axis = 0; axis < 3; ++axis) {
            const double low = index.cubeMin[axis] + grid[axis] * edge;
            min[axis] = (low - header.offset[axis]) / header.scale[axis] - 1;
            max[axis] = (low + edge - header.offset[axis]) / header.scale[axis] + 1;
        }
    }

    bool contains(const RecordExtent& extent) const
    {
        for (size_t axis = 0; axis < 3; ++axis)
            if (!(extent.min[axis] >= min[axis] && extent.max[axis] <= max[axis])) return false;
        return true;
    }
};

/// Points of one cell that lie outside it.
struct Strays
{
    int64_t count = 0;
    int64_t first = 0; ///< smallest point index
};

/// The check of a store whose head and index can be read.
class StoreCheck
{
public:
    StoreCheck(const FileReader& file, const StoreHead& head, const StoreIndex& index)
        : _file(file), _head(head), _index(index)
    {
    }

    std::vector<std::string> run()
    {
        checkFrame();
        checkIndex(_index, _head.header.pointCount, _problems);
        checkPoints();
        checkSourceRecords(_file, _head, _problems);
        return _problems.lines();
    }

private:
    /// What surrounds points and index.
    void checkFrame()
    {
        if (const Status checksum = checkHeaderChecksum(_head, _index); !checksum)
            _problems.add("header", "the bytes 0 to " + std::to_string(_head.header.pointDataStart - 1) +
                                        ", LAS header and VLRs, were changed after the store was built");
        const int64_t surplus = _file.size() - _head.lastRecordEnd;
        if (surplus > 0)
            _problems.add("file size", std::to_string(surplus) +
                                           " bytes follow the last record, which ends at byte " +
                                           std::to_string(_head.lastRecordEnd));
    }

    /// The points that the cells claim, each once, whatever the segments say.
    std::vector<PointRun> disjointRuns() const
    {
        const int64_t pointCount = static_cast<int64_t>(_head.header.pointCount);
        std::vector<PointRun> runs;
        for (size_t cell = 0; cell < _index.cells.size(); ++cell)
            for (const Segment& segment : _index.cells[cell].segments)
                if (segment.first >= 0 && segment.count > 0 && segment.count <= pointCount &&
                    segment.first <= pointCount - segment.count)
                    runs.push_back({segment.first, segment.count, cell});
        std::sort(runs.begin(), runs.end(),
                  [](const PointRun& a, const PointRun& b) { return a.first < b.first; });
        int64_t end = 0;
        for (PointRun& run : runs) {
            const int64_t runEnd = run.first + run.count;
            run.first = std::max(run.first, end);
            run.count = std::max<int64_t>(runEnd - run.first, 0);
            end = std::max(runEnd, end);
        }
        runs.erase(
            std::remove_if(runs.begin(), runs.end(), [](const PointRun& run) { return run.count == 0; }),
            runs.end());
        return runs;
    }

    void checkPoints()
    {
        const std::vector<PointRun> runs = disjointRuns();
        std::vector<PointTally> tallies(scanWorkers());
        std::vector<RecordExtent> extents(scanWorkers());
        const auto visit = [&](unsigned worker, const PointRun& part, const uint8_t* records) {
            RecordExtent extent;
            extent.add(records, static_cast<size_t>(part.count));
            extents[worker].add(extent);
            tallies[worker].add(records, static_cast<size_t>(part.count));
            const RecordBox box(_index, _index.cells[part.owner], _head.header);
            if (!box.contains(extent)) noteStrays(part, records, box);
        };
        if (!scanPoints(_file, _head.header.pointDataStart, runs, visit)) {
            _problems.add("reading",
                          "the points cannot all be read; the disk fails or the file is being cut");
            return;
        }
        for (size_t worker = 1; worker < tallies.size(); ++worker) {
            tallies[0].add(tallies[worker]);
            extents[0].add(extents[worker]);
        }
        reportStrays();
        int64_t visited = 0;
        for (const PointRun& run : runs)
            visited += run.count;
        if (visited != static_cast<int64_t>(_head.header.pointCount))
            return; // what follows speaks of all points
        compareBounds(extents[0]);
        compareStatistics(tallies[0]);
    }

    void noteStrays(const PointRun& part, const uint8_t* records, const RecordBox& box)
    {
        Strays strays;
        for (int64_t i = part.count; i-- > 0;) {
            RecordExtent point;
            point.add(records + i * static_cast<int64_t>(LasLayout::kPointSize), 1);
            if (box.contains(point)) continue;
            ++strays.count;
            strays.first = part.first + i;
        }
        const VelThreads::Lock guard(_straysMutex);
        const auto [known, isNew] = _strays.emplace(part.owner, strays);
        if (isNew) return;
        known->second.count += strays.count;
        known->second.first = std::min(known->second.first, strays.first);
    }

    void reportStrays()
    {
        const VelThreads::Lock guard(_straysMutex);
        for (const auto& [cell, strays] : _strays) {
            const int64_t position =
                _head.header.pointDataStart + strays.first * static_cast<int64_t>(LasLayout::kPointSize);
            _problems.add("points outside their cell",
                          "cell " + cellName(_index.cells[cell].level, _index.cells[cell].code) + ": " +
                              std::to_string(strays.count) +
                              " of its points lie outside it, the first is point " +
                              std::to_string(strays.first) + " at byte " + std::to_string(position));
        }
    }

    /// Compares a stated end of a range of coordinates with the points' integer coordinate there.
    void compareCoordinate(const std::string& name, size_t axis, double stated, int32_t found)
    {
        const double step = _head.header.scale[axis];
        const double value = found * step + _head.header.offset[axis];
        if (!(std::abs(stated - value) <= 0.5 * step))
            _problems.add("bounds", name + " is " + std::to_string(stated) + ", of the points it is " +
                                        std::to_string(value));
    }

    void compareBounds(const RecordExtent& extent)
    {
        for (size_t axis = 0; axis < 3; ++axis) {
            const std::string name(1, "xyz"[axis]);
            compareCoordinate("the LAS header's smallest " + name, axis, _head.header.min[axis],
                              extent.min[axis]);
            compareCoordinate("the LAS header's largest " + name, axis, _head.header.max[axis],
                              extent.max[axis]);
        }
        const AttributeRange& elevation = _index.statistics.elevation;
        compareCoordinate("the index's lowest elevation", 2, elevation.min, extent.min[2]);
        compareCoordinate("the index's highest elevation", 2, elevation.max, extent.max[2]);
    }

    template <typename T>
    void compare(const std::string& name, T stated, T found)
    {
        if (stated != found)
            _problems.add("statistics", name + " is " + std::to_string(stated) + ", of the points it is " +
                                            std::to_string(found));
    }

    void compareStatistics(const PointTally& tally)
    {
        const StoreStatistics& stated = _index.statistics;
        for (size_t i = 0; i < 16; ++i) {
            const std::string number = std::to_string(i);
            compare("the index's number of points with return " + number, stated.pointsByReturn[i],
                    tally.byReturn()[i]);
            compare("the index's number of points with " + number + " returns",
                    stated.pointsByNumberOfReturns[i], tally.byNumberOfReturns()[i]);
            if (i > 0)
                compare("the LAS header's number of points with return " + number,
                        _head.header.pointsByReturn[i - 1], tally.byReturn()[i]);
        }
        compare<double>("the index's lowest intensity", stated.intensity.min, tally.minIntensity);
        compare<double>("the index's highest intensity", stated.intensity.max, tally.maxIntensity);
        compare("the index's largest colour value", stated.maxColor, tally.maxColor);
        if (tally.minGpsTime <= tally.maxGpsTime) {
            compare("the index's earliest GPS time", stated.gpsTime.min, tally.minGpsTime);
            compare("the index's latest GPS time", stated.gpsTime.max, tally.maxGpsTime);
        }
        for (size_t source = 0, next = 0; source < tally.sources.size(); ++source) {
            const bool listed = next < stated.pointSources.size() && stated.pointSources[next] == source;
            next += listed;
            if (listed != tally.sources[source])
                _problems.add("statistics", "point source id " + std::to_string(source) +
                                                (listed ? " is in the index and in no point"
                                                        : " is in the points and not in the index"));
        }
    }

    const FileReader& _file;
    const StoreHead& _head;
    const StoreIndex& _index;
    ProblemList _problems;
    VelThreads::Mutex _straysMutex;
    std::map<size_t, Strays> _strays VEL_GUARDED_BY(_straysMutex); ///< by cell
};

} // namespace

bool isStore(const std::string& path)
{
    FileReader file;
    StoreHead head;
    return file.open(path) && readStoreHead(file, head);
}

std::vector<std::string> verifyStore(const std::string& path)
try {
    FileReader file;
    StoreHead head;
    StoreIndex index;
    std::vector<uint8_t> bytes;
    if (const Status opened = file.open(path); !opened) return {opened.message()};
    if (const Status read = readStoreHead(file, head); !read) return {read.message()};
    if (const Status read = readIndexBytes(file, head, bytes); !read) return {read.message()};
    if (const Status parsed = parseIndex(bytes.data(), bytes.size(), index); !parsed)
        return {parsed.message()};
    return StoreCheck(file, head, index).run();
} catch (const std::bad_alloc&) {
    return {"needs more memory than there is; close other programs"};
}

} // namespace VelBrx
