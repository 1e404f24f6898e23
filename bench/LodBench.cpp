#include "bench/RatioReporter.h"

#include "loading/OctreeCells.h"
#include "store/StoreIndex.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include <osg/Group>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr size_t kCells = 1000000;
constexpr double kCubeSize = 65536;

/// A quadtree laid out as an octree with one layer, as flat terrain makes it: levels whole until the cells
/// run out.
VelBrx::StoreIndex terrainIndex()
{
    VelBrx::StoreIndex index;
    index.cubeSize = kCubeSize;
    int64_t first = 0;
    for (uint8_t level = 0; index.cells.size() < kCells; ++level)
        for (uint64_t place = 0; place < uint64_t(1) << (2 * level) && index.cells.size() < kCells; ++place) {
            uint64_t code = 0; // the bits of x and y of each level, z's left 0
            for (unsigned bit = 0; bit < level; ++bit)
                code |= (place >> (2 * bit) & 3) << (3 * bit);
            index.cells.push_back({level, code, {{first, 1000}}});
            first += 1000;
        }
    return index;
}

/// An octree of a million cells, all loaded, and a camera high above that sees them all.
struct Flight
{
    Flight()
    {
        records = deriveCells(terrainIndex());
        linkOctreeCells(records, *octree);
        octree->pointFile =
            std::make_unique<VelBrx::File>("/dev/null"); // a pass wants it open and reads nothing
        markLoaded(*octree->root);
        stamp->octrees = {octree};
        stamp->height = 1 << 20; // no cell is too small
        stamp->width = 1 << 20;
        stamp->maxNumOfPointCloud = std::numeric_limits<uint64_t>::max();
        stamp->projection = osg::Matrixd::perspective(30, 1, 1, 1e7);
        const osg::Vec3d center(kCubeSize / 2, kCubeSize / 2, 0);
        stamp->view =
            osg::Matrixd::lookAt(center + osg::Vec3d(0, 0, 4 * kCubeSize), center, osg::Vec3d(0, 1, 0));
    }

    void markLoaded(CellData& cell)
    {
        cell.node = node;
        for (const osg::ref_ptr<CellData>& child : cell.children)
            markLoaded(*child);
    }

    std::vector<VelBrx::CellWithSegment> records;
    osg::ref_ptr<osg::Node> node = new osg::Group;
    osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
    osg::ref_ptr<VelOsgDBBrx::FrameStamp> stamp = new VelOsgDBBrx::FrameStamp;
};

Flight& flight()
{
    static Flight made;
    return made;
}

void runPasses(benchmark::State& state, Flight& flight)
{
    osg::ref_ptr<VelOsgDBBrx::DynPointCloudLod> operation =
        new VelOsgDBBrx::DynPointCloudLod(nullptr, nullptr);
    for (auto _ : state)
        (*operation)(flight.stamp);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCells));
}

void passOverAll(benchmark::State& state)
{
    runPasses(state, flight());
}

/// A picture of 1920 x 1080 pixels, obliquely over the ground, as one flies: the borders of the view and of
/// each level's reach run through the cells. What it does not want is given up by the first pass.
void passInFlight(benchmark::State& state)
{
    static Flight low;
    low.stamp->width = 1920;
    low.stamp->height = 1080;
    low.stamp->projection = osg::Matrixd::perspective(30, 16 / 9.0, 1, 1e7);
    const osg::Vec3d eye(kCubeSize * 0.4, kCubeSize * 0.3, kCubeSize / 100);
    low.stamp->view = osg::Matrixd::lookAt(eye, eye + osg::Vec3d(0.5, 0.8, -0.3), osg::Vec3d(0, 0, 1));
    runPasses(state, low);
}

/// Filter planes leave no subtree undecided by less than its cells.
void passInRegion(benchmark::State& state)
{
    static Flight boxed;
    boxed.stamp->planesPerGroup = 2;
    boxed.stamp->planes = {osg::Vec4d(1, 0.2, 0, -kCubeSize / 8), osg::Vec4d(-1, 0.1, 0, kCubeSize)};
    runPasses(state, boxed);
}

/// The four planes and the size test over arrays that hold nothing else.
void bareTest(benchmark::State& state)
{
    struct Box
    {
        float center[3], half, length;
    };
    std::vector<Box> boxes;
    for (const VelBrx::CellWithSegment& record : flight().records)
        boxes.push_back({{float(record.center[0]), float(record.center[1]), float(record.center[2])},
                         record.size[0] / 2,
                         float(record.resolutionLength)});
    const float slope = std::tan(15 * 3.14159265f / 180);
    const float planes[4][3] = {{1, 0, slope}, {-1, 0, slope}, {0, 1, slope}, {0, -1, slope}};
    const float eye[3] = {kCubeSize / 2, kCubeSize / 2, 4 * kCubeSize};
    for (auto _ : state) {
        size_t wanted = 0;
        for (const Box& box : boxes) {
            const float x = box.center[0] - eye[0], y = box.center[1] - eye[1],
                        depth = eye[2] - box.center[2];
            bool inside = true;
            for (const auto& plane : planes)
                inside &= plane[0] * x + plane[1] * y + plane[2] * depth + box.half * (1 + slope) > 0;
            wanted += inside & (2 * float(1 << 20) * box.length >= 0.125f * depth);
        }
        benchmark::DoNotOptimize(wanted);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCells));
}

} // namespace

BENCHMARK(passOverAll)
    ->Name("pass over a million cells, all in view/ours")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(bareTest)
    ->Name("pass over a million cells, all in view/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(passInFlight)
    ->Name("pass over a million cells, in flight/ours")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(bareTest)
    ->Name("pass over a million cells, in flight/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(passInRegion)
    ->Name("pass over a million cells, in a region/ours")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(bareTest)
    ->Name("pass over a million cells, in a region/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();

int main(int argc, char** argv)
{
    return runBenchmarks(argc, argv);
}
