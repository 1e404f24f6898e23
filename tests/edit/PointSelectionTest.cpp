#include "edit/SelectionScan.h"
#include "edit/StoreEdit.h"
#include "loading/UnwrittenClasses.h"
#include "tests/support/BuildStore.h"
#include "tests/support/CullScene.h"
#include "tests/support/TestLas.h"

#include <VelBrx/SampleSurvey.h>
#include <VelOsgDBBrx/CellData.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <numeric>
#include <random>

using namespace VelOsgDBBrx;
using Hidden = SelectionTest::Hidden;

namespace {

constexpr size_t kStart = 96; ///< where a LAS header says where its points are

/// What a record says, read from its bytes.
struct Record
{
    Record(const Bytes& file, size_t point)
    {
        uint32_t start = 0;
        std::memcpy(&start, &file[kStart], sizeof start);
        bytes = &file[start + 36 * point];
    }

    template <class T>
    T at(size_t byte) const
    {
        T value;
        std::memcpy(&value, bytes + byte, sizeof value);
        return value;
    }

    const uint8_t* bytes;
};

/// A store of points by lot, whose attributes are by lot too.
std::string storeByLot(const TempFolder& folder, int count, unsigned seed)
{
    const std::string name = "cloud" + std::to_string(seed);
    Bytes file = LasRecords(writeMarkedStore(folder, count, seed, name)).bytes();
    std::mt19937 random(seed);
    for (int i = 0; i < count; ++i) {
        auto* record = const_cast<uint8_t*>(Record(file, i).bytes);
        const auto intensity = static_cast<uint16_t>(random());
        const auto angle = static_cast<int16_t>(static_cast<int>(random() % 301) * 100 - 15000);
        std::memcpy(record + 12, &intensity, 2);
        record[14] = static_cast<uint8_t>(random() % 6 | random() % 6 << 4);
        std::memcpy(record + 18, &angle, 2);
    }
    return folder.write(name, file);
}

/// A store of a survey, whose tree follows the ground.
std::string storeOfSurvey(const TempFolder& folder)
{
    VelBrx::SampleOptions options;
    options.output = folder.file("survey.las");
    options.points = 30000;
    EXPECT_TRUE(VelBrx::writeSampleSurvey(options));
    buildStoreOf(options.output, folder.file("survey.brx"));
    return folder.file("survey.brx");
}

/// A store, where it stands in the world, and classes that are edited and not saved.
struct PlacedStore
{
    PlacedStore(const std::string& path, const osg::Matrixd& localToWorld)
        : place(localToWorld), records(path), store(path)
    {
        std::mt19937 random(9);
        for (size_t i = 0; i < records.size(); ++i)
            classes.push_back(static_cast<uint8_t>(random() % 8));
        for (CellData* cell : allCells(*store.octree())) {
            std::vector<uint8_t> current;
            for (const VelBrx::Segment& segment : cell->record.segments)
                current.insert(current.end(), &classes[segment.first],
                               &classes[segment.first] + segment.count);
            const std::vector<uint8_t> written(current.size(), 200);
            UnwrittenClasses::instance().set({std::make_shared<CellPlace>(*cell),
                                              std::make_shared<const std::vector<uint8_t>>(written),
                                              std::make_shared<const std::vector<uint8_t>>(current)});
        }
    }

    ~PlacedStore()
    {
        for (const CellData* cell : allCells(*store.octree()))
            UnwrittenClasses::instance().forget(cell->identifier);
    }

    osg::Vec3d middle() const { return (store.octree()->min + store.octree()->max) * 0.5 * place; }
    double size() const { return (store.octree()->max - store.octree()->min).x() * place.getScale().x(); }

    osg::Vec3d world(size_t point) const { return (records.position(point) - records.offset()) * place; }

    /// Which points a test reaches, asked for the cells that it names.
    std::vector<bool> reached(const PointTest& test, size_t* tested = nullptr) const
    {
        std::vector<bool> found(records.size());
        for (const CellData* cell : test.cells())
            for (const VelBrx::Segment& segment : cell->record.segments)
                for (int64_t i = 0; i < segment.count; i += PointTest::kBlock) {
                    uint8_t accepted[PointTest::kBlock];
                    const size_t first = static_cast<size_t>(segment.first + i);
                    const int count =
                        static_cast<int>(std::min<int64_t>(PointTest::kBlock, segment.count - i));
                    test.test(Record(records.bytes(), first).bytes, count, &classes[first], accepted);
                    for (int j = 0; j < count; ++j)
                        found[first + j] = accepted[j];
                    if (tested) *tested += count;
                }
        return found;
    }

    void scan(SelectionAreas& areas, Hidden hidden) const
    {
        EditControl control;
        SelectionScan scan;
        store.octree()->transform = place;
        const VelBrx::Status scanned = scan.run(areas, {store.octree()}, CloudPlaces(), hidden, control);
        EXPECT_TRUE(scanned) << scanned.message();
    }

    const osg::Matrixd place;
    const LasRecords records;
    const LoadedStore store;
    std::vector<uint8_t> classes;
};

bool isIn(const ValueRange& range, double value)
{
    return value >= range.low && value <= range.high;
}

/// What `selection` reaches, point by point and with nothing of the library.
class Expectation
{
public:
    Expectation(const PointSelection& selection, const PlacedStore& store, Hidden hidden)
        : _selection(selection), _store(store), _hidden(hidden)
    {
        const auto* place = std::get_if<ScreenPlace>(&selection.place);
        if (!place) return;
        Screen screen;
        screen.width = place->width;
        screen.height = place->height;
        screen.projection = place->vpw * osg::Matrixd::inverse(Screen(screen).vpw());
        _underMask = pointsUnder(store.records, place->polygon, screen, store.place);
        if (place->frontTolerance) findNearest(*place);
    }

    bool operator()(size_t i) const
    {
        if (!isOfHidden(i)) return false;
        const osg::Vec3d p = _store.world(i);
        const auto in = [&](const auto& place) { return isInPlace(place, p, i); };
        const auto* screen = std::get_if<ScreenPlace>(&_selection.place);
        return std::visit(in, _selection.place) != _selection.outside &&
               (_selection.selected.empty() || isSelected(_selection.selected, p)) && hasAttributes(i, p) &&
               (_selection.undrawnToo || isDrawn(p, _store.classes[i])) &&
               (!screen || !screen->frontTolerance || isInFront(*screen, i));
    }

private:
    struct Seen
    {
        int column;
        int row;
        double depth; ///< from the eye, or from a plane across the view
    };

    Seen see(const ScreenPlace& place, size_t i) const
    {
        const osg::Vec3d p = _store.world(i);
        const osg::Vec4d window = osg::Vec4d(p, 1) * place.vpw;
        const osg::Matrixd back = osg::Matrixd::inverse(place.vpw);
        const double x = window.x() / window.w();
        const double y = window.y() / window.w();
        const auto unprojected = [&](double z) {
            const osg::Vec4d q = osg::Vec4d(x, y, z, 1) * back;
            return osg::Vec3d(q.x(), q.y(), q.z()) / q.w();
        };
        const osg::Vec3d along = unprojected(0.6) - unprojected(0.4); // of this pixel, away from the eye
        osg::Vec3d view = along;
        const bool isOrtho = place.vpw(0, 3) == 0 && place.vpw(1, 3) == 0 && place.vpw(2, 3) == 0;
        if (!isOrtho) view = osg::Vec3d(place.vpw(0, 3), place.vpw(1, 3), place.vpw(2, 3));
        view.normalize();
        return {static_cast<int>(x), static_cast<int>(place.height - y), p * view};
    }

    void findNearest(const ScreenPlace& place)
    {
        for (size_t i = 0; i < _underMask.size(); ++i) {
            if (!_underMask[i] || !isOfHidden(i)) continue;
            if (!_selection.undrawnToo && !isDrawn(_store.world(i), _store.classes[i])) continue;
            const Seen seen = see(place, i);
            const auto [depth, isNew] = _nearest.try_emplace({seen.column, seen.row}, seen.depth);
            depth->second = std::min(depth->second, seen.depth);
        }
    }

    bool isInFront(const ScreenPlace& place, size_t i) const
    {
        const Seen seen = see(place, i);
        const int radius = static_cast<int>(std::ceil(place.frontRadius));
        for (int column = seen.column - radius; column <= seen.column + radius; ++column)
            for (int row = seen.row - radius; row <= seen.row + radius; ++row) {
                const auto nearest = _nearest.find({column, row});
                if (nearest != _nearest.end() && seen.depth - nearest->second > *place.frontTolerance)
                    return false;
            }
        return true;
    }

    bool isOfHidden(size_t i) const
    {
        return _hidden == Hidden::ANY ||
               bool(_store.records.flags(i) & kHiddenBits) == (_hidden == Hidden::HIDDEN);
    }

    bool isInPlace(const GrownPlace&, const osg::Vec3d&, size_t) const
    {
        return false;
    } // has a test of its own
    bool isInPlace(const Everywhere&, const osg::Vec3d&, size_t) const { return true; }
    bool isInPlace(const ScreenPlace&, const osg::Vec3d&, size_t i) const { return _underMask[i]; }
    bool isInPlace(const MapPlace& place, const osg::Vec3d& p, size_t) const
    {
        return contains(place.polygon, p.x(), p.y()) && isIn(place.heights, p.z());
    }
    bool isInPlace(const BoxPlace& box, const osg::Vec3d& p, size_t) const
    {
        return isIn({box.low.x(), box.high.x()}, p.x()) && isIn({box.low.y(), box.high.y()}, p.y()) &&
               isIn({box.low.z(), box.high.z()}, p.z());
    }
    bool isInPlace(const SpherePlace& sphere, const osg::Vec3d& p, size_t) const
    {
        return (p - sphere.center).length() <= sphere.radius;
    }

    static bool isSelected(const std::vector<ScreenPolygon>& polygons, const osg::Vec3d& p)
    {
        bool selected = false;
        for (const ScreenPolygon& polygon : polygons) {
            const osg::Vec4d window = osg::Vec4d(p, 1) * polygon.vpw;
            if (window.w() >= 0 &&
                contains(polygon.vertices, window.x() / window.w(), window.y() / window.w()))
                selected = polygon.selects;
        }
        return selected;
    }

    bool hasAttributes(size_t i, const osg::Vec3d& p) const
    {
        const AttributeRanges& ranges = _selection.attributes;
        const Record record(_store.records.bytes(), i);
        return ranges.classes[_store.classes[i]] && isIn(ranges.height, p.z()) &&
               isIn(ranges.returnNumber, record.at<uint8_t>(14) % 16) &&
               isIn(ranges.numberOfReturns, record.at<uint8_t>(14) / 16) &&
               isIn(ranges.intensity, record.at<uint16_t>(12)) &&
               isIn(ranges.source, record.at<uint16_t>(20)) && isIn(ranges.gpsTime, record.at<double>(22)) &&
               isIn(ranges.scanAngle, std::round(record.at<int16_t>(18) * 6.0) / 1000) &&
               ranges.hidden.value_or(_store.records.flags(i) & kHiddenBits) ==
                   bool(_store.records.flags(i) & kHiddenBits);
    }

    bool isDrawn(const osg::Vec3d& p, uint8_t code) const
    {
        const DrawnPoints& drawn = _selection.drawn;
        const auto isPositive = [&](const osg::Vec4d& plane) { return plane * osg::Vec4d(p, 1) >= 0; };
        if (!std::all_of(drawn.clipPlanes.begin(), drawn.clipPlanes.end(), isPositive)) return false;
        const auto& planes = drawn.sectionPlanes;
        bool inSection = planes.empty();
        const size_t group = drawn.planesPerSection > 0 ? drawn.planesPerSection : planes.size();
        for (size_t i = 0; i < planes.size(); i += group)
            inSection = inSection || std::all_of(&planes[i], &planes[i] + group, isPositive);
        for (const ScreenSegment& segment : drawn.segments)
            if (isSelected(segment.polygons, p) == segment.hidesSelected) return false;
        return inSection && drawn.shownClasses[code];
    }

    const PointSelection& _selection;
    const PlacedStore& _store;
    const Hidden _hidden;
    std::vector<bool> _underMask;                   ///< of a screen place
    std::map<std::pair<int, int>, double> _nearest; ///< of the pixels under the mask
};

/// Selections drawn by lot around a cube of `size` at `middle`.
class Lots
{
public:
    Lots(unsigned seed, const osg::Vec3d& middle, double size) : _random(seed), _middle(middle), _size(size)
    {
    }

    bool oneIn(int n) { return _random() % n == 0; }
    double between(double low, double high)
    {
        return std::uniform_real_distribution<double>(low, high)(_random);
    }
    osg::Vec3d around(double reach)
    {
        return _middle + osg::Vec3d(between(-1, 1), between(-1, 1), between(-1, 1)) * reach * _size;
    }

    PointSelection selection(int kind)
    {
        PointSelection s;
        if (kind == 1) s.place = screen();
        if (kind == 5) s.place = frontOf(screen());
        if (kind == 2) s.place = MapPlace{mapPolygon(), oneIn(2) ? ValueRange() : heights()};
        if (kind == 3)
            s.place = BoxPlace{around(0.3) - osg::Vec3d(1, 1, 1) * 0.3 * _size,
                               around(0.3) + osg::Vec3d(1, 1, 1) * 0.3 * _size};
        if (kind == 4) s.place = SpherePlace{around(0.4), between(0.1, 0.6) * _size};
        s.outside = kind && kind != 5 && oneIn(3);
        if (oneIn(3)) s.selected = polygons(true);
        fill(s.attributes);
        fill(s.drawn);
        s.undrawnToo = oneIn(5);
        return s;
    }

private:
    ValueRange heights()
    {
        ValueRange range{_middle.z() - between(0, 0.5) * _size, _middle.z() + between(0, 0.5) * _size};
        if (oneIn(3)) range.low = ValueRange().low;
        return range;
    }

    std::vector<osg::Vec2d> mapPolygon()
    {
        std::vector<osg::Vec2d> polygon;
        for (int i = oneIn(2) ? 3 : 500; i > 0; --i) {
            const osg::Vec3d vertex = around(0.7);
            polygon.emplace_back(vertex.x(), vertex.y());
        }
        return polygon;
    }

    /// Looks from around the cube or from inside it, in perspective or without; pixels of 200 x 150.
    osg::Matrixd camera()
    {
        Screen screen;
        screen.view.makeLookAt(around(oneIn(3) ? 0.4 : 2), around(0.2), osg::Vec3d(0.1, 0.2, 1));
        if (oneIn(3))
            screen.projection.makeOrtho(-_size, _size, -0.7 * _size, 0.8 * _size, -9 * _size, 9 * _size);
        else
            screen.projection.makePerspective(50, 1.3, 0.01 * _size, 10 * _size);
        return screen.vpw();
    }

    std::vector<osg::Vec2d> pixels()
    {
        std::vector<osg::Vec2d> polygon;
        for (int i = 3 + _random() % 5; i > 0; --i)
            polygon.emplace_back(between(-50, 250), between(-40, 190));
        return polygon;
    }

    ScreenPlace screen() { return {pixels(), camera(), 200, 150}; }

    ScreenPlace frontOf(ScreenPlace place)
    {
        place.frontTolerance = between(0, 0.1) * _size;
        place.frontRadius = oneIn(4) ? 0 : between(0.1, 9);
        return place;
    }

    std::vector<ScreenPolygon> polygons(bool firstSelects)
    {
        std::vector<ScreenPolygon> list = {{pixels(), camera(), firstSelects}};
        while (oneIn(2))
            list.push_back({pixels(), camera(), oneIn(2)});
        return list;
    }

    std::bitset<256> mostClasses()
    {
        std::bitset<256> classes = std::bitset<256>().set();
        classes.reset(_random() % 8).reset(_random() % 8);
        return classes;
    }

    ValueRange range(double low, double high)
    {
        ValueRange lot{between(low, (low + high) / 2), between((low + high) / 2, high)};
        return oneIn(2) ? lot : ValueRange{std::round(lot.low), std::round(lot.high)};
    }

    void fill(AttributeRanges& attributes)
    {
        if (oneIn(3)) attributes.classes = mostClasses();
        if (oneIn(6)) attributes.returnNumber = range(0, 5);
        if (oneIn(6)) attributes.numberOfReturns = range(0, 5);
        if (oneIn(6)) attributes.intensity = range(0, 65535);
        if (oneIn(6)) attributes.height = heights();
        if (oneIn(6)) attributes.source = range(0, 3000);
        if (oneIn(6)) attributes.gpsTime = range(1e5, 1.03e5);
        if (oneIn(4))
            attributes.scanAngle = {std::round(between(-150, 0)) * 6 / 10, // angles of the stores
                                    std::round(between(0, 150)) * 6 / 10};
        if (oneIn(6)) attributes.hidden = oneIn(2);
    }

    void fill(DrawnPoints& drawn)
    {
        const auto plane = [this] {
            const osg::Vec3d normal = around(1) - _middle;
            return osg::Vec4d(normal, -(normal * around(0.3)) + 0.3 * _size * normal.length());
        };
        if (oneIn(3)) drawn.clipPlanes = {plane(), plane()};
        if (oneIn(3)) {
            drawn.sectionPlanes = {plane(), plane(), plane(), plane()};
            drawn.planesPerSection = oneIn(3) ? 0 : 2;
        }
        if (oneIn(3)) drawn.shownClasses = mostClasses();
        while (oneIn(3))
            drawn.segments.push_back({oneIn(2), polygons(oneIn(3))});
    }

    std::mt19937 _random;
    const osg::Vec3d _middle;
    const double _size;
};

Polygon flower(const osg::Vec2d& middle, double radius, int vertices)
{
    Polygon polygon;
    for (int i = 0; i < vertices; ++i) {
        const double angle = i * 2 * M_PI / vertices;
        polygon.push_back(middle +
                          osg::Vec2d(std::cos(angle), std::sin(angle)) * radius * std::cos(8 * angle));
    }
    return polygon;
}

/// Whether an area contains a place.
bool contains(const PolygonArea& area, double x, double y)
{
    const std::vector<double> xs(PointTest::kBlock, x);
    const std::vector<double> ys(PointTest::kBlock, y);
    uint8_t inside[PointTest::kBlock];
    area.test(xs.data(), ys.data(), inside);
    return inside[PointTest::kBlock - 1];
}

/// Places of a floor at x below 500, of a ramp that it touches at 500, and of an island beyond a gap of 100
/// in front of it, in centimetres, ten apart. `from` to `to`: the part of y.
std::vector<std::array<int, 3>> floorRampAndIsland(int from, int to)
{
    std::vector<std::array<int, 3>> places;
    for (int y = from; y < to; y += 10) {
        for (int x = -300; x < 500; x += 10)
            if (x <= -100 || x >= 0) places.push_back({x, y, 0});
        for (int step = 0; step < 40; ++step)
            places.push_back({500 + 7 * step, y, 7 * step});
    }
    return places;
}

} // namespace

TEST(PointSelectionTest, ReachesWhatItSaysInStoresThatAreTurnedAndScaledAfterAJourneyThroughItsText)
{
    const TempFolder folder;
    const PlacedStore stores[] = {
        {storeByLot(folder, 3000, 1), osg::Matrixd::translate(1234567, 7654321, 250)},
        {storeByLot(folder, 2000, 2),
         osg::Matrixd::rotate(0.7, osg::Vec3d(1, 2, 3)) * osg::Matrixd::translate(300, -40, 5)},
        {storeByLot(folder, 2500, 3), osg::Matrixd::scale(30, 50, 20) *
                                          osg::Matrixd::rotate(2, osg::Vec3d(3, -1, 1)) *
                                          osg::Matrixd::translate(-1e5, 5e6, 800)},
        {storeOfSurvey(folder), osg::Matrixd::translate(6e5, 5.2e6, 400)},
    };
    const osg::ref_ptr<ExactMaskTool> tool = new ExactMaskTool;
    std::map<int, size_t> reachedByKind;
    unsigned seed = 0;
    for (const PlacedStore& store : stores) {
        for (int i = 0; i < 150; ++i) {
            const int kind = i % 6;
            Lots lots(++seed, store.middle(), store.size());
            const PointSelection selection = lots.selection(kind);
            const Hidden hidden = static_cast<Hidden>(seed / 7 % 3);
            PointSelection read;
            const VelBrx::Status status = readSelection(selectionText(selection), read);
            ASSERT_TRUE(status) << status.message() << "\n" << selectionText(selection);
            ASSERT_EQ(selectionText(read), selectionText(selection));
            SelectionAreas areas(read, tool);
            ASSERT_TRUE(areas.status) << areas.status.message();
            store.scan(areas, hidden);
            const std::vector<bool> found =
                store.reached(SelectionTest(areas, *store.store.octree(), store.place, hidden));
            const Expectation expected(selection, store, hidden);
            for (size_t p = 0; p < found.size(); ++p) {
                ASSERT_EQ(found[p], expected(p))
                    << "point " << p << " of selection " << seed << ": " << selectionText(selection);
                reachedByKind[kind] += found[p];
            }
        }
    }
    for (int kind = 0; kind < 6; ++kind)
        EXPECT_GT(reachedByKind[kind], 5000u) << kind;
}

TEST(PointSelectionTest, GrowsOverTheNeighboursOfAPointInAllStores)
{
    // The far half lies in a store that is turned, so that it fits where it stands.
    const TempFolder folder;
    const osg::Vec3d at(2600000, 1200000, 400);
    const osg::Matrixd turn = osg::Matrixd::rotate(0.5, osg::Vec3d(0, 0, 1));
    const auto write = [&](const std::string& name, int from, int to, const osg::Matrixd& back) {
        TestLas las;
        las.scale = {0.0001, 0.0001, 0.0001};
        for (const std::array<int, 3>& place : floorRampAndIsland(from, to)) {
            const osg::Vec3d local = osg::Vec3d(place[0], place[1], place[2]) * 0.01 * back;
            las.addPoint(std::lround(local.x() * 1e4), std::lround(local.y() * 1e4),
                         std::lround(local.z() * 1e4));
        }
        buildStoreOf(folder.write(name + ".las", las.bytes()), folder.file(name + ".brx"));
        return folder.file(name + ".brx");
    };
    const auto placed = [&](const std::string& path, const osg::Matrixd& place) {
        return PlacedStore(path, osg::Matrixd::translate(LasRecords(path).offset()) * place *
                                     osg::Matrixd::translate(at));
    };
    const PlacedStore stores[] = {placed(write("near", 0, 200, osg::Matrixd()), osg::Matrixd()),
                                  placed(write("far", 200, 400, osg::Matrixd::inverse(turn)), turn)};
    constexpr size_t kFloor = 50 * 40;
    constexpr size_t kRamp = 40 * 40;
    constexpr size_t kIsland = 21 * 40;

    /// How many points of floor, ramp and island grow.
    struct Grown
    {
        size_t floor = 0;
        size_t ramp = 0;
        size_t island = 0;
        std::string note;
        std::string problem;
    };
    const auto grow = [&](const GrownPlace& place, bool outside = false) {
        PointSelection selection;
        selection.place = place;
        selection.outside = outside;
        PointSelection read;
        EXPECT_TRUE(readSelection(selectionText(selection), read));
        EXPECT_EQ(selectionText(read), selectionText(selection));
        SelectionAreas areas(read);
        EditControl control;
        SelectionScan scan;
        Grown grown;
        for (const PlacedStore& store : stores)
            store.store.octree()->transform = store.place;
        grown.problem = scan.run(areas, {stores[0].store.octree(), stores[1].store.octree()}, CloudPlaces(),
                                 Hidden::ANY, control)
                            .message();
        grown.note = scan.note();
        if (!grown.problem.empty()) return grown;
        for (const PlacedStore& store : stores) {
            const std::vector<bool> found =
                store.reached(SelectionTest(areas, *store.store.octree(), store.place, Hidden::ANY));
            for (size_t i = 0; i < found.size(); ++i) {
                const double x = store.world(i).x() - at.x();
                if (found[i]) ++(x > 4.99 ? grown.ramp : x < -0.5 ? grown.island : grown.floor);
            }
        }
        return grown;
    };
    const osg::Vec3d onFloor = at + osg::Vec3d(1, 1, 0.03);
    const Grown near = grow({onFloor, 0.15});
    EXPECT_EQ(near.problem, "");
    EXPECT_EQ(near.floor, kFloor);
    EXPECT_EQ(near.ramp, kRamp);
    EXPECT_EQ(near.island, 0u);
    EXPECT_EQ(near.note, "");
    EXPECT_EQ(grow({onFloor, 0.15}, true).island, kIsland);
    EXPECT_EQ(grow({onFloor, 1.05}).island, kIsland);

    const Grown plane = grow({onFloor, 0.25, 15.0});
    EXPECT_EQ(plane.floor, kFloor);
    EXPECT_LE(plane.ramp, 2u * 40);
    EXPECT_GE(grow({at + osg::Vec3d(6, 3, 1), 0.25, 15.0}).ramp, kRamp - 40);
    EXPECT_LE(grow({at + osg::Vec3d(6, 3, 1), 0.25, 15.0}).floor, 2u * 40);
    EXPECT_EQ(grow({onFloor, 0.25, 50.0}).ramp, kRamp);

    const Grown few = grow({onFloor, 0.15, std::nullopt, 100});
    EXPECT_EQ(few.floor, 100u);
    EXPECT_EQ(few.ramp + few.island, 0u);
    EXPECT_EQ(few.note, "growth ended at its limit of 100 points");
    EXPECT_NE(grow({at + osg::Vec3d(1, 1, 9), 0.5}).problem.find("no point is near enough"),
              std::string::npos);
    EXPECT_NE(grow({onFloor, 0.05, 15.0}).problem.find("no neighbours that make a plane"), std::string::npos);
}

TEST(PointSelectionTest, GrowsInAPlaneThroughCellsThatAreReadOnTheWay)
{
    const TempFolder folder;
    constexpr int kColumns = 400, kRows = 100;
    TestLas las;
    las.scale = {0.01, 0.01, 0.01};
    for (int i = 0; i < kColumns * kRows; ++i)
        las.addPoint(10 * (i % kColumns), 10 * (i / kColumns), 0);
    const std::string path = folder.file("floor.brx");
    buildStoreOf(folder.write("floor.las", las.bytes()), path);
    const PlacedStore store(path, osg::Matrixd::translate(LasRecords(path).offset()));
    OctreeInfo& octree = *store.store.octree();
    octree.transform = store.place;
    PointSelection selection;
    selection.place = GrownPlace{osg::Vec3d(0.2, 0.2, 0), 0.15, 10.0};
    SelectionAreas areas(selection);
    EditControl control;
    SelectionScan scan;
    const VelBrx::Status grown = scan.run(areas, {&octree}, CloudPlaces(), Hidden::ANY, control);
    ASSERT_TRUE(grown) << grown.message();
    const std::vector<bool> found = store.reached(SelectionTest(areas, octree, store.place, Hidden::ANY));
    EXPECT_EQ(std::count(found.begin(), found.end(), true), kColumns * kRows);
}

TEST(PointSelectionTest, ReadsNoCellThatItCannotReach)
{
    const TempFolder folder;
    const osg::Vec3d at(1e6, 5e6, 100);
    const PlacedStore store(storeByLot(folder, 20000, 7),
                            osg::Matrixd::rotate(0.3, osg::Vec3d(0, 0, 1)) * osg::Matrixd::translate(at));
    const auto square = [&](double x, double y, double half) {
        const osg::Vec2d c(at.x() + x, at.y() + y);
        return MapPlace{{c + osg::Vec2d(-half, -half), c + osg::Vec2d(half, -half),
                         c + osg::Vec2d(half, half), c + osg::Vec2d(-half, half)},
                        {}};
    };
    const osg::Vec3d corner(20, 20, 20);
    const osg::Matrixd fromAbove = osg::Matrixd::translate(-at) * osg::Matrixd::translate(100, 100, 0);
    const auto tested = [&](PointSelection selection) {
        size_t count = 0;
        const SelectionAreas areas(std::move(selection));
        EXPECT_TRUE(areas.status) << areas.status.message();
        store.reached(SelectionTest(areas, *store.store.octree(), store.place, Hidden::ANY), &count);
        return count;
    };
    const auto ofPlace = [](auto place, bool outside = false) {
        PointSelection selection;
        selection.place = place;
        selection.outside = outside;
        return selection;
    };
    const size_t all = store.records.size();
    EXPECT_EQ(tested({}), all);
    for (const PointSelection& far :
         {ofPlace(square(10000, 0, 50)), ofPlace(square(75, 75, 1)), ofPlace(square(0, 0, 500), true),
          ofPlace(BoxPlace{at + osg::Vec3d(0, 0, 51), at + osg::Vec3d(9, 9, 99)}),
          ofPlace(SpherePlace{at + osg::Vec3d(80, 80, 0), 20}), ofPlace(SpherePlace{at, 115}, true),
          ofPlace(ScreenPlace{{{500, 500}, {600, 500}, {600, 600}}, fromAbove, 200, 200})})
        EXPECT_EQ(tested(far), 0u) << selectionText(far);

    std::vector<PointSelection> part = {ofPlace(square(20, 20, 2)),
                                        ofPlace(BoxPlace{at + corner, at + corner * 1.1}),
                                        ofPlace(SpherePlace{at + corner, 2}),
                                        ofPlace(square(0, 0, 55), true),
                                        PointSelection(),
                                        PointSelection(),
                                        PointSelection(),
                                        PointSelection()};
    part[4].attributes.height.low = at.z() + 30;
    part[5].drawn.sectionPlanes = {{1, 0, 0, -at.x() - 50}, {-1, 0, 0, at.x() - 50}};
    part[5].drawn.planesPerSection = 1;
    part[6].selected = {{{{110, 110}, {115, 110}, {110, 115}}, fromAbove, true}};
    part[7].drawn.segments = {{false, part[6].selected}};
    for (const PointSelection& selection : part) {
        const size_t count = tested(selection);
        EXPECT_GT(count, all / 3) << "the root's third: " << selectionText(selection);
        EXPECT_LT(count, all * 9 / 10) << selectionText(selection);
    }

    // Points may lie a step of their integers beyond the faces of their cell.
    CellData& root = *store.store.octree()->root;
    root.children.clear();
    std::vector<size_t> own(root.record.segments.front().count);
    std::iota(own.begin(), own.end(), static_cast<size_t>(root.record.segments.front().first));
    std::vector<size_t> outermost;
    for (int axis = 0; axis < 3; ++axis) {
        const auto along = [&](size_t point) { return store.records.position(point)[axis]; };
        const auto [low, high] = std::minmax_element(own.begin(), own.end(),
                                                     [&](size_t a, size_t b) { return along(a) < along(b); });
        outermost.insert(outermost.end(), {*low, *high});
        root.record.center[axis] = (along(*low) + along(*high)) / 2;
        root.record.size[axis] =
            static_cast<float>(along(*high) - along(*low) - 1.8 * store.store.octree()->scale[axis]);
    }
    for (const size_t point : outermost)
        EXPECT_GT(tested(ofPlace(SpherePlace{store.world(point), 1e-6})), 0u) << point;
}

TEST(PointSelectionTest, PolygonsThatShareEdgesShareNoPlaceAndLeaveNoneOut)
{
    // Parcels of random corners around common ones, walked either way, far from the origin. Places include
    // the corners, and points of the edges as they round.
    std::mt19937 random(3);
    const auto lot = [&] { return std::uniform_real_distribution<double>(-0.3, 0.3)(random); };
    constexpr int kSide = 8;
    const osg::Vec2d origin(1e6, 4.5e6);
    std::vector<osg::Vec2d> corners;
    for (int i = 0; i <= kSide * (kSide + 2); ++i)
        corners.push_back(origin + osg::Vec2d(i % (kSide + 1) + lot(), i / (kSide + 1) + lot()) * 10);
    std::vector<PolygonArea> parcels;
    std::vector<osg::Vec2d> places;
    for (int i = 0; i < kSide * kSide; ++i) {
        const int first = i / kSide * (kSide + 1) + i % kSide;
        std::vector<osg::Vec2d> parcel = {corners[first], corners[first + 1], corners[first + kSide + 2],
                                          corners[first + kSide + 1]};
        for (int k = 0; k < 40; ++k)
            places.push_back(parcel[k % 4] + (parcel[(k + 1) % 4] - parcel[k % 4]) * (k / 40.0));
        places.push_back(parcel[0]);
        if (i % 2) std::reverse(parcel.begin(), parcel.end());
        parcels.emplace_back(parcel);
    }
    for (const osg::Vec2d& place : places) {
        const osg::Vec2d from = (place - origin) / 10;
        if (from.x() < 1 || from.y() < 1 || from.x() > kSide - 1 || from.y() > kSide - 1) continue;
        EXPECT_EQ(std::count_if(parcels.begin(), parcels.end(),
                                [&](const PolygonArea& p) { return contains(p, place.x(), place.y()); }),
                  1)
            << from.x() << ", " << from.y();
    }
}

TEST(PointSelectionTest, PolygonsOfEveryShapeAndSizeKnowWhatIsInside)
{
    const Polygon star = {{100, 5.5}, {140.5, 140.5}, {10.5, 50.5}, {190.5, 50.5}, {60.5, 140.5}};
    Polygon road; // kilometres long, metres wide
    for (const int side : {0, 1})
        for (int i = 0; i <= 300; ++i) {
            const double t = side ? 300 - i : i;
            road.emplace_back(5e5 + t * 20 + side * 4, 4e6 + t * 25 + 100 * std::sin(t / 20));
        }
    const Polygon shapes[] = {star,
                              flower({1e6, 5e6}, 300, 5000),
                              flower({1e6, 5e6}, 1e-6, 40),
                              flower({-3e14, 3e14}, 3e14, 60),
                              road,
                              {{0, 0}, {10, 0}, {10, 0.25}},
                              {{1, 1}, {1, 1}, {1, 1}},
                              {{0, 0}, {0, 5}, {0, 9}},
                              {{5, 2}, {9, 2}, {7, 2}},
                              {{1, 2}},
                              {}};
    std::mt19937 random(11);
    for (const Polygon& polygon : shapes) {
        const PolygonArea area(polygon);
        osg::Vec2d low = polygon.empty() ? osg::Vec2d() : polygon[0];
        osg::Vec2d high = low;
        for (const osg::Vec2d& v : polygon)
            for (const int axis : {0, 1}) {
                low[axis] = std::min(low[axis], v[axis]);
                high[axis] = std::max(high[axis], v[axis]);
            }
        const osg::Vec2d size = high - low;
        const auto place = [&](double beyond) {
            std::uniform_real_distribution<double> lot(-beyond, 1 + beyond);
            return low + osg::Vec2d(lot(random) * size.x(), lot(random) * size.y());
        };
        std::map<PolygonArea::Cover, int> covers;
        for (int i = 0; i < 3000; ++i) {
            const osg::Vec2d p = i % 50 || polygon.empty() ? place(0.1) : polygon[random() % polygon.size()];
            ASSERT_EQ(contains(area, p.x(), p.y()), contains(polygon, p.x(), p.y())) << i;
            const osg::Vec2d to = p + (place(0) - low) * (i % 2 ? 0.02 : 0.3);
            const PolygonArea::Cover cover = area.cover(p, to);
            ++covers[cover];
            for (int k = 0; cover != PolygonArea::Cover::SOME && k < 9; ++k)
                ASSERT_EQ(contains(polygon, p.x() + (to.x() - p.x()) * (k % 3) / 2,
                                   p.y() + (to.y() - p.y()) * (k / 3) / 2),
                          cover == PolygonArea::Cover::ALL);
        }
        EXPECT_GT(covers[PolygonArea::Cover::ALL], &polygon < shapes + 2 ? 100 : -1);
        EXPECT_FALSE(contains(area, NAN, low.y()));
    }
}

TEST(PointSelectionTest, SaysInOneLineWhatIsWrongWithAText)
{
    const std::pair<const char*, const char*> texts[] = {
        {"", "not JSON from byte 1"},
        {"{\"everywhere\": tru", "not JSON from byte"},
        {"[1]", "\"points\": expected an object"},
        {"{}", "give one of \"everywhere\""},
        {R"({"everywhere": false})", "\"everywhere\": expected true"},
        {R"({"everywhere": true, "outside": true})", "nothing outside of everywhere"},
        {R"({"everywhere": true, "box": [[0,0,0],[1,1,1]]})", "give one of"},
        {R"({"everywhere": true, "heights": [0, 1]})", "\"heights\" belong to a \"map\""},
        {R"({"everywhere": true, "were": {}})", "\"were\" is no key of \"points\""},
        {R"({"map": [[0,0],[1,0]]})", "2 vertices; give three"},
        {R"({"map": [[0,0],[1,0],[1,"a"]]})", "\"map 3\": expected 2 numbers"},
        {R"({"map": [[0,0],[1,0],[1,1e16]]})", "vertex 3 is no place"},
        {R"({"map": [[0,0],[1,0],[1,1e999]]})", "a number is too large"},
        {R"({"map": [[0,0],[1,0],[1,1]], "heights": [3, 2]})", "\"heights\" is empty"},
        {R"({"box": [[0,0,0],[1,-1,1]]})", "lowest corner first"},
        {R"({"box": [[0,0,0]]})", "two corners"},
        {R"({"sphere": {"center": [0,0,0], "radius": -1}})", "radius is no length"},
        {R"({"sphere": {"center": [0,0,0]}})", "needs \"radius\""},
        {R"({"screen": {"polygon": [[0,0],[1,0],[1,1]], "matrix": [1], "width": 5, "height": 5}})",
         "\"matrix\": expected 16 numbers"},
        {R"({"screen": {"polygon": [[0,0],[1,0],[1,1]], "matrix": [1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1], "width": 0,
             "height": 5}})",
         "window has no size"},
        {R"({"everywhere": true, "where": {"intensity": [null, "x"]}})", "null for an open end"},
        {R"({"everywhere": true, "where": {"classes": [256]}})", "classes from 0 to 255"},
        {R"({"everywhere": true, "where": {"classes": []}})", "no class is chosen"},
        {R"({"everywhere": true, "drawn": {"sections": [[1,0,0,0],[1,0,0,0],[1,0,0,0]], "planesPerSection": 2}})",
         "the last section"},
        {R"({"everywhere": true, "drawn": {"planesPerSection": 1.5}})", "expected a whole number"},
    };
    for (const auto& [text, message] : texts) {
        PointSelection selection;
        selection.place = SpherePlace{{1, 2, 3}, 4};
        const std::string before = selectionText(selection);
        const VelBrx::Status status = readSelection(text, selection);
        EXPECT_FALSE(status) << text;
        EXPECT_NE(status.message().find(message), std::string::npos) << text << "\n" << status.message();
        EXPECT_EQ(status.message().find('\n'), std::string::npos) << status.message();
        EXPECT_EQ(selectionText(selection), before);
    }
}
