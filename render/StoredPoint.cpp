#include "loading/PointRecords.h"
#include "loading/UnwrittenClasses.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PointPicker.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>

namespace VelOsgDBBrx {

namespace {

template <typename T>
T load(const uint8_t* from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

osg::Vec3d localPosition(const osg::Vec3d& world, OctreeInfo& octree)
{
    const VelThreads::Lock lock(octree.mutex);
    return world * osg::Matrixd::inverse(octree.transform);
}

StoredPoint readRecord(const uint8_t* record, const OctreeInfo& octree)
{
    constexpr double kScanAngleStep = 0.006; // degrees
    StoredPoint point;
    for (int axis = 0; axis < 3; ++axis)
        point.position[axis] = load<int32_t>(record + 4 * axis) * octree.scale[axis] + octree.offset[axis];
    point.intensity = load<uint16_t>(record + 12);
    point.returnNumber = record[14] & 0x0F;
    point.numberOfReturns = record[14] >> 4;
    point.hidden = record[kFlagByte] & kHiddenBits;
    point.scannerChannel = record[kFlagByte] >> 4 & 3;
    point.scansForward = record[kFlagByte] >> 6 & 1;
    point.atEdgeOfLine = record[kFlagByte] >> 7;
    point.classCode = record[kClassByte];
    point.userData = record[17];
    point.scanAngle = load<int16_t>(record + 18) * kScanAngleStep;
    point.pointSource = load<uint16_t>(record + 20);
    point.gpsTime = load<double>(record + kGpsTimeByte);
    for (int channel = 0; channel < 3; ++channel)
        point.color[static_cast<size_t>(channel)] = load<uint16_t>(record + 30 + 2 * channel);
    point.number =
        static_cast<uint64_t>(octree.pointFile->offsetOf(record) - octree.pointDataStart) / kRecordSize;
    return point;
}

/// Of a point, from the file of normals; empty where there is none.
std::optional<osg::Vec3f> normalOf(uint64_t point, const OctreeInfo& octree)
{
    constexpr int64_t kHeadSize = 16;
    constexpr int64_t kNormalSize = 16; // x, y, z and nothing
    if (!octree.normalsFile) return std::nullopt;
    void* const memory =
        octree.normalsFile->map(kHeadSize + static_cast<int64_t>(point) * kNormalSize, kNormalSize);
    if (!memory) return std::nullopt;
    const auto* const bytes = static_cast<const uint8_t*>(memory);
    const osg::Vec3f normal(load<float>(bytes), load<float>(bytes + 4), load<float>(bytes + 8));
    octree.normalsFile->unmap(memory);
    return normal;
}

/// Looks for the record that a picked point was drawn from, among the records of the cells that hold its
/// place.
class RecordSearch
{
public:
    RecordSearch(const OctreeInfo& octree, const osg::Vec3d& local, double gpsTime)
        : _octree(octree), _local(local), _gpsTime(static_cast<float>(gpsTime))
    {
        // A vertex is a float; its record differs from it by its rounding and the pick's.
        for (int axis = 0; axis < 3; ++axis)
            _tolerance[axis] =
                octree.scale[axis] / 2 + std::abs(local[axis]) * 2 * std::numeric_limits<float>::epsilon();
    }

    void searchBelow(CellData& cell)
    {
        if (!reaches(cell.record)) return;
        search(cell);
        for (const osg::ref_ptr<CellData>& child : cell.children)
            searchBelow(*child);
    }

    const std::optional<StoredPoint>& found() const { return _found; }

private:
    bool reaches(const VelBrx::CellWithSegment& cell) const
    {
        for (int axis = 0; axis < 3; ++axis) {
            const double away = std::abs(_local[axis] + _octree.offset[axis] - cell.center[axis]);
            if (away > cell.size[axis] * 0.5 + _octree.scale[axis] + _tolerance[axis]) return false;
        }
        return true;
    }

    void search(CellData& cell)
    {
        const ClassesPtr edited = UnwrittenClasses::instance().current(cell.identifier);
        forEachRun(_octree, cell, [&](const uint8_t* records, int64_t count, size_t first) {
            for (int64_t i = 0; i < count; ++i) {
                const uint8_t* record = records + i * kRecordSize;
                const double rank = rankOf(record);
                if (rank >= _rank) continue;
                _rank = rank;
                _found = readRecord(record, _octree);
                const size_t place = first + static_cast<size_t>(i);
                if (edited && place < edited->size()) _found->classCode = (*edited)[place];
            }
        });
    }

    /// The smaller, the better a record fits; infinite for one that does not. Of records at one place, one
    /// of the picked time that is not hidden is the one that was seen.
    double rankOf(const uint8_t* record) const
    {
        constexpr double kOtherTime = 2;
        constexpr double kHidden = 1;
        double away = 0; // within [0, 1]
        for (int axis = 0; axis < 3; ++axis) {
            const double position = load<int32_t>(record + 4 * axis) * _octree.scale[axis];
            const double share = std::abs(position - _local[axis]) / _tolerance[axis];
            if (!(share <= 1)) return std::numeric_limits<double>::infinity();
            away += share / 3;
        }
        const bool sameTime = static_cast<float>(load<double>(record + kGpsTimeByte)) == _gpsTime;
        return away + (sameTime ? 0 : kOtherTime) + (record[kFlagByte] & kHiddenBits ? kHidden : 0);
    }

    const OctreeInfo& _octree;
    const osg::Vec3d _local;
    const float _gpsTime;
    osg::Vec3d _tolerance;
    double _rank = std::numeric_limits<double>::infinity();
    std::optional<StoredPoint> _found;
};

/// Gathers the points of a box.
class BoxSearch
{
public:
    BoxSearch(const osg::BoundingBoxd& box, const std::bitset<256>& classes, const OctreeInfo& octree,
              size_t most, const std::atomic<bool>* cancel)
        : _box(box), _classes(classes), _octree(octree), _most(most), _cancel(cancel)
    {
        for (int axis = 0; axis < 3; ++axis) {
            _low[axis] = (box._min[axis] - octree.offset[axis]) / octree.scale[axis];
            _high[axis] = (box._max[axis] - octree.offset[axis]) / octree.scale[axis];
        }
    }

    void searchBelow(const CellData& cell)
    {
        if (!reaches(cell.record)) return;
        {
            const std::lock_guard<std::mutex> lock(_octree.pointFile->mutex);
            search(cell);
        }
        for (const osg::ref_ptr<CellData>& child : cell.children) {
            if (isEnough()) return;
            searchBelow(*child);
        }
    }

    std::vector<StoredPoint> found() { return std::move(_found); }

private:
    bool isEnough() const { return _found.size() >= _most || (_cancel && *_cancel); }

    bool reaches(const VelBrx::CellWithSegment& cell) const
    {
        for (int axis = 0; axis < 3; ++axis) {
            const double reach = cell.size[axis] * 0.5 + _octree.scale[axis];
            if (cell.center[axis] + reach < _box._min[axis] || cell.center[axis] - reach > _box._max[axis])
                return false;
        }
        return true;
    }

    void search(const CellData& cell)
    {
        const ClassesPtr edited = UnwrittenClasses::instance().current(cell.identifier);
        forEachRun(_octree, cell, [&](const uint8_t* records, int64_t count, size_t first) {
            for (int64_t i = 0; i < count && _found.size() < _most; ++i) {
                const uint8_t* const record = records + i * kRecordSize;
                if (!isInside(record) || (record[kFlagByte] & kHiddenBits)) continue;
                const size_t place = first + static_cast<size_t>(i);
                const bool isEdited = edited && place < edited->size();
                const uint8_t code = isEdited ? (*edited)[place] : record[kClassByte];
                if (!_classes[code]) continue;
                _found.push_back(readRecord(record, _octree));
                _found.back().classCode = code;
            }
        });
    }

    bool isInside(const uint8_t* record) const
    {
        for (int axis = 0; axis < 3; ++axis) {
            const int32_t step = load<int32_t>(record + 4 * axis);
            if (step < _low[axis] || step > _high[axis]) return false;
        }
        return true;
    }

    const osg::BoundingBoxd _box;
    const std::bitset<256> _classes;
    const OctreeInfo& _octree;
    const size_t _most;
    const std::atomic<bool>* const _cancel;
    osg::Vec3d _low; ///< in steps of the records
    osg::Vec3d _high;
    std::vector<StoredPoint> _found;
};

} // namespace

std::vector<StoredPoint> storedPointsIn(const osg::BoundingBoxd& box, const std::bitset<256>& classes,
                                        OctreeInfo& octree, size_t most, const std::atomic<bool>* cancel)
{
    if (!octree.root || !octree.pointFile) return {};
    BoxSearch search(box, classes, octree, most, cancel);
    search.searchBelow(*octree.root);
    return search.found();
}

std::optional<StoredPoint> storedPoint(const PickedPoint& point, OctreeInfo& octree)
{
    if (!octree.root || !octree.pointFile) return std::nullopt;
    RecordSearch search(octree, localPosition(point.position, octree), point.gpsTime);
    const std::lock_guard<std::mutex> lock(octree.pointFile->mutex);
    search.searchBelow(*octree.root);
    std::optional<StoredPoint> found = search.found();
    if (found) found->normal = normalOf(found->number, octree);
    return found;
}

} // namespace VelOsgDBBrx
