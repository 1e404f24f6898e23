// An edit of the classes of ten million points, against a cull of the same points: both test every point
// against the polygon, and both keep what their undo needs.

#include "bench/RatioReporter.h"
#include "bench/SampleStore.h"

#include <VelOsgDBBrx/CategoryCalcTool.h>
#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/LoadBrxTool.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <osg/Viewport>

#include <stdexcept>

using namespace VelOsgDBBrx;

namespace {

constexpr uint64_t kPoints = 10000000;
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

/// The sample from above, all of it in the window, and a polygon over the larger part of it.
struct Scene
{
    Scene() : sample(kPoints), cloud(dynamic_cast<IPointCloud*>(LoadBrxTool::loadBrxFile(sample.path(), "")))
    {
        if (!cloud) throw std::runtime_error("the sample cannot be loaded");
        const OctreeInfo& octree = *cloud->getOctree();
        const osg::Vec3d center = (octree.min + octree.max) / 2;
        const osg::Vec3d half = (octree.max - octree.min) / 2;
        const osg::ref_ptr<osg::Viewport> viewport = new osg::Viewport(0, 0, kWidth, kHeight);
        vpw = osg::Matrixd::lookAt(center + osg::Vec3d(0, 0, 1000), center, osg::Vec3d(0, 1, 0)) *
              osg::Matrixd::ortho(-half.x(), half.x(), -half.y(), half.y(), 1, 10000) *
              viewport->computeWindowMatrix();
        CategoryCalcTool::getInstance()->registerCloud("sample", cloud);
        CullCmdManager::getInstance()->setPixelBufferTool(new PolygonMaskTool);
    }

    SampleStore sample;
    osg::ref_ptr<IPointCloud> cloud;
    osg::Matrixd vpw;
    std::vector<osg::Vec2d> polygon = {
        {10, 10}, {kWidth - 10, 10}, {kWidth - 10, kHeight - 10}, {10, kHeight / 2.0}};
};

Scene& scene()
{
    static Scene theScene;
    return theScene;
}

CategoryReport::Counts handle(Category* request)
{
    const osg::ref_ptr<Category> held = request;
    held->report = new CategoryReport;
    CategoryCalcTool::getInstance()->push(held);
    held->report->wait();
    return held->report->counts();
}

void edit(benchmark::State& state)
{
    const osg::ref_ptr<PolygonCmd> record = new PolygonCmd;
    record->base.polygon = scene().polygon;
    record->base.vpw = scene().vpw;
    record->base.width = kWidth;
    record->base.height = kHeight;
    record->base.toClass = 40;
    uint64_t changed = 0;
    for (auto _ : state) {
        changed = handle(new Category("sample", record)).changed;
        state.PauseTiming();
        const osg::ref_ptr<Category> undo = new Category;
        undo->kind = Category::UNDO;
        handle(undo);
        state.ResumeTiming();
    }
    if (changed == 0) state.SkipWithError("nothing was changed");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kPoints));
}

void editJournalled(benchmark::State& state)
{
    OctreeInfo& octree = *scene().cloud->getOctree();
    std::string note;
    if (!EditJournalling::switchOn(octree, "", note)) return state.SkipWithError("no journal");
    edit(state);
    EditJournalling::switchOff(octree);
}

uint64_t run(BaseCmd* cmd)
{
    const osg::ref_ptr<BaseCmd> held = cmd;
    CullCmdManager::getInstance()->push(held);
    held->block();
    return held->getResult().pointsChanged;
}

void cull(benchmark::State& state)
{
    uint64_t changed = 0;
    for (auto _ : state) {
        const osg::ref_ptr<CullCmd> cmd = new CullCmd(2);
        std::vector<osg::observer_ptr<OctreeInfo>> octrees = {scene().cloud->getOctree()};
        cmd->setPolygon(scene().polygon);
        cmd->setVPW(scene().vpw);
        cmd->setWidth(kWidth);
        cmd->setHeight(kHeight);
        cmd->setOctreeInfos(octrees);
        changed = run(cmd);
        state.PauseTiming();
        run(new UndoCmd(2));
        state.ResumeTiming();
    }
    if (changed == 0) state.SkipWithError("nothing was culled");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kPoints));
}

} // namespace

BENCHMARK(edit)->Name("edit classes of points/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(editJournalled)
    ->Name("edit classes of points, with a journal, beside without/ours")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(edit)
    ->Name("edit classes of points, with a journal, beside without/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(cull)->Name("edit classes of points/limit")->MeasureProcessCPUTime()->UseRealTime();

int main(int argc, char** argv)
{
    return runBenchmarks(argc, argv);
}
