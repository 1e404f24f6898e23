#include <VelOsgDBBrx/PCDataManager.h>

#include "tests/support/Eventually.h"
#include "tests/support/HandOctree.h"

#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/Array>
#include <osgViewer/CompositeViewer>
#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using VelOsgDBBrx::PCDataManager;
using VelOsgDBBrx::PCViewerManager;

bool disappears(const osg::observer_ptr<osg::Node>& node)
{
    return eventually([&] { return !node.valid(); });
}

TEST(PCDataManager, TwoCellsOfOneIdentifierShareANodeAndItIsKeptWhileHeld)
{
    PCDataManager& cache = *PCDataManager::getInstance();
    const std::vector<VelBrx::CellWithSegment> records = fullTree(1, osg::Vec3d(), 1);
    const osg::ref_ptr<OctreeInfo> first = handOctree(records);
    const osg::ref_ptr<OctreeInfo> second = handOctree(records);
    osg::ref_ptr<osg::Node> node = cache.acquireNodeOrCreate(first->root);
    ASSERT_TRUE(node);
    EXPECT_EQ(cache.acquireNodeOrCreate(second->root), node);
    EXPECT_EQ(cache.getNodeOrCreate(second->root), node);
    EXPECT_EQ(cache.getNode(first->root->identifier), node);

    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(cache.acquireNode(first->root->identifier), node) << "evicted though held";
    const osg::observer_ptr<osg::Node> observed(node.get());
    node = nullptr;
    EXPECT_TRUE(disappears(observed));
    EXPECT_FALSE(cache.getNode(first->root->identifier));
}

TEST(PCDataManager, RegisteringKeepsWhatIsThereAndIgnoresNull)
{
    PCDataManager& cache = *PCDataManager::getInstance();
    const osg::ref_ptr<osg::Node> first = new osg::Node;
    const osg::ref_ptr<osg::Node> second = new osg::Node;
    cache.registerNode(nullptr, "registered");
    EXPECT_FALSE(cache.getNode("registered"));
    cache.registerNode(first, "registered");
    cache.registerNode(second, "registered");
    EXPECT_EQ(cache.getNode("registered"), first);
    cache.remove("registered");
    EXPECT_FALSE(cache.getNode("registered"));
    EXPECT_EQ(first->referenceCount(), 1);
}

TEST(PCDataManager, NullAndUnreadableCellsGiveNullAndAreNotRemembered)
{
    PCDataManager& cache = *PCDataManager::getInstance();
    EXPECT_FALSE(cache.acquireNodeOrCreate(nullptr));
    EXPECT_FALSE(cache.getNodeOrCreate(nullptr));
    std::vector<VelBrx::CellWithSegment> records = fullTree(1, osg::Vec3d(), 1);
    const osg::ref_ptr<OctreeInfo> octree = handOctree(records);
    octree->root->record.segments.clear();
    EXPECT_FALSE(cache.acquireNodeOrCreate(octree->root));
    octree->root->record.segments = records[0].segments;
    EXPECT_TRUE(cache.acquireNodeOrCreate(octree->root));
}

/// Of cells that take long to read, so that all threads read each of them.
TEST(PCDataManager, TheFirstOfSeveralReadersOfACellWins)
{
    constexpr int kThreads = 4;
    for (int round = 0; round < 5; ++round) {
        const osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(1, osg::Vec3d(), 1, 8, 300000));
        std::atomic<int> waiting{kThreads};
        osg::ref_ptr<osg::Node> nodes[kThreads];
        std::vector<std::thread> threads;
        for (osg::ref_ptr<osg::Node>& node : nodes)
            threads.emplace_back([&] {
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                node = PCDataManager::getInstance()->acquireNodeOrCreate(octree->root);
            });
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_TRUE(nodes[0]);
        for (const osg::ref_ptr<osg::Node>& node : nodes)
            EXPECT_EQ(node, nodes[0]);
        EXPECT_EQ(PCDataManager::getInstance()->acquireNodeOrCreate(octree->root), nodes[0]);
    }
}

/// Each node but the first is registered right after an eviction and waits for a whole period of 60 ms.
TEST(PCDataManager, ANodeThatNobodyHoldsIsFreedWithinMoments)
{
    using Clock = std::chrono::steady_clock;
    Clock::duration shortest = std::chrono::hours(1);
    for (int round = 0; round < 5; ++round) {
        osg::ref_ptr<osg::Node> node = new osg::Node;
        PCDataManager::getInstance()->registerNode(node, "short-lived");
        const osg::observer_ptr<osg::Node> observed(node.get());
        const Clock::time_point start = Clock::now();
        node = nullptr;
        ASSERT_TRUE(disappears(observed));
        if (round > 0) shortest = std::min(shortest, Clock::now() - start);
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(200)) << "on a machine that is not overloaded all are";
}

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
size_t residentPages()
{
    size_t size = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
}

TEST(PCDataManager, TheSystemHasTheMemoryOfFreedNodesAtRest)
{
    constexpr unsigned kFloats = 16384;
    std::vector<osg::ref_ptr<osg::Node>> nodes;
    std::vector<std::unique_ptr<char[]>>
        between; // blocks in use, so that what is freed does not lie together
    for (int i = 0; i < 1000; ++i) {
        nodes.emplace_back(new osg::Node)->setUserData(new osg::FloatArray(kFloats));
        between.push_back(std::make_unique<char[]>(1024));
        PCDataManager::getInstance()->registerNode(nodes.back(), "large " + std::to_string(i));
    }
    const size_t full = residentPages();
    const size_t pages = nodes.size() * kFloats * sizeof(float) / static_cast<size_t>(sysconf(_SC_PAGESIZE));
    nodes.clear();
    EXPECT_TRUE(eventually([&] { return residentPages() + pages * 3 / 4 < full; }));
}
#endif

TEST(PCDataManager, ThreadsThatWantTheSameCellsWhileTheyAreEvictedAllGetTheSameLiveNodes)
{
    const osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(2, osg::Vec3d(), 1));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                visitCells(*octree->root, [&](CellData& cell) {
                    const osg::ref_ptr<osg::Node> one =
                        PCDataManager::getInstance()->acquireNodeOrCreate(&cell);
                    if (!one || PCDataManager::getInstance()->acquireNode(cell.identifier) != one) ++wrong;
                });
                if (i % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(61));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(PCViewerManager, KeepsTheFirstViewerOfANameUntilItIsUnregistered)
{
    PCViewerManager& viewers = *PCViewerManager::getInstance();
    const osg::ref_ptr<osgViewer::Viewer> first = new osgViewer::Viewer;
    const osg::ref_ptr<osgViewer::Viewer> second = new osgViewer::Viewer;
    EXPECT_TRUE(viewers.registerViewer(first, "main"));
    EXPECT_TRUE(viewers.registerViewer(second, "main"));
    EXPECT_EQ(viewers.getViewer("main"), first);
    EXPECT_TRUE(viewers.requestRedraw("main"));
    EXPECT_TRUE(first->getRequestRedraw());
    EXPECT_TRUE(viewers.unRegisterViewer("main"));
    EXPECT_TRUE(viewers.unRegisterViewer("main"));
    EXPECT_FALSE(viewers.getViewer("main"));
    EXPECT_FALSE(viewers.requestRedraw("main"));
}

TEST(PCViewerManager, AViewThatDiesRegisteredIsGoneAndItsNameFree)
{
    PCViewerManager& viewers = *PCViewerManager::getInstance();
    std::atomic<bool> stop{false};
    std::thread asking([&] {
        while (!stop) {
            viewers.requestRedraw();
            viewers.requestRedraw("plan");
            viewers.acquireCompileOperation("plan");
        }
    });
    for (int i = 0; i < 200; ++i) {
        osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
        viewers.registerViewer(viewer, "plan");
        EXPECT_EQ(viewers.getViewer("plan"), viewer);
        viewer = nullptr;
        EXPECT_FALSE(viewers.getViewer("plan"));
        const osg::ref_ptr<osgViewer::CompositeViewer> composite = new osgViewer::CompositeViewer;
        const osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
        composite->addView(view);
        viewers.registerView(view, "plan");
        EXPECT_EQ(viewers.getView("plan"), view);
        EXPECT_FALSE(viewers.getViewer("plan"));
        EXPECT_TRUE(viewers.requestRedraw("plan"));
        EXPECT_TRUE(composite->getRequestRedraw());
    }
    stop = true;
    asking.join();
    EXPECT_FALSE(viewers.requestRedraw("plan"));
    viewers.unRegisterViewer("plan");
}

} // namespace
