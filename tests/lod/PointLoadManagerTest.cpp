#include "lod/PointLoadManager.h"

#include "edit/StoreEdit.h"
#include "tests/support/Eventually.h"
#include "tests/support/HandOctree.h"
#include "tests/support/ThreadSleeps.h"

#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include <unistd.h>

namespace {

using VelOsgDBBrx::FrameStamp;
using namespace std::chrono_literals;

/// Notes what each pass is given.
class RecordingPass : public osg::Operation
{
public:
    RecordingPass() : osg::Operation("RecordingPass", true) {}

    void operator()(osg::Object* object) override
    {
        auto& stamp = dynamic_cast<FrameStamp&>(*object);
        const std::lock_guard<std::mutex> lock(_mutex);
        _stamps.push_back(new FrameStamp(stamp));
        stamp.incomplete = _leaveWork > 0;
        if (_leaveWork > 0) --_leaveWork;
    }

    void leaveWorkBehind(int passes)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _leaveWork = passes;
    }
    size_t count()
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _stamps.size();
    }
    osg::ref_ptr<FrameStamp> last()
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _stamps.back();
    }

private:
    std::mutex _mutex;
    std::vector<osg::ref_ptr<FrameStamp>> _stamps;
    int _leaveWork = 0;
};

class PointLoadManagerTest : public testing::Test
{
protected:
    PointLoadManagerTest()
    {
        manager->setScreenCaptureTool(capture);
        manager->setLodOperation(pass);
    }
    ~PointLoadManagerTest() override { manager->stop(); }

    /// The number of passes once no further one comes for a while.
    size_t passesAtRest()
    {
        size_t count = pass->count();
        for (int quiet = 0; quiet < 40; ++quiet) {
            std::this_thread::sleep_for(1ms);
            if (pass->count() != count || !manager->isSettled()) quiet = 0;
            count = pass->count();
        }
        return count;
    }

    /// `depth` stretches the depth range, as OSG does in every frame.
    void storeCamera(double x, int width = 100, int height = 80, double depth = 1)
    {
        const osg::ref_ptr<osg::Viewport> viewport = new osg::Viewport(0, 0, width, height);
        capture->getFrameBuffer()->store(
            osg::Matrixd::translate(x, 0, 0),
            osg::Matrixd::perspective(30, 1, 1, 1000) * osg::Matrixd::scale(1, 1, depth), *viewport);
    }

    osg::ref_ptr<PointLoadManager> manager = new PointLoadManager;
    osg::ref_ptr<VelOsgUtils::ScreenCaptureTool> capture = new VelOsgUtils::ScreenCaptureTool(nullptr);
    osg::ref_ptr<RecordingPass> pass = new RecordingPass;
    osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(1, osg::Vec3d(), 1));
};

TEST_F(PointLoadManagerTest, AStillCameraCausesNoPassAndAFlushExactlyOne)
{
    manager->registerOctree(octree);
    manager->start();
    const size_t first = passesAtRest();
    EXPECT_EQ(first, 1u);
    manager->flush();
    EXPECT_FALSE(manager->isSettled());
    EXPECT_EQ(passesAtRest(), first + 1);
}

TEST_F(PointLoadManagerTest, EveryChangeOfCameraViewportOrContentCausesAPass)
{
    manager->registerOctree(octree);
    manager->start();
    size_t passes = passesAtRest();
    storeCamera(1);
    EXPECT_EQ(passesAtRest(), ++passes);
    storeCamera(2);
    EXPECT_EQ(passesAtRest(), ++passes);
    storeCamera(2, 101);
    EXPECT_EQ(passesAtRest(), ++passes);
    storeCamera(2, 101, 81);
    EXPECT_EQ(passesAtRest(), ++passes);
    octree->dirty = 1;
    EXPECT_EQ(passesAtRest(), ++passes);
    EXPECT_EQ(octree->dirty, 0u);
    storeCamera(2, 101, 81, 5);
    EXPECT_EQ(passesAtRest(), passes) << "passes do not depend on near and far";
    EXPECT_EQ(pass->last()->width, 101);
    EXPECT_EQ(pass->last()->height, 81);
    EXPECT_EQ(pass->last()->view, osg::Matrixd::translate(2, 0, 0));
}

TEST_F(PointLoadManagerTest, ItSleepsWhileNothingChangesAndEveryChangeWakesItAtOnce)
{
    manager->registerOctree(octree);
    manager->start();
    passesAtRest();
    const long sleeps = sleepsOfThreads(getpid());
    std::this_thread::sleep_for(1s);
    const long slept = sleepsOfThreads(getpid()) - sleeps;
    EXPECT_LT(slept, 50) << "the manager's ten, those of the node cache, and this thread's";

    double moved = 0;
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"camera", [&] { storeCamera(++moved); }},
        {"request", [&] { manager->flush(); }},
        {"edit", [&] { const StoreEditLock edit(*octree); }},
        {"end of a pause",
         [&] {
             manager->setState(VelOsgDBBrx::IPointLoadManager::PAUSED);
             manager->flush();
             manager->setState(VelOsgDBBrx::IPointLoadManager::RUNNING);
         }},
    };
    for (const auto& [name, change] : changes) {
        auto fastest = std::chrono::steady_clock::duration::max();
        for (int attempt = 0; attempt < 5; ++attempt) { // another program may have the processors
            passesAtRest();
            const size_t passes = pass->count();
            const auto start = std::chrono::steady_clock::now();
            change();
            while (pass->count() == passes)
                std::this_thread::sleep_for(100us);
            fastest = std::min(fastest, std::chrono::steady_clock::now() - start);
        }
        EXPECT_LT(fastest, 20ms) << name;
    }
}

TEST_F(PointLoadManagerTest, RequestsAreAppliedInTheirOrder)
{
    const osg::ref_ptr<OctreeInfo> stays = handOctree(fullTree(1, osg::Vec3d(), 1));
    manager->registerOctree(octree);
    manager->registerOctree(stays);
    manager->unRegisterOctree(octree);
    manager->setMaxNumOfPointCloud(1);
    manager->setMaxNumOfPointCloud(22);
    manager->setFilterPlanes({osg::Vec4d(1, 2, 3, 4)}, 1);
    manager->setFilterPlanes({osg::Vec4d(5, 6, 7, 8), osg::Vec4d(1, 0, 0, 0)}, 2);
    manager->setMouseDiluteNum(33);
    manager->setOctreeVisible(stays, true);
    manager->setOctreeVisible(stays, false);
    manager->start();
    EXPECT_EQ(passesAtRest(), 1u) << "one pass for all of them";
    const osg::ref_ptr<FrameStamp> stamp = pass->last();
    EXPECT_EQ(stamp->octrees, std::vector<osg::ref_ptr<OctreeInfo>>{stays});
    EXPECT_EQ(stamp->maxNumOfPointCloud, 22u);
    EXPECT_EQ(stamp->mouseDiluteNum, 33u);
    EXPECT_EQ(stamp->planes.size(), 2u);
    EXPECT_EQ(stamp->planesPerGroup, 2);
    EXPECT_EQ(stays->visibility, OctreeInfo::HIDDEN_NOT_CLEARED);
}

TEST_F(PointLoadManagerTest, WithoutLiveOctreesNoPassRuns)
{
    manager->registerOctree(octree);
    manager->setOctreeVisible(octree, false);
    octree = nullptr; // before its requests are applied
    manager->start();
    manager->flush();
    storeCamera(1);
    EXPECT_EQ(passesAtRest(), 0u);
    octree = handOctree(fullTree(1, osg::Vec3d(), 1));
    manager->registerOctree(octree);
    EXPECT_EQ(passesAtRest(), 1u);
}

TEST_F(PointLoadManagerTest, APausedManagerKeepsItsRequestsAndAppliesThemAfterwards)
{
    manager->registerOctree(octree);
    manager->start();
    const size_t before = passesAtRest();
    capture->getFrameBuffer()->lock();
    std::this_thread::sleep_for(20ms); // until the manager, on its way to a pass, waits for the camera
    manager->setState(VelOsgDBBrx::IPointLoadManager::PAUSED);
    manager->setMaxNumOfPointCloud(1);
    manager->setMaxNumOfPointCloud(2);
    capture->getFrameBuffer()->release();
    storeCamera(3);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(pass->count(), before);
    EXPECT_FALSE(manager->isSettled());
    manager->setState(VelOsgDBBrx::IPointLoadManager::RUNNING);
    EXPECT_EQ(passesAtRest(), before + 1);
    EXPECT_EQ(pass->last()->maxNumOfPointCloud, 2u);
}

TEST_F(PointLoadManagerTest, APassThatLeftWorkBehindIsRepeatedUntilItIsDone)
{
    manager->registerOctree(octree);
    pass->leaveWorkBehind(3);
    manager->start();
    EXPECT_EQ(passesAtRest(), 4u);
}

/// Has work until it is told to stop, and leaves the flag as it is.
class EndlessPass : public VelOsgDBBrx::DynPointCloudLod
{
public:
    EndlessPass() : osg::Operation("EndlessPass", true), DynPointCloudLod(nullptr, nullptr) {}

    void operator()(osg::Object*) override
    {
        bornAborted = bornAborted || isAborted();
        ++begun;
        const auto end = std::chrono::steady_clock::now() + 3s;
        while (!isAborted() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(1ms);
        if (isAborted()) ++cutShort;
    }

    std::atomic<int> begun{0};
    std::atomic<int> cutShort{0};
    std::atomic<bool> bornAborted{false};
};

TEST_F(PointLoadManagerTest, EveryRequestCutsAPassShortAndTheNextOneBeginsAfresh)
{
    const osg::ref_ptr<OctreeInfo> other = handOctree(fullTree(1, osg::Vec3d(), 1));
    struct Request
    {
        const char* name;
        std::function<void(PointLoadManager&)> make;
        bool passFollows;
    };
    const Request requests[] = {
        {"register", [&](PointLoadManager& m) { m.registerOctree(other); }, true},
        {"unregister", [&](PointLoadManager& m) { m.unRegisterOctree(octree); }, false},
        {"visible", [&](PointLoadManager& m) { m.setOctreeVisible(octree, true); }, true},
        {"budget", [&](PointLoadManager& m) { m.setMaxNumOfPointCloud(7); }, true},
        {"planes", [&](PointLoadManager& m) { m.setFilterPlanes({}, 0); }, true},
        {"flush", [&](PointLoadManager& m) { m.flush(); }, true},
        {"pause", [&](PointLoadManager& m) { m.setState(PointLoadManager::PAUSED); }, false},
        {"other pass", [&](PointLoadManager& m) { m.setLodOperation(pass); }, false},
        {"stop", [&](PointLoadManager& m) { m.stop(); }, false},
    };
    for (const Request& request : requests) {
        const osg::ref_ptr<EndlessPass> endless = new EndlessPass;
        const osg::ref_ptr<PointLoadManager> busy = new PointLoadManager;
        busy->setScreenCaptureTool(capture);
        busy->setLodOperation(endless);
        busy->registerOctree(octree);
        busy->start();
        ASSERT_TRUE(eventually([&] { return endless->begun == 1; })) << request.name;
        request.make(*busy);
        EXPECT_TRUE(eventually([&] { return endless->cutShort == 1; })) << request.name;
        if (request.passFollows) eventually([&] { return endless->begun == 2; });
        if (busy->getLodOperation() == pass) eventually([&] { return pass->count() == 1; });
        busy->stop();
        EXPECT_EQ(endless->begun, request.passFollows ? 2 : 1) << request.name;
        EXPECT_FALSE(endless->bornAborted) << request.name;
    }
    EXPECT_EQ(pass->count(), 1u) << "the pass that took the other's place";
}

TEST_F(PointLoadManagerTest, ItsOperationsMayBeReplacedWhileItRuns)
{
    manager->registerOctree(octree);
    manager->start();
    std::atomic<bool> stop{false};
    std::thread asking([&] {
        while (!stop)
            manager->isSettled();
    });
    for (int i = 0; i < 3000; ++i) {
        manager->setIncrementalCompileOperation(new VelOsgDBBrx::VelIncrementalCompileOperation);
        manager->setDecrementalCompileOperation(new VelOsgUtils::DecrementalCompileOperation);
        manager->setScreenCaptureTool(new VelOsgUtils::ScreenCaptureTool(nullptr));
    }
    stop = true;
    asking.join();
    manager->setScreenCaptureTool(capture);
    const size_t passes = passesAtRest();
    storeCamera(1);
    EXPECT_EQ(passesAtRest(), passes + 1);
}

TEST_F(PointLoadManagerTest, ItStopsStartsAgainAndStopsTwice)
{
    manager->registerOctree(octree);
    manager->start();
    manager->start();
    const size_t passes = passesAtRest();
    manager->stop();
    manager->stop();
    manager->flush();
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(pass->count(), passes);
    manager->start();
    EXPECT_EQ(passesAtRest(), passes + 1);
}

} // namespace
