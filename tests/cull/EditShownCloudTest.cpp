#include "tests/support/CullScene.h"
#include "tests/support/HandOctree.h"
#include "tests/support/PagingScene.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/ResetCmd.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <osg/DisplaySettings>

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

using namespace VelOsgDBBrx;

namespace {

using ThreadingModel = osgViewer::ViewerBase::ThreadingModel;

constexpr int kSize = 64; ///< of the scene's window
const Polygon kTopHalf = {{-1, -1}, {65, -1}, {65, 32}, {-1, 32}};
const Polygon kLeftHalf = {{-1, -1}, {32, -1}, {32, 65}, {-1, 65}};

Screen screenOf(const HeadlessViewer& view)
{
    const osg::Camera& camera = *view.viewer->getCamera();
    Screen screen;
    screen.width = screen.height = kSize;
    screen.view = camera.getViewMatrix();
    screen.projection = camera.getProjectionMatrix();
    return screen;
}

/// Lit pixels in the part of a picture from column `left` and row `bottom` up.
int litFrom(const osg::Image& picture, int left, int bottom)
{
    int lit = 0;
    for (int y = bottom; y < kSize; ++y)
        for (int x = left; x < kSize; ++x)
            lit += pixel(picture, x, y) != osg::Vec3ub(0, 0, 0);
    return lit;
}

/// Every leaf that a cell of the octree holds shows the hidden bits of the records.
void expectLeavesAsRecords(OctreeInfo& octree)
{
    const LasRecords records(octree.pointPath);
    std::vector<int> bits(records.size(), -1);
    visitCells(*octree.root, [&](CellData& cell) {
        if (cell.node) addLeafBits(cell.node, bits);
    });
    int loaded = 0;
    int wrong = 0;
    for (size_t i = 0; i < bits.size(); ++i) {
        loaded += bits[i] >= 0;
        wrong += bits[i] >= 0 && bits[i] != (records.flags(i) & 0x0F);
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(loaded, 100);
}

/// Until the cache has dropped the cells that nobody holds.
void waitForTheCache()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
}

class EditShownCloud : public testing::TestWithParam<ThreadingModel>
{
protected:
    void SetUp() override { CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool); }
    void TearDown() override
    {
        run(new AllUndoCmd(2));
        waitForTheCache(); // the next scene's store has the same identity
    }
};

INSTANTIATE_TEST_SUITE_P(Cull, EditShownCloud, everyThreadingModel(), threadingModelName);

/// Culls, pages out and in, and takes back; the picture follows each time.
void expectPictureFollows(PagingScene& scene)
{
    ASSERT_TRUE(scene.settle());
    OctreeInfo* octree = scene.lod->getOctree();
    const Screen screen = screenOf(scene.view);
    const int all = litFrom(*scene.view.picture(), 0, 0);
    const int top = litFrom(*scene.view.picture(), 0, kSize / 2);
    ASSERT_GT(top, 100);

    EXPECT_GT(run(polygonCmd<CullCmd>(octree, kTopHalf, screen)).pointsChanged, 100u);
    EXPECT_EQ(litFrom(*scene.view.picture(), 0, kSize / 2), 0) << "the polygon runs from the window's top";
    EXPECT_EQ(litFrom(*scene.view.picture(), 0, 0), all - top);

    scene.manager().setOctreeVisible(octree, false);
    ASSERT_TRUE(scene.settle());
    waitForTheCache();
    scene.manager().setOctreeVisible(octree, true);
    ASSERT_TRUE(scene.settle());
    EXPECT_EQ(litFrom(*scene.view.picture(), 0, 0), all - top) << "paged in, the points are still hidden";

    run(polygonCmd<XorCullCmd>(octree, kLeftHalf, screen));
    EXPECT_EQ(litFrom(*scene.view.picture(), kSize / 2, kSize / 2), 0);
    EXPECT_GT(litFrom(*scene.view.picture(), 0, kSize / 2), top / 4);
    run(new AllUndoCmd(2));
    EXPECT_EQ(litFrom(*scene.view.picture(), 0, 0), all);

    run(polygonCmd<CullCmd>(octree, kTopHalf, screen));
    run(polygonCmd<CullCmd>(octree, kLeftHalf, screen));
    run(new UndoCmd(2));
    EXPECT_EQ(litFrom(*scene.view.picture(), 0, 0), all - top);
    const osg::ref_ptr<ResetCmd> reset = new ResetCmd(2);
    std::vector<osg::observer_ptr<OctreeInfo>> octrees = {octree};
    reset->setOctreeInfos(octrees);
    run(reset);
    EXPECT_EQ(litFrom(*scene.view.picture(), 0, 0), all);
}

} // namespace

TEST_P(EditShownCloud, ThePictureFollowsEveryEdit)
{
    PagingScene scene(GetParam());
    expectPictureFollows(scene);
}

TEST(EditShownCloudWithVertexArrayObjects, ThePictureFollowsEveryEdit)
{
    CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool);
    osg::DisplaySettings& settings = *osg::DisplaySettings::instance();
    const auto usual = settings.getVertexBufferHint();
    settings.setVertexBufferHint(osg::DisplaySettings::VERTEX_ARRAY_OBJECT);
    {
        PagingScene scene;
        expectPictureFollows(scene);
    }
    settings.setVertexBufferHint(usual);
}

TEST(EditedCloud, AsksItsViewerForARedraw)
{
    class WatchedViewer : public osgViewer::Viewer
    {
    public:
        void requestRedraw() override { asked = true; }
        std::atomic<bool> asked{false};
    };
    const osg::ref_ptr<WatchedViewer> viewer = new WatchedViewer;
    PCViewerManager::getInstance()->registerViewer(viewer, "watched");
    const TempFolder folder;
    const LoadedStore store(writeMarkedStore(folder, 100));
    const auto infos = store.infos();
    const auto expectAsked = [&](auto cmd) {
        auto octrees = infos;
        cmd->setUid("watched");
        cmd->setOctreeInfos(octrees);
        run(cmd);
        run(new UndoCmd(2)); // the redraw follows the release of the caller
        EXPECT_TRUE(viewer->asked.exchange(false));
    };
    const Screen screen = Screen::lookingAt({0, -200, 0}, {0, 0, 0});
    expectAsked(polygonCmd<CullCmd>(store.octree(), kTopHalf, screen));
    expectAsked(polygonCmd<XorCullCmd>(store.octree(), kTopHalf, screen));
    expectAsked(osg::ref_ptr<ResetCmd>(new ResetCmd(2)));
    PCViewerManager::getInstance()->unRegisterViewer("watched");
}

TEST_P(EditShownCloud, CellsThatComeAndGoDuringEditsEndAsTheirRecords)
{
    PagingScene scene(GetParam());
    OctreeInfo* octree = scene.lod->getOctree();
    // The same store once more, in a context of its own that shares the cells.
    const LoadedStore twin(octree->pointPath);
    HeadlessViewer twinView(kSize, kSize, GetParam());
    const osg::ref_ptr<osg::MatrixTransform> twinPlace =
        new osg::MatrixTransform(scene.placement->getMatrix());
    twinPlace->addChild(twin.cloud);
    GlobalObject::registerGraphicsContext(twinView.window);
    twinView.camera().setViewMatrix(scene.view.camera().getViewMatrix());
    twinView.show(twinPlace);
    ASSERT_TRUE(scene.settle());

    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-150, 150);
    const Screen screen = screenOf(scene.view);
    const auto push = [](auto cmd) { CullCmdManager::getInstance()->push(cmd); };
    std::vector<osg::ref_ptr<BaseCmd>> commands;
    for (int i = 0; i < 40; ++i) {
        const osg::Vec2d corner(coordinate(random) / 4 + 25, coordinate(random) / 4 + 25);
        const Polygon polygon = {corner, corner + osg::Vec2d(20, 0), corner + osg::Vec2d(20, 25),
                                 corner + osg::Vec2d(0, 25)};
        OctreeInfo* edited = i % 3 == 0 ? twin.octree() : octree;
        if (i % 2 == 0)
            commands.push_back(polygonCmd<CullCmd>(edited, polygon, screen));
        else
            commands.push_back(polygonCmd<XorCullCmd>(edited, polygon, screen));
        push(commands.back());
        scene.look(osg::Vec3d(coordinate(random), coordinate(random), coordinate(random)));
        twinView.camera().setViewMatrix(scene.view.camera().getViewMatrix());
        scene.view.frame();
        twinView.frame();
        commands.back()->block();
    }
    scene.look(osg::Vec3d(0, -300, 0));
    ASSERT_TRUE(scene.settle());
    expectLeavesAsRecords(*octree);
    {
        const std::lock_guard<std::mutex> noPass(twin.octree()->pointFile->mutex);
        expectLeavesAsRecords(*twin.octree());
    }
    EXPECT_EQ(scene.loadedNodes(), scene.drawnNodes());
    twinView.viewer->stopThreading();
    GlobalObject::unRegisterGraphicsContext(twinView.window);
}
