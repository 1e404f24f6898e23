#include <VelOsgDBBrx/GlobalObject.h>

#include "tests/support/Eventually.h"
#include "tests/support/HandOctree.h"
#include "tests/support/PagingScene.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/ThreadCount.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using VelOsgDBBrx::GlobalObject;
using VelOsgDBBrx::VelIncrementalCompileOperation;
using VelOsgUtils::ThreadCount;

TEST(GlobalObject, AContextIsRegisteredOnceWithAllItsServices)
{
    HeadlessViewer view(8, 8);
    osg::GraphicsContext* gc = view.window;
    const int references = gc->referenceCount();
    EXPECT_FALSE(GlobalObject::getPLM(gc));
    auto* manager = GlobalObject::registerGraphicsContext(gc);
    ASSERT_TRUE(manager);
    EXPECT_EQ(GlobalObject::registerGraphicsContext(gc), manager);
    EXPECT_EQ(GlobalObject::getPLM(gc), manager);
    // A thread counts itself once it runs. One that a second registration started would come within moments.
    constexpr int kThreads = 3; // paging and classes of the context, and the cache of nodes
    EXPECT_TRUE(eventually([] { return ThreadCount::running() == kThreads; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(ThreadCount::running(), kThreads);

    EXPECT_TRUE(GlobalObject::getPCM(gc));
    EXPECT_TRUE(GlobalObject::getIncrementalCompileOperation(gc));
    EXPECT_EQ(GlobalObject::getIncrementalCompileOperation(gc), manager->getIncrementalCompileOperation());
    EXPECT_TRUE(GlobalObject::getDecrementalCompileOperation(gc));
    EXPECT_TRUE(manager->getScreenCaptureTool());
    EXPECT_TRUE(dynamic_cast<VelOsgDBBrx::DynPointCloudLod*>(manager->getLodOperation()));

    EXPECT_EQ(GlobalObject::getMaxNumOfPointCloud(gc), 100000000u);
    EXPECT_EQ(GlobalObject::getMouseDiluteNum(gc), 3000000);
    GlobalObject::setMouseDiluteNum(gc, 77);
    EXPECT_EQ(GlobalObject::getMouseDiluteNum(gc), 77);
    GlobalObject::setMaxNumOfPointCloud(gc, 5);
    EXPECT_TRUE(eventually([gc] { return GlobalObject::getMaxNumOfPointCloud(gc) == 5; }));

    GlobalObject::unRegisterGraphicsContext(gc);
    EXPECT_EQ(ThreadCount::running(), 1) << "the node cache's";
    EXPECT_EQ(gc->referenceCount(), references);
    EXPECT_FALSE(GlobalObject::getPLM(gc));
    GlobalObject::unRegisterGraphicsContext(gc);
    GlobalObject::unRegisterGraphicsContext(nullptr);
    EXPECT_FALSE(GlobalObject::registerGraphicsContext(nullptr));
}

/// Sanitizers see a look-up that does without the registry's lock.
TEST(GlobalObject, AnswersAnyThreadWhileOtherContextsComeAndGo)
{
    HeadlessViewer view(8, 8);
    auto* const manager = GlobalObject::registerGraphicsContext(view.window);
    std::vector<osg::ref_ptr<EglGraphicsWindow>> others(6);
    for (osg::ref_ptr<EglGraphicsWindow>& other : others)
        other = makeWindow(8, 8);
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> askers;
    for (int i = 0; i < 2; ++i)
        askers.emplace_back([&] {
            for (int dilute = 0; !done; ++dilute) {
                wrong += GlobalObject::getPLM(view.window) != manager || !GlobalObject::getPCM(view.window) ||
                         !GlobalObject::getIncrementalCompileOperation(view.window) ||
                         !GlobalObject::getDecrementalCompileOperation(view.window);
                GlobalObject::setMaxNumOfPointCloud(view.window, 5);
                GlobalObject::setMouseDiluteNum(view.window, 7);
                GlobalObject::getPLM(others[static_cast<size_t>(dilute) % others.size()]);
            }
        });
    for (int round = 0; round < 8; ++round) {
        for (osg::ref_ptr<EglGraphicsWindow>& other : others)
            GlobalObject::registerGraphicsContext(other);
        for (osg::ref_ptr<EglGraphicsWindow>& other : others)
            GlobalObject::unRegisterGraphicsContext(other);
    }
    done = true;
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(wrong, 0);
    GlobalObject::unRegisterGraphicsContext(view.window);
}

class RegistryScene : public testing::Test
{
protected:
    static void aim(HeadlessViewer& view, const osg::Vec3d& target)
    {
        view.camera().setViewMatrixAsLookAt(target + osg::Vec3d(0, -300, 0), target, osg::Vec3d(0, 0, 1));
    }

    size_t loaded() const { return countLoaded(*octree()); }
    size_t drawn() const { return cloud.lod->getNumChildren(); }
    OctreeInfo* octree() const { return &cloud.octree(); }

    TempFolder folder;
    const std::string path = writeRandomStore(folder, 3, 20);
    PlacedCloud cloud{path};
    const osg::Vec3d offset = cloud.offset;
    const osg::ref_ptr<osg::MatrixTransform> root = cloud.root;
};

TEST_F(RegistryScene, AnUnregisteredContextLeavesTheSceneAndTheViewer)
{
    HeadlessViewer view(32, 32);
    aim(view, offset);
    view.show(root);
    GlobalObject::registerGraphicsContext(view.window);
    ASSERT_TRUE(settle(view));
    const osg::ref_ptr<osgUtil::IncrementalCompileOperation> operation =
        view.viewer->getIncrementalCompileOperation();
    EXPECT_EQ(operation, GlobalObject::getIncrementalCompileOperation(view.window));
    GlobalObject::unRegisterGraphicsContext(view.window);
    EXPECT_EQ(loaded(), 0u);
    for (int frame = 0; frame < 3; ++frame)
        view.frame();
    EXPECT_EQ(drawn(), 0u);
    EXPECT_FALSE(view.viewer->getIncrementalCompileOperation());
    EXPECT_EQ(view.viewer->getUpdateOperations()->getNumOperationsInQueue(), 0u);
    EXPECT_FALSE(view.camera().getCullCallback());
    EXPECT_EQ(operation->referenceCount(), 1);
}

TEST_F(RegistryScene, AHostsCompileOperationIsReplacedAndThereAgainAfterwardsWithWhatWaits)
{
    HeadlessViewer view(32, 32);
    aim(view, offset);
    const osg::ref_ptr<osgUtil::IncrementalCompileOperation> hosts = new osgUtil::IncrementalCompileOperation;
    view.viewer->setIncrementalCompileOperation(hosts);
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    root->addChild(group);
    hosts->add(group, new osg::Group);
    auto* manager = GlobalObject::registerGraphicsContext(view.window);
    view.show(root);
    EXPECT_TRUE(settle(view));
    EXPECT_EQ(group->getNumChildren(), 1u);
    EXPECT_EQ(drawn(), 73u);
    EXPECT_EQ(view.viewer->getIncrementalCompileOperation(), manager->getIncrementalCompileOperation());
    view.viewer->getIncrementalCompileOperation()->add(group, new osg::Group);
    GlobalObject::unRegisterGraphicsContext(view.window);
    view.frame();
    EXPECT_EQ(view.viewer->getIncrementalCompileOperation(), hosts);
    hosts->add(group, new osg::Group);
    for (int frame = 0; frame < 4; ++frame)
        view.frame();
    EXPECT_EQ(group->getNumChildren(), 3u);
    EXPECT_EQ(drawn(), 0u);
}

TEST_F(RegistryScene, TwoContextsOfOneViewerPageTheirOwnClouds)
{
    HeadlessViewer view(32, 32);
    const osg::ref_ptr<EglGraphicsWindow> second = makeWindow(16, 16);
    const osg::ref_ptr<osg::Camera> slave = new osg::Camera;
    second->attachTo(*slave);
    view.viewer->addSlave(slave);
    aim(view, offset);
    GlobalObject::registerGraphicsContext(view.window);
    GlobalObject::registerGraphicsContext(second);
    view.show(root);
    ASSERT_TRUE(settle(view));
    EXPECT_EQ(drawn(), 73u);

    // The context that holds the viewer's compile operation goes; the other one takes over.
    GlobalObject::unRegisterGraphicsContext(view.window);
    view.frame();
    view.frame();
    EXPECT_TRUE(dynamic_cast<VelIncrementalCompileOperation*>(view.viewer->getIncrementalCompileOperation()));
    EXPECT_TRUE(
        drawUntil({view.viewer}, [&] { return GlobalObject::getPLM(second)->isSettled() && drawn() == 73; }));
    GlobalObject::unRegisterGraphicsContext(second);
}

TEST_F(RegistryScene, ACloudThatTheHostDropsIsFreed)
{
    HeadlessViewer view(32, 32);
    aim(view, offset);
    GlobalObject::registerGraphicsContext(view.window);
    view.show(root);
    ASSERT_TRUE(settle(view));
    const osg::observer_ptr<OctreeInfo> observed(octree());
    root->removeChild(cloud.node);
    cloud.node = nullptr;
    cloud.lod = nullptr;
    EXPECT_TRUE(drawUntil({view.viewer}, [&] { return !observed.valid(); }));
    GlobalObject::unRegisterGraphicsContext(view.window);
}

TEST_F(RegistryScene, TheSameStoreInTwoContextsSharesItsNodesAndEachPagesAlone)
{
    const PlacedCloud otherCloud(path);
    HeadlessViewer view(32, 32), other(32, 32);
    GlobalObject::registerGraphicsContext(view.window);
    GlobalObject::registerGraphicsContext(other.window);
    aim(view, offset);
    aim(other, offset);
    view.show(root);
    other.show(otherCloud.root);
    ASSERT_TRUE(settle(view) && settle(other));
    EXPECT_EQ(octree()->root->node, otherCloud.octree().root->node);
    aim(view, offset + osg::Vec3d(0, -10000, 0));
    ASSERT_TRUE(settle(view) && settle(other));
    EXPECT_EQ(drawn(), 0u);
    EXPECT_EQ(otherCloud.drawn().size(), 73u);
    GlobalObject::unRegisterGraphicsContext(view.window);
    GlobalObject::unRegisterGraphicsContext(other.window);
}

using RegistryDeathTest = RegistryScene;

TEST_F(RegistryDeathTest, AProcessThatExitsWithEverythingRunningEndsCleanly)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            HeadlessViewer view(32, 32, osgViewer::ViewerBase::CullDrawThreadPerContext);
            aim(view, offset);
            GlobalObject::registerGraphicsContext(view.window);
            view.show(root);
            for (int frame = 0; frame < 4; ++frame)
                view.frame();
            view.viewer->stopThreading();
            while (ThreadCount::running() < 3) // a started thread counts once it runs
                std::this_thread::yield();
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
}

} // namespace
