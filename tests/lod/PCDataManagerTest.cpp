#include <VelOsgDBBrx/PCDataManager.h>

#include "tests/support/HandOctree.h"

#include <VelOsgDBBrx/PCViewerManager.h>

#include <osgViewer/Viewer>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using VelOsgDBBrx::PCDataManager;
using VelOsgDBBrx::PCViewerManager;

bool disappears(const osg::observer_ptr<osg::Node>& node)
{
    for (int i = 0; i < 200 && node.valid(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return !node.valid();
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

} // namespace
