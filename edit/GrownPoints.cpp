#include "edit/GrownPoints.h"

#include "edit/PlaceFilter.h"
#include "edit/ReachedPoints.h"
#include "edit/StoreEdit.h"

#include <VelBrx/PlaneFit.h>

#include <osg/Math>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

using VelBrx::Status;
using VelOsgDBBrx::GrownPlace;

namespace {

using Voxel = std::array<int64_t, 3>;

constexpr uint32_t kNone = UINT32_MAX;

struct VoxelHash
{
    size_t operator()(const Voxel& v) const
    {
        uint64_t hash = 0;
        for (const int64_t number : v)
            hash = (hash ^ static_cast<uint64_t>(number)) * 0x9E3779B97F4A7C15u;
        return hash ^ hash >> 32;
    }
};

/// A point that growth has read.
struct ReadPoint
{
    osg::Vec3f place; ///< from where growth begins
    GrownPoints::Place record;
    uint32_t next; ///< of its voxel
    uint16_t store;
    bool isTaken;
    bool isUnlike; ///< its plane is not like that of the first point
};

/// The points around what has grown, in voxels as large as the distance of neighbours. Cells are read as
/// growth comes to them.
class Surroundings
{
public:
    Surroundings(const GrownPlace& place, const std::vector<GrowthStore>& stores, EditControl& control)
        : _origin(place.from), _distance(place.distance), _stores(stores), _control(control)
    {
    }

    ReadPoint& operator[](uint32_t i) { return _points[i]; }
    uint64_t unreadable() const { return _unreadable; }

    /// Calls `visit(index, squared distance)` for the points at most a distance away. Where it returns true
    /// the point is met no more. Cells may be read, which moves all points: references to them end here.
    template <class Visit>
    void forEachNear(osg::Vec3f place, Visit visit)
    {
        const Voxel middle = voxelOf(place);
        read(middle);
        Voxel v;
        for (v[0] = middle[0] - 1; v[0] <= middle[0] + 1; ++v[0])
            for (v[1] = middle[1] - 1; v[1] <= middle[1] + 1; ++v[1])
                for (v[2] = middle[2] - 1; v[2] <= middle[2] + 1; ++v[2]) {
                    const auto first = _first.find(v);
                    if (first == _first.end()) continue;
                    for (uint32_t* link = &first->second; *link != kNone;) {
                        const uint32_t index = *link;
                        const double square = (_points[index].place - place).length2();
                        const bool isDone = square <= _distance * _distance && visit(index, square);
                        if (isDone)
                            *link = _points[index].next;
                        else
                            link = &_points[index].next;
                    }
                }
    }

private:
    /// Cells are looked for in cubes of so many voxels.
    static constexpr int64_t kVoxelsInCube = 16;

    Voxel voxelOf(const osg::Vec3f& place) const
    {
        Voxel voxel;
        for (int axis = 0; axis < 3; ++axis)
            voxel[axis] = static_cast<int64_t>(std::floor(place[axis] / _distance));
        return voxel;
    }

    /// Reads all that is in a voxel and its neighbours.
    void read(const Voxel& middle)
    {
        const auto cubeOf = [](int64_t voxel) {
            return voxel >= 0 ? voxel / kVoxelsInCube : (voxel + 1) / kVoxelsInCube - 1;
        };
        Voxel cube;
        for (cube[0] = cubeOf(middle[0] - 1); cube[0] <= cubeOf(middle[0] + 1); ++cube[0])
            for (cube[1] = cubeOf(middle[1] - 1); cube[1] <= cubeOf(middle[1] + 1); ++cube[1])
                for (cube[2] = cubeOf(middle[2] - 1); cube[2] <= cubeOf(middle[2] + 1); ++cube[2])
                    if (_cubes.insert(cube).second) readCube(cube);
    }

    void readCube(const Voxel& cube)
    {
        const double edge = kVoxelsInCube * _distance;
        const osg::Vec3d low = _origin + osg::Vec3d(cube[0], cube[1], cube[2]) * edge;
        const osg::Vec3d high = low + osg::Vec3d(edge, edge, edge);
        for (size_t s = 0; s < _stores.size(); ++s) {
            const GrowthStore& store = _stores[s];
            const auto meets = [&](const CellData& cell) {
                const CellRegion region(CellBox(*store.octree, cell), store.localToWorld);
                bool apart = false;
                for (int axis = 0; axis < 3; ++axis)
                    apart |= region.low[axis] > high[axis] || region.high[axis] < low[axis];
                return !apart;
            };
            for (const CellData* cell : cellsWhere(*store.octree, meets))
                if (_cells.insert(cell).second) readCell(*cell, static_cast<uint16_t>(s));
        }
    }

    void readCell(const CellData& cell, uint16_t storeNumber)
    {
        const GrowthStore& store = _stores[storeNumber];
        const osg::Matrixd toPlace =
            osg::Matrixd::scale(store.octree->scale) * store.localToWorld * osg::Matrixd::translate(-_origin);
        if (_control.isCancelled()) return;
        const std::lock_guard<std::mutex> lock(store.octree->pointFile->mutex);
        _unreadable += !forEachTested(
            *store.octree, cell, *store.test,
            [&](const uint8_t* records, int count, const uint8_t* accepted) {
                for (int i = 0; i < count; ++i) {
                    if (!accepted[i]) continue;
                    ReadPoint point{};
                    std::memcpy(point.record.data(), records + i * kRecordSize, sizeof point.record);
                    const GrownPoints::Place& r = point.record;
                    point.place = osg::Vec3f(osg::Vec3d(r[0], r[1], r[2]) * toPlace);
                    point.store = storeNumber;
                    add(point);
                }
            });
    }

    void add(ReadPoint point)
    {
        uint32_t& first = _first.try_emplace(voxelOf(point.place), kNone).first->second;
        point.next = first;
        first = static_cast<uint32_t>(_points.size());
        _points.push_back(point);
    }

    const osg::Vec3d _origin;
    const double _distance;
    const std::vector<GrowthStore>& _stores;
    EditControl& _control;
    std::vector<ReadPoint> _points;
    std::unordered_map<Voxel, uint32_t, VoxelHash> _first; ///< point of each voxel
    std::unordered_set<Voxel, VoxelHash> _cubes;           ///< whose cells are read
    std::unordered_set<const CellData*> _cells;            ///< that are read
    uint64_t _unreadable = 0;
};

/// Takes points from the first one on.
class Growth
{
public:
    Growth(const GrownPlace& place, Surroundings& around)
        : _around(around), _limit(static_cast<size_t>(place.limit)), _hasAngle(place.angle.has_value()),
          _cosine(std::cos(osg::DegreesToRadians(place.angle.value_or(0)))),
          _sine(std::sin(osg::DegreesToRadians(place.angle.value_or(0))))
    {
    }

    Status begin(const GrownPlace& place)
    {
        uint32_t first = kNone;
        double nearest = 0;
        _around.forEachNear(osg::Vec3f(), [&](uint32_t index, double square) {
            if (first == kNone || square < nearest) {
                first = index;
                nearest = square;
            }
            return false;
        });
        if (first == kNone)
            return Status::failure("no point is near enough to grow from; pick a point, or give a larger "
                                   "distance");
        if (place.angle) {
            const std::optional<osg::Vec3f> normal = normalAt(first);
            if (!normal)
                return Status::failure("the picked point has no neighbours that make a plane; give a larger "
                                       "distance, or no angle");
            _normal = *normal;
        }
        take(first, true);
        return {};
    }

    /// Until all is taken or the limit is met.
    void run(EditControl& control)
    {
        size_t told = 0;
        for (size_t i = 0; i < _cores.size() && !isFull() && !control.isCancelled(); ++i) {
            const osg::Vec3f from = _around[_cores[i]].place;
            _near.clear();
            _around.forEachNear(from, [&](uint32_t index, double) {
                if (!_around[index].isTaken) _near.push_back(index);
                return _around[index].isTaken && !_hasAngle; // planes need all neighbours
            });
            for (const uint32_t index : _near)
                if (!isFull()) join(index, from);
            control.addDone(_taken.size() - told);
            told = _taken.size();
        }
    }

    bool isFull() const { return _taken.size() >= _limit; }
    const std::vector<uint32_t>& taken() const { return _taken; }

private:
    void join(uint32_t index, const osg::Vec3f& from)
    {
        if (!_hasAngle) return take(index, true);
        if (!_around[index].isUnlike) {
            const std::optional<osg::Vec3f> normal = normalAt(index);
            _around[index].isUnlike = !normal || std::abs(*normal * _normal) < _cosine;
        }
        const ReadPoint& point = _around[index];
        const osg::Vec3f step = point.place - from;
        const bool isInPlane = std::abs(step * _normal) <= _sine * step.length();
        if (!point.isUnlike || isInPlane) take(index, !point.isUnlike);
    }

    void take(uint32_t index, bool isCore)
    {
        _around[index].isTaken = true;
        _taken.push_back(index);
        if (isCore) _cores.push_back(index);
    }

    /// Of the plane through a point's nearest neighbours; none where there are too few.
    std::optional<osg::Vec3f> normalAt(uint32_t index)
    {
        constexpr size_t kFewest = 4;
        constexpr size_t kMost = 32;
        _ranked.clear();
        _around.forEachNear(_around[index].place, [&](uint32_t other, double square) {
            _ranked.emplace_back(square, other);
            return false;
        });
        if (_ranked.size() < kFewest) return std::nullopt;
        if (_ranked.size() > kMost) {
            std::nth_element(_ranked.begin(), _ranked.begin() + kMost, _ranked.end());
            _ranked.resize(kMost);
        }
        std::array<VelBrx::Position, kMost> positions;
        std::array<const VelBrx::Position*, kMost> pointers;
        for (size_t i = 0; i < _ranked.size(); ++i) {
            const osg::Vec3f& place = _around[_ranked[i].second].place;
            positions[i] = {place.x(), place.y(), place.z()};
            pointers[i] = &positions[i];
        }
        const std::array<float, 3> normal = VelBrx::planeNormal(pointers.data(), _ranked.size());
        return osg::Vec3f(normal[0], normal[1], normal[2]);
    }

    Surroundings& _around;
    const size_t _limit;
    const bool _hasAngle;
    const double _cosine;
    const double _sine;
    osg::Vec3f _normal; ///< of the first point
    std::vector<uint32_t> _taken;
    std::vector<uint32_t> _cores;                     ///< that growth goes on from
    std::vector<uint32_t> _near;                      ///< of one point
    std::vector<std::pair<double, uint32_t>> _ranked; ///< likewise
};

} // namespace

Status GrownPoints::grow(const GrownPlace& place, const std::vector<GrowthStore>& stores,
                         EditControl& control)
{
    Surroundings around(place, stores, control);
    Growth growth(place, around);
    if (Status begun = growth.begin(place); !begun) return begun;
    growth.run(control);
    _isCut = growth.isFull();
    _cellsUnreadable = around.unreadable();
    constexpr double kRounding = 1e-3; // of distances in single precision, generously
    for (const uint32_t index : growth.taken()) {
        const ReadPoint& point = around[index];
        _places[stores[point.store].octree].push_back(point.record);
        _bounds.expandBy(place.from + osg::Vec3d(point.place));
    }
    for (int axis = 0; axis < 3; ++axis) {
        _bounds._min[axis] -= kRounding * place.distance;
        _bounds._max[axis] += kRounding * place.distance;
    }
    for (auto& [octree, places] : _places) {
        std::sort(places.begin(), places.end());
        places.erase(std::unique(places.begin(), places.end()), places.end());
    }
    return {};
}

const std::vector<GrownPoints::Place>& GrownPoints::of(const OctreeInfo& octree) const
{
    static const std::vector<Place> none;
    const auto found = _places.find(&octree);
    return found == _places.end() ? none : found->second;
}
