#include "edit/PlaceFilter.h"

#include "edit/RecordScreenTest.h"
#include "edit/ScreenRegion.h"

#include <cfloat>
#include <cmath>
#include <limits>

using namespace VelOsgDBBrx;

namespace {

constexpr int kBlock = RecordBlock::kSize;
using Linear = RecordBlock::Linear;
using Cover = PolygonArea::Cover;
using Planes = osg::Polytope::PlaneList;

/// How the records of a store lie in the world.
struct Frame
{
    osg::Vec3d scale;
    osg::Matrixd localToWorld;

    /// Records to a coordinate: column `j` of what follows the store's place.
    Linear column(int j, const osg::Matrixd& behind = osg::Matrixd()) const
    {
        const osg::Matrixd m = osg::Matrixd::scale(scale) * localToWorld * behind;
        return {m(0, j), m(1, j), m(2, j), m(3, j)};
    }
};

VELBRX_VECTOR_CLONES
void evaluate(const RecordBlock& block, const Linear& factors, double* values)
{
    const Linear f = factors;
    for (int i = 0; i < kBlock; ++i)
        values[i] = block.apply(f, i);
}

VELBRX_VECTOR_CLONES
void keepWithin(const double* values, double low, double high, uint8_t* accepted)
{
    int64_t within[kBlock]; // as wide as the values: the loop keeps to whole registers
    for (int i = 0; i < kBlock; ++i)
        within[i] = (values[i] >= low) & (values[i] <= high);
    for (int i = 0; i < kBlock; ++i)
        accepted[i] &= static_cast<uint8_t>(within[i]);
}

VELBRX_VECTOR_CLONES
void keepWithin(const RecordBlock& block, const Linear& factors, double low, double high, uint8_t* accepted)
{
    double values[kBlock];
    evaluate(block, factors, values);
    keepWithin(values, low, high, accepted);
}

Cover coverOf(const ValueRange& range, double low, double high)
{
    if (high < range.low || low > range.high) return Cover::NONE;
    return low >= range.low && high <= range.high ? Cover::ALL : Cover::SOME;
}

Cover both(Cover a, Cover b)
{
    if (a == Cover::NONE || b == Cover::NONE) return Cover::NONE;
    return a == Cover::ALL && b == Cover::ALL ? Cover::ALL : Cover::SOME;
}

/// A place of the world, or all but it.
class WorldPlaceFilter : public PlaceFilter
{
public:
    explicit WorldPlaceFilter(bool outside) : _outside(outside) {}

    void keep(const RecordBlock& block, uint8_t* accepted) const final
    {
        uint8_t inside[kBlock];
        test(block, inside);
        const uint8_t left = _outside;
        for (int i = 0; i < kBlock; ++i)
            accepted[i] &= inside[i] ^ left;
    }

    bool mayPass(const CellRegion& cell) const final
    {
        return cover(cell) != (_outside ? Cover::ALL : Cover::NONE);
    }

private:
    /// 1 inside, else 0.
    virtual void test(const RecordBlock& block, uint8_t* inside) const = 0;
    virtual Cover cover(const CellRegion& cell) const = 0;

    const bool _outside;
};

class MapFilter : public WorldPlaceFilter
{
public:
    MapFilter(const PolygonArea& area, const ValueRange& heights, const Frame& frame, bool outside)
        : WorldPlaceFilter(outside), _area(area), _heights(heights), _x(frame.column(0)), _y(frame.column(1)),
          _z(frame.column(2))
    {
    }

private:
    void test(const RecordBlock& block, uint8_t* inside) const override
    {
        double x[kBlock];
        double y[kBlock];
        evaluate(block, _x, x);
        evaluate(block, _y, y);
        _area.test(x, y, inside);
        if (!_heights.isWhole()) keepWithin(block, _z, _heights.low, _heights.high, inside);
    }

    Cover cover(const CellRegion& cell) const override
    {
        return both(coverOf(_heights, cell.low.z(), cell.high.z()),
                    _area.cover({cell.low.x(), cell.low.y()}, {cell.high.x(), cell.high.y()}));
    }

    const PolygonArea& _area;
    const ValueRange _heights;
    const Linear _x;
    const Linear _y;
    const Linear _z;
};

class BoxFilter : public WorldPlaceFilter
{
public:
    BoxFilter(const BoxPlace& box, const Frame& frame, bool outside)
        : WorldPlaceFilter(outside), _box(box), _axes{frame.column(0), frame.column(1), frame.column(2)}
    {
    }

private:
    void test(const RecordBlock& block, uint8_t* inside) const override
    {
        std::fill_n(inside, kBlock, uint8_t{1});
        for (int axis = 0; axis < 3; ++axis)
            keepWithin(block, _axes[axis], _box.low[axis], _box.high[axis], inside);
    }

    Cover cover(const CellRegion& cell) const override
    {
        Cover whole = Cover::ALL;
        for (int axis = 0; axis < 3; ++axis)
            whole = both(whole, coverOf({_box.low[axis], _box.high[axis]}, cell.low[axis], cell.high[axis]));
        return whole;
    }

    const BoxPlace _box;
    const std::array<Linear, 3> _axes;
};

class SphereFilter : public WorldPlaceFilter
{
public:
    SphereFilter(const SpherePlace& sphere, const Frame& frame, bool outside)
        : WorldPlaceFilter(outside), _sphere(sphere), _axes{frame.column(0), frame.column(1), frame.column(2)}
    {
    }

private:
    void test(const RecordBlock& block, uint8_t* inside) const override
    {
        double squares[kBlock] = {};
        for (int axis = 0; axis < 3; ++axis)
            addSquares(block, _axes[axis], _sphere.center[axis], squares);
        std::fill_n(inside, kBlock, uint8_t{1});
        keepWithin(squares, 0, _sphere.radius * _sphere.radius, inside);
    }

    Cover cover(const CellRegion& cell) const override
    {
        osg::Vec3d nearest;
        osg::Vec3d farthest;
        for (int axis = 0; axis < 3; ++axis) {
            const double below = cell.low[axis] - _sphere.center[axis];
            const double above = cell.high[axis] - _sphere.center[axis];
            nearest[axis] = std::max({below, -above, 0.0});
            farthest[axis] = std::max(-below, above);
        }
        const double square = _sphere.radius * _sphere.radius;
        if (nearest.length2() > square) return Cover::NONE;
        return farthest.length2() <= square ? Cover::ALL : Cover::SOME;
    }

    static void addSquares(const RecordBlock& block, const Linear& factors, double center, double* squares);

    const SpherePlace _sphere;
    const std::array<Linear, 3> _axes;
};

VELBRX_VECTOR_CLONES
void SphereFilter::addSquares(const RecordBlock& block, const Linear& factors, double center, double* squares)
{
    const Linear f = factors;
    for (int i = 0; i < kBlock; ++i) {
        const double distance = block.apply(f, i) - center;
        squares[i] += distance * distance;
    }
}

/// A range of heights in the world.
class HeightFilter : public PlaceFilter
{
public:
    HeightFilter(const ValueRange& range, const Frame& frame) : _range(range), _z(frame.column(2)) {}

    void keep(const RecordBlock& block, uint8_t* accepted) const override
    {
        keepWithin(block, _z, _range.low, _range.high, accepted);
    }

    bool mayPass(const CellRegion& cell) const override
    {
        return coverOf(_range, cell.low.z(), cell.high.z()) != Cover::NONE;
    }

private:
    const ValueRange _range;
    const Linear _z;
};

/// What the mask of a screen polygon covers, or all but that.
class ScreenFilter : public PlaceFilter
{
public:
    ScreenFilter(const ScreenPlace& place, const ScreenMask& mask, const Frame& frame, bool outside)
        : _test(frame.scale, frame.localToWorld * place.vpw, {}, mask, outside)
    {
        if (!outside) rectanglePlanes(place.polygon, place.height, frame.localToWorld * place.vpw, _bounds);
    }

    void keep(const RecordBlock& block, uint8_t* accepted) const override
    {
        uint8_t covered[kBlock];
        _test.test(block, covered);
        for (int i = 0; i < kBlock; ++i)
            accepted[i] &= covered[i];
    }

    bool mayPass(const CellRegion& cell) const override { return !cell.box.isOutside(_bounds); }

private:
    const RecordScreenTest _test;
    Planes _bounds; ///< of what is covered
};

/// What is in front of all else under a polygon of the screen.
class FrontFilter : public PlaceFilter
{
public:
    FrontFilter(const FrontSurface& surface, const Frame& frame)
        : _surface(surface), _projection(surface, frame.scale, frame.localToWorld)
    {
    }

    void keep(const RecordBlock& block, uint8_t* accepted) const override
    {
        _surface.keep(_projection, block, accepted);
    }

    bool mayPass(const CellRegion&) const override { return true; }

private:
    const FrontSurface& _surface;
    const FrontSurface::Projection _projection;
};

/// Points that have grown.
class GrownFilter : public WorldPlaceFilter
{
public:
    GrownFilter(const GrownPoints& grown, const OctreeInfo& octree, bool outside)
        : WorldPlaceFilter(outside), _places(grown.of(octree)), _bounds(grown.bounds())
    {
    }

private:
    void test(const RecordBlock& block, uint8_t* inside) const override
    {
        for (int i = 0; i < kBlock; ++i) {
            const GrownPoints::Place place = {static_cast<int32_t>(block.x[i]),
                                              static_cast<int32_t>(block.y[i]),
                                              static_cast<int32_t>(block.z[i])};
            inside[i] = std::binary_search(_places.begin(), _places.end(), place);
        }
    }

    Cover cover(const CellRegion& cell) const override
    {
        if (_places.empty()) return Cover::NONE;
        for (int axis = 0; axis < 3; ++axis)
            if (cell.high[axis] < _bounds._min[axis] || cell.low[axis] > _bounds._max[axis])
                return Cover::NONE;
        return Cover::SOME;
    }

    const std::vector<GrownPoints::Place>& _places;
    const osg::BoundingBoxd& _bounds;
};

/// The positive side of all planes of one group at least.
class PlanesFilter : public PlaceFilter
{
public:
    /// Groups of `inGroup` planes in world coordinates.
    PlanesFilter(const std::vector<osg::Vec4d>& world, size_t inGroup, const Frame& frame)
    {
        for (const osg::Vec4d& plane : toLocal(world, frame.localToWorld)) {
            if (_groups.empty() || _groups.back().local.size() == inGroup) _groups.emplace_back();
            _groups.back().local.emplace_back(plane);
            _groups.back().ofRecords.push_back(
                {plane[0] * frame.scale[0], plane[1] * frame.scale[1], plane[2] * frame.scale[2], plane[3]});
        }
    }

    void keep(const RecordBlock& block, uint8_t* accepted) const override
    {
        uint8_t inOne[kBlock] = {};
        for (const Group& group : _groups) {
            uint8_t inAll[kBlock];
            std::fill_n(inAll, kBlock, uint8_t{1});
            for (const Linear& plane : group.ofRecords)
                keepWithin(block, plane, 0, std::numeric_limits<double>::infinity(), inAll);
            for (int i = 0; i < kBlock; ++i)
                inOne[i] |= inAll[i];
        }
        for (int i = 0; i < kBlock; ++i)
            accepted[i] &= inOne[i];
    }

    bool mayPass(const CellRegion& cell) const override
    {
        return std::any_of(_groups.begin(), _groups.end(),
                           [&](const Group& group) { return !cell.box.isOutside(group.local); });
    }

private:
    struct Group
    {
        Planes local;
        std::vector<Linear> ofRecords;
    };

    std::vector<Group> _groups;
};

/// What polygons of the screen select, applied one after the other; or all else.
class PolygonsFilter : public PlaceFilter
{
public:
    PolygonsFilter(const std::vector<ScreenPolygon>& polygons, const std::vector<PolygonArea>& areas,
                   bool keepsSelected, const Frame& frame)
        : _keepsSelected(keepsSelected)
    {
        for (size_t i = 0; i < polygons.size(); ++i) {
            const ScreenPolygon& polygon = polygons[i];
            std::vector<osg::Vec2d> fromTop = polygon.vertices;
            for (osg::Vec2d& vertex : fromTop)
                vertex.y() = -vertex.y();
            Planes bounds;
            if (!rectanglePlanes(fromTop, 0, frame.localToWorld * polygon.vpw, bounds)) continue;
            _polygons.push_back({areas[i], frame.column(0, polygon.vpw), frame.column(1, polygon.vpw),
                                 frame.column(3, polygon.vpw), polygon.selects, std::move(bounds)});
        }
    }

    void keep(const RecordBlock& block, uint8_t* accepted) const override
    {
        uint8_t selected[kBlock] = {};
        for (const Polygon& polygon : _polygons) {
            double x[kBlock];
            double y[kBlock];
            uint8_t inside[kBlock];
            project(block, polygon, x, y);
            polygon.area.test(x, y, inside);
            for (int i = 0; i < kBlock; ++i)
                selected[i] = inside[i] ? polygon.selects : selected[i];
        }
        const uint8_t left = !_keepsSelected;
        for (int i = 0; i < kBlock; ++i)
            accepted[i] &= selected[i] ^ left;
    }

    bool mayPass(const CellRegion& cell) const override
    {
        return !_keepsSelected || std::any_of(_polygons.begin(), _polygons.end(), [&](const Polygon& p) {
            return p.selects && !cell.box.isOutside(p.bounds);
        });
    }

private:
    struct Polygon
    {
        const PolygonArea& area;
        Linear x; ///< to pixels, times w
        Linear y;
        Linear w;
        bool selects;
        Planes bounds; ///< around what is inside
    };

    static void project(const RecordBlock& block, const Polygon& polygon, double* x, double* y);

    const bool _keepsSelected;
    std::vector<Polygon> _polygons;
};

/// Records to pixels; what is behind the camera has none.
VELBRX_VECTOR_CLONES
void PolygonsFilter::project(const RecordBlock& block, const Polygon& polygon, double* x, double* y)
{
    const Linear xFactors = polygon.x;
    const Linear yFactors = polygon.y;
    const Linear wFactors = polygon.w;
    for (int i = 0; i < kBlock; ++i) {
        const double w = block.apply(wFactors, i);
        const double inFront = w < 0 ? std::numeric_limits<double>::quiet_NaN() : w;
        x[i] = block.apply(xFactors, i) / inFront;
        y[i] = block.apply(yFactors, i) / inFront;
    }
}

/// Adds the rule of the place itself; there is none for everywhere.
class PlaceRule
{
public:
    PlaceRule(const SelectionAreas& areas, const OctreeInfo& octree, const Frame& frame,
              PlaceFilters& filters)
        : _areas(areas), _octree(octree), _frame(frame), _filters(filters)
    {
    }

    void operator()(const Everywhere&) const {}
    void operator()(const ScreenPlace& place) const
    {
        add<ScreenFilter>(place, *_areas.mask);
        if (_areas.front) _filters.push_back(std::make_unique<FrontFilter>(*_areas.front, _frame));
    }
    void operator()(const MapPlace& place) const { add<MapFilter>(*_areas.map, place.heights); }
    void operator()(const BoxPlace& place) const { add<BoxFilter>(place); }
    void operator()(const SpherePlace& place) const { add<SphereFilter>(place); }
    void operator()(const GrownPlace&) const
    {
        _filters.push_back(std::make_unique<GrownFilter>(*_areas.grown, _octree, _areas.selection.outside));
    }

private:
    template <class Filter, class... Of>
    void add(const Of&... of) const
    {
        _filters.push_back(std::make_unique<Filter>(of..., _frame, _areas.selection.outside));
    }

    const SelectionAreas& _areas;
    const OctreeInfo& _octree;
    const Frame& _frame;
    PlaceFilters& _filters;
};

/// Adds the rules of what the picture leaves out.
void addDrawn(const SelectionAreas& areas, const Frame& frame, PlaceFilters& filters)
{
    const DrawnPoints& drawn = areas.selection.drawn;
    const auto addPlanes = [&](const std::vector<osg::Vec4d>& planes, size_t inGroup) {
        if (!planes.empty()) filters.push_back(std::make_unique<PlanesFilter>(planes, inGroup, frame));
    };
    addPlanes(drawn.clipPlanes, drawn.clipPlanes.size());
    addPlanes(drawn.sectionPlanes, drawn.planesPerSection > 0 ? static_cast<size_t>(drawn.planesPerSection)
                                                              : drawn.sectionPlanes.size());
    for (size_t i = 0; i < drawn.segments.size(); ++i)
        filters.push_back(std::make_unique<PolygonsFilter>(drawn.segments[i].polygons, areas.segments[i],
                                                           !drawn.segments[i].hidesSelected, frame));
}

} // namespace

CellRegion::CellRegion(const CellBox& localBox, const osg::Matrixd& localToWorld) : box(localBox)
{
    const osg::Matrixd& m = localToWorld;
    const osg::Vec3d center = box.center * m;
    for (int j = 0; j < 3; ++j) {
        const double reach = std::abs(m(0, j)) * box.half[0] + std::abs(m(1, j)) * box.half[1] +
                             std::abs(m(2, j)) * box.half[2] +
                             16 * DBL_EPSILON * (std::abs(center[j]) + std::abs(m(3, j)));
        low[j] = center[j] - reach;
        high[j] = center[j] + reach;
    }
}

PlaceFilters placeFilters(const SelectionAreas& areas, const OctreeInfo& octree,
                          const osg::Matrixd& localToWorld)
{
    const PointSelection& selection = areas.selection;
    const Frame frame{octree.scale, localToWorld};
    PlaceFilters filters;
    std::visit(PlaceRule(areas, octree, frame, filters), selection.place);
    if (!selection.attributes.height.isWhole())
        filters.push_back(std::make_unique<HeightFilter>(selection.attributes.height, frame));
    if (!selection.undrawnToo) addDrawn(areas, frame, filters);
    if (!selection.selected.empty())
        filters.push_back(std::make_unique<PolygonsFilter>(selection.selected, areas.selected, true, frame));
    return filters;
}
