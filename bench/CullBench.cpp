// A cull of four million points, half of them under the polygon, against its limit: bare loops that
// transform, divide, look up the mask and mark, over the same mapped records on as many threads as the
// command takes. Selections without a camera stand beside the screen polygon's test.

#include "bench/RatioReporter.h"

#include "cull/PointMarking.h"
#include "edit/RecordScreenTest.h"
#include "edit/SelectionTest.h"
#include "loading/PointRecords.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>
#include <VelOsgDBBrx/UndoCmd.h>
#include <VelOsgUtils/ThreadCount.h>

#include <benchmark/benchmark.h>
#include <osg/Viewport>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>

using namespace VelOsgDBBrx;

namespace {

constexpr int kCells = 200;
constexpr int kPointsPerCell = 20000;
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr double kScale = 0.001;

/// A strip of 200 cells of 10 m side by side in rows of 20, each full of random points.
std::vector<uint8_t> makeRecords()
{
    std::mt19937 random(1);
    std::uniform_int_distribution<int32_t> step(0, 9999);
    std::vector<uint8_t> records(static_cast<size_t>(kCells) * kPointsPerCell * kRecordSize);
    uint8_t* record = records.data();
    for (int cell = 0; cell < kCells; ++cell)
        for (int i = 0; i < kPointsPerCell; ++i, record += kRecordSize) {
            const int32_t xyz[3] = {step(random) + cell % 20 * 10000, step(random) + cell / 20 * 10000,
                                    step(random)};
            std::memcpy(record, xyz, sizeof xyz);
        }
    return records;
}

/// The records in a file, as an octree without levels, and a camera that sees all of them.
struct Scene
{
    Scene()
    {
        octree->pointFile = std::make_unique<VelBrx::File>(folder.write("points", makeRecords()).c_str());
        octree->scale.set(kScale, kScale, kScale);
        octree->root = makeCell(osg::Vec3d(100, 100, 100), 400, 0, 0);
        for (int cell = 0; cell < kCells; ++cell)
            octree->root->children.push_back(
                makeCell(osg::Vec3d(cell % 20 * 10 + 5, cell / 20 * 10 + 5, 5), 10, cell, kPointsPerCell));
        const osg::ref_ptr<osg::Viewport> viewport = new osg::Viewport(0, 0, kWidth, kHeight);
        vpw = osg::Matrixd::lookAt(osg::Vec3d(100, -60, 120), osg::Vec3d(100, 50, 0), osg::Vec3d(0, 0, 1)) *
              osg::Matrixd::perspective(60, 1.0 * kWidth / kHeight, 1, 1000) *
              viewport->computeWindowMatrix();
    }

    osg::ref_ptr<CellData> makeCell(const osg::Vec3d& center, float size, int64_t first, int64_t count)
    {
        VelBrx::CellWithSegment record{};
        for (int axis = 0; axis < 3; ++axis) {
            record.center[axis] = center[axis];
            record.size[axis] = size;
        }
        if (count) record.segments = {{first * kPointsPerCell, count}};
        record.pointCount = static_cast<uint32_t>(count);
        osg::ref_ptr<CellData> cell = new CellData(record);
        cell->octree = octree;
        return cell;
    }

    /// Edits are written down from here on.
    void keepJournal()
    {
        const VelBrx::Status opened = VelBrx::EditJournal::open(
            {folder.file("points"), octree->pointFile, 1, uint64_t{kCells} * kPointsPerCell, 0},
            octree->journal);
        octree->keepsJournal = opened.ok();
    }

    uint8_t* records() { return static_cast<uint8_t*>(octree->pointFile->map(0, octree->pointFile->size())); }

    TempFolder folder;
    osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
    osg::Matrixd vpw;
    std::vector<osg::Vec2d> polygon = {{0, 0}, {kWidth / 2.0, 0}, {kWidth / 2.0, kHeight}, {0, kHeight}};
};

void run(BaseCmd* cmd)
{
    const osg::ref_ptr<BaseCmd> held = cmd;
    CullCmdManager::getInstance()->push(held);
    held->block();
}

void cullIn(Scene& scene, benchmark::State& state)
{
    CullCmdManager::getInstance()->setPixelBufferTool(new PolygonMaskTool);
    const auto cullOnce = [&] {
        const osg::ref_ptr<CullCmd> cmd = new CullCmd(2);
        std::vector<osg::observer_ptr<OctreeInfo>> octrees = {scene.octree};
        cmd->setPolygon(scene.polygon);
        cmd->setVPW(scene.vpw);
        cmd->setWidth(kWidth);
        cmd->setHeight(kHeight);
        cmd->setOctreeInfos(octrees);
        run(cmd);
    };
    cullOnce();
    run(new UndoCmd(2));
    for (auto _ : state) {
        cullOnce();
        state.PauseTiming();
        run(new UndoCmd(2));
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kCells * kPointsPerCell);
}

void cull(benchmark::State& state)
{
    Scene scene;
    cullIn(scene, state);
}

void cullJournalled(benchmark::State& state)
{
    Scene scene;
    scene.keepJournal();
    if (!scene.octree->keepsJournal) return state.SkipWithError("no journal");
    cullIn(scene, state);
}

/// The matrix from records to pixels, row counted from the top.
struct Folded
{
    explicit Folded(const Scene& scene)
    {
        const osg::Matrixd m = osg::Matrixd::scale(kScale, kScale, kScale) * scene.vpw;
        for (int i = 0; i < 4; ++i) {
            x[i] = m(i, 0);
            y[i] = kHeight * m(i, 3) - m(i, 1);
            w[i] = m(i, 3);
        }
    }
    double x[4], y[4], w[4];
};

void markNaively(uint8_t* records, int64_t count, const Folded& m, const uint8_t* mask)
{
    for (int64_t i = 0; i < count; ++i, records += kRecordSize) {
        int32_t p[3];
        std::memcpy(p, records, sizeof p);
        const double w = p[0] * m.w[0] + p[1] * m.w[1] + p[2] * m.w[2] + m.w[3];
        const double x = (p[0] * m.x[0] + p[1] * m.x[1] + p[2] * m.x[2] + m.x[3]) / w;
        const double y = (p[0] * m.y[0] + p[1] * m.y[1] + p[2] * m.y[2] + m.y[3]) / w;
        if (!(w > 0 && x >= 0 && x < kWidth && y >= 0 && y < kHeight)) continue;
        if (mask[static_cast<int>(y) * kWidth + static_cast<int>(x)]) records[kFlagByte] |= kCulledBit;
    }
}

void markInBlocks(uint8_t* records, int64_t count, const Folded& m, const uint8_t* mask)
{
    constexpr int kBlock = 128;
    double x[kBlock], y[kBlock], z[kBlock];
    int32_t place[kBlock];
    for (; count > 0; count -= kBlock, records += kBlock * kRecordSize) {
        const int block = static_cast<int>(std::min<int64_t>(count, kBlock));
        for (int i = 0; i < block; ++i) {
            const uint8_t* record = records + i * kRecordSize;
            __builtin_prefetch(record + kBlock * kRecordSize);
            int32_t p[3];
            std::memcpy(p, record, sizeof p);
            x[i] = p[0];
            y[i] = p[1];
            z[i] = p[2];
        }
        for (int i = 0; i < block; ++i) {
            const double w = x[i] * m.w[0] + y[i] * m.w[1] + z[i] * m.w[2] + m.w[3];
            const double px = (x[i] * m.x[0] + y[i] * m.x[1] + z[i] * m.x[2] + m.x[3]) / w;
            const double py = (x[i] * m.y[0] + y[i] * m.y[1] + z[i] * m.y[2] + m.y[3]) / w;
            const bool seen = (w > 0) & (px >= 0) & (px < kWidth) & (py >= 0) & (py < kHeight);
            place[i] = seen ? static_cast<int>(seen ? py : 0) * kWidth + static_cast<int>(seen ? px : 0)
                            : kWidth * kHeight;
        }
        for (int i = 0; i < block; ++i)
            if (mask[place[i]]) records[i * kRecordSize + kFlagByte] |= kCulledBit;
    }
}

void bareLoop(benchmark::State& state, decltype(&markNaively) mark)
{
    Scene scene;
    std::vector<uint8_t> mask(kWidth * kHeight + 1);
    for (int row = 0; row < kHeight; ++row)
        std::fill_n(mask.begin() + static_cast<ptrdiff_t>(row) * kWidth, kWidth / 2, uint8_t{1});
    const Folded folded(scene);
    uint8_t* records = scene.records();
    const int cells = kCells;
    for (auto _ : state) {
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(kCells))
        for (int cell = 0; cell < cells; ++cell)
            mark(records + static_cast<int64_t>(cell) * kPointsPerCell * kRecordSize, kPointsPerCell, folded,
                 mask.data());
        state.PauseTiming();
        for (int64_t i = 0; i < int64_t{kCells} * kPointsPerCell; ++i)
            records[i * kRecordSize + kFlagByte] &= static_cast<uint8_t>(~kHiddenBits);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kCells * kPointsPerCell);
}
void naiveLoop(benchmark::State& state)
{
    bareLoop(state, markNaively);
}

void blockedLoop(benchmark::State& state)
{
    bareLoop(state, markInBlocks);
}

/// The test of a screen polygon, by the mask alone.
class UnderMask : public PointTest
{
public:
    explicit UnderMask(const Scene& scene)
        : _octree(*scene.octree), _mask(new PolygonMaskTool, scene.polygon, kWidth, kHeight),
          _test(_octree.scale, scene.vpw, {}, _mask, false)
    {
    }
    std::vector<CellData*> cells() const override { return allCells(_octree); }
    void test(const uint8_t* records, int count, const uint8_t*, uint8_t* accepted) const override
    {
        _test.test(records, count, accepted);
    }
    bool readsClasses() const override { return false; }

private:
    const OctreeInfo& _octree;
    const ScreenMask _mask;
    const RecordScreenTest _test;
};

/// Finds what a test reaches as edits do.
void find(const Scene& scene, const PointTest& test, benchmark::State& state)
{
    uint64_t found = 0;
    const bool readsClasses = test.readsClasses();
    for (auto _ : state) {
        const std::vector<CellData*> cells = test.cells();
        const int count = static_cast<int>(cells.size());
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))        \
    reduction(+ : found)
        for (int i = 0; i < count; ++i)
            forEachRun(*scene.octree, *cells[i], [&](const uint8_t* records, int64_t points, uint32_t) {
                uint8_t classes[kMarkChunk];
                uint16_t places[kMarkChunk];
                for (int64_t done = 0; done < points; done += kMarkChunk) {
                    const uint8_t* chunk = records + done * kRecordSize;
                    const int length = static_cast<int>(std::min<int64_t>(kMarkChunk, points - done));
                    for (int k = 0; readsClasses && k < length; ++k)
                        classes[k] = chunk[k * kRecordSize + kClassByte];
                    found += findMarked(chunk, length, classes, test, kHideMark, places);
                }
            });
    }
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(state.iterations() * kCells * kPointsPerCell);
}

void findUnderMask(benchmark::State& state)
{
    const Scene scene;
    find(scene, UnderMask(scene), state);
}

void findSelection(benchmark::State& state, const PointSelection& selection)
{
    const Scene scene;
    const SelectionAreas areas(selection);
    if (!areas.status) return state.SkipWithError(areas.status.message().c_str());
    find(scene, SelectionTest(areas, *scene.octree, osg::Matrixd(), SelectionTest::Hidden::VISIBLE), state);
}

/// A prism of many vertices whose border runs through most cells.
MapPlace leaf(int vertices)
{
    MapPlace place;
    for (int i = 0; i < vertices; ++i) {
        const double angle = i * 2 * M_PI / vertices;
        const double reach = 0.75 + 0.25 * std::cos(40 * angle);
        place.polygon.emplace_back(100 + 100 * reach * std::cos(angle), 50 + 50 * reach * std::sin(angle));
    }
    return place;
}

PointSelection placed(const decltype(PointSelection::place)& place)
{
    PointSelection selection;
    selection.place = place;
    return selection;
}

PointSelection ofClasses(PointSelection selection)
{
    selection.attributes.classes.reset(7);
    selection.attributes.intensity.high = 60000;
    return selection;
}

/// A pair of the table.
void beside(const std::string& name, const PointSelection& selection)
{
    benchmark::RegisterBenchmark(("find " + name + ", beside a screen polygon/ours").c_str(),
                                 [selection](benchmark::State& state) { findSelection(state, selection); })
        ->MeasureProcessCPUTime()
        ->UseRealTime();
    benchmark::RegisterBenchmark(("find " + name + ", beside a screen polygon/limit").c_str(), findUnderMask)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
}

} // namespace

BENCHMARK(cull)->Name("cull points, loop point by point/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(naiveLoop)->Name("cull points, loop point by point/limit")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(cull)->Name("cull points, loop in blocks/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(blockedLoop)->Name("cull points, loop in blocks/limit")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(cullJournalled)
    ->Name("cull points, with a journal, beside without/ours")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(cull)
    ->Name("cull points, with a journal, beside without/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();

int main(int argc, char** argv)
{
    beside("in a prism", placed(MapPlace{{{-1, -1}, {101, -1}, {99, 101}, {-1, 101}}, {}}));
    beside("in a prism of 4000 vertices", placed(leaf(4000)));
    beside("in a prism, by class and intensity", ofClasses(placed(leaf(100))));
    beside("in a box", placed(BoxPlace{{5, 5, 2}, {195, 95, 8}}));
    beside("in a sphere", placed(SpherePlace{{100, 50, 5}, 80}));
    return runBenchmarks(argc, argv);
}
