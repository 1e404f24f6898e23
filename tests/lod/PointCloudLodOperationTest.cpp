#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include "loading/CellLeaf.h"
#include "loading/CellTable.h"
#include "tests/support/HandOctree.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

namespace {

using VelOsgDBBrx::DynPointCloudLod;
using VelOsgDBBrx::FixPointCloudLod;
using VelOsgDBBrx::FrameStamp;
using VelOsgDBBrx::PCDataManager;
using VelOsgDBBrx::VelIncrementalCompileOperation;

constexpr double kSize = 100;

/// Three levels of 1, 8 and 64 cells; a camera that sees all of them close enough.
class LodPassTest : public testing::Test
{
protected:
    LodPassTest()
    {
        stamp->octrees = {octree};
        stamp->height = 10000;
        stamp->maxNumOfPointCloud = 1000000;
        stamp->projection.makePerspective(60, 1, 1, 1000);
        lookFrom(osg::Vec3d(0, -300, 0));
    }

    void lookFrom(const osg::Vec3d& eye, const osg::Vec3d& center = osg::Vec3d())
    {
        stamp->view.makeLookAt(eye, center, osg::Vec3d(0, 0, 1));
    }

    std::array<size_t, 3> loadedByLevel() const
    {
        return {countLoaded(*octree, 0), countLoaded(*octree, 1), countLoaded(*octree, 2)};
    }

    void setPoints(int level, int64_t points)
    {
        visitCells(*octree->root, [&](CellData& cell) {
            if (cell.record.level == level) cell.record.segments = {{0, points}};
        });
    }

    /// Keeps x > from.
    void setHalfSpace(double from)
    {
        stamp->planes = {osg::Vec4d(1, 0, 0, -from)};
        stamp->planesPerGroup = 1;
    }

    osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(3, osg::Vec3d(), kSize));
    osg::ref_ptr<FrameStamp> stamp = new FrameStamp;
    osg::ref_ptr<DynPointCloudLod> dyn = new DynPointCloudLod(nullptr, nullptr);
    osg::ref_ptr<FixPointCloudLod> fix = new FixPointCloudLod(nullptr, nullptr);
    using Loaded = std::array<size_t, 3>;
};

TEST_F(LodPassTest, ALevelMustStayStrictlyBelowTheBudgetAndASmallerDeeperOneStillFollows)
{
    setPoints(0, 10);
    setPoints(1, 100); // 800 in the level
    setPoints(2, 5);   // 320
    stamp->maxNumOfPointCloud = 10 + 800;
    (*dyn)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 0, 64})) << "equal is not below; the left-out level counts nothing";
    stamp->maxNumOfPointCloud = 10 + 800 + 1;
    (*dyn)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 8, 0}));
    stamp->maxNumOfPointCloud = 10 + 800 + 320 + 1;
    (*dyn)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 8, 64}));
    stamp->maxNumOfPointCloud = 0;
    (*dyn)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 0, 0})) << "level 0 is loaded whatever it costs";
    EXPECT_EQ(dyn->wantedPoints(), 10u + 800u + 320u) << "also what there is no room for";
}

TEST_F(LodPassTest, OneBudgetHoldsForAllOctrees)
{
    const osg::ref_ptr<OctreeInfo> second = handOctree(fullTree(2, osg::Vec3d(), kSize));
    stamp->octrees.push_back(second);
    stamp->maxNumOfPointCloud = 200 + 1600; // 2 roots and 16 cells of 100 points
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree) + countLoaded(*second), 2u);
    ++stamp->maxNumOfPointCloud;
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree) + countLoaded(*second), 18u);
}

TEST_F(LodPassTest, FilterPlanesKeepTheUnionOfTheirGroupsAndLeftoverPlanesCountForNothing)
{
    setHalfSpace(0);
    (*dyn)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 4, 32}));

    // x > 25.1 and y > 25.1, or x < -25.1 and y < -25.1: one column of cells each.
    stamp->planes = {osg::Vec4d(1, 0, 0, -25.1), osg::Vec4d(0, 1, 0, -25.1), osg::Vec4d(-1, 0, 0, -25.1),
                     osg::Vec4d(0, -1, 0, -25.1), osg::Vec4d(1, 0, 0, 1000)};
    stamp->planesPerGroup = 2;
    (*dyn)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 4, 8}));

    stamp->planesPerGroup = 6; // no whole group
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u);
    stamp->planesPerGroup = 0;
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 73u);
}

TEST_F(LodPassTest, TheFixedPassKnowsOnlyTheRegionAndNoBudget)
{
    lookFrom(osg::Vec3d(0, -300, 0), osg::Vec3d(0, -600, 0));
    stamp->maxNumOfPointCloud = 0;
    setHalfSpace(0);
    (*fix)(stamp);
    EXPECT_EQ(loadedByLevel(), (Loaded{1, 4, 32}));
    EXPECT_EQ(fix->wantedPoints(), 3700u);
    stamp->planesPerGroup = 0;
    (*fix)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u) << "without a region nothing is wanted";
}

TEST_F(LodPassTest, AHiddenOctreeIsUnloadedOnceAndComesBackWhenShown)
{
    (*dyn)(stamp);
    octree->visibility = OctreeInfo::HIDDEN_NOT_CLEARED;
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u);
    EXPECT_EQ(octree->visibility, OctreeInfo::HIDDEN_CLEARED);
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u);
    octree->visibility = OctreeInfo::VISIBLE;
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 73u);
}

TEST_F(LodPassTest, ABusyOctreeIsSkippedTheOthersAreNotAndThePassSaysSo)
{
    const osg::ref_ptr<OctreeInfo> other = handOctree(fullTree(1, osg::Vec3d(), kSize));
    stamp->octrees.push_back(other);
    {
        const std::lock_guard<std::mutex> edit(octree->pointFile->mutex);
        std::thread([&] { (*dyn)(stamp); }).join();
    }
    EXPECT_EQ(countLoaded(*octree), 0u);
    EXPECT_EQ(countLoaded(*other), 1u);
    EXPECT_TRUE(stamp->incomplete);
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 73u);
    EXPECT_FALSE(stamp->incomplete);

    setHalfSpace(0);
    octree->busy = 1;
    (*fix)(stamp);
    EXPECT_EQ(countLoaded(*octree), 73u);
    EXPECT_EQ(octree->busy, 1u) << "the bit belongs to whoever set it";
    octree->busy = 0;
    (*fix)(stamp);
    EXPECT_EQ(countLoaded(*octree), 37u);
    EXPECT_EQ(octree->busy, 0u);
}

/// Stands for a cell in the cache of nodes. A pass asks for its bound when it hands it over to be compiled.
class WatchingLeaf : public CellLeaf
{
public:
    WatchingLeaf(const CellKey& key, std::function<void()> watch)
        : CellLeaf(key, osg::Vec3f(), osg::Vec3f()), _watch(std::move(watch))
    {
    }

    osg::BoundingSphere computeBound() const override
    {
        _watch();
        return osg::BoundingSphere();
    }

private:
    std::function<void()> _watch;
};

TEST_F(LodPassTest, KeepsTheFileWhileItReadsOnHalfTheProcessors)
{
    std::mutex mutex; // guards the next three
    std::set<std::thread::id> readers;
    int read = 0;
    int unguarded = 0;
    std::function<bool()> isGuarded;
    std::vector<osg::ref_ptr<osg::Node>> leaves;
    visitCells(*octree->root, [&](CellData& cell) {
        const osg::ref_ptr<CellLeaf::CellKey> key =
            new CellLeaf::CellKey(cell.record.level, cell.record.code);
        leaves.push_back(new WatchingLeaf(*key, [&] {
            const std::lock_guard<std::mutex> lock(mutex);
            readers.insert(std::this_thread::get_id());
            ++read;
            unguarded += !isGuarded();
        }));
        PCDataManager::getInstance()->registerNode(leaves.back(), cell.identifier);
    });
    std::mutex& file = octree->pointFile->mutex;
    const auto isFree = [&file] { // asked on a thread that does not hold it
        bool free = false;
        std::thread([&] {
            free = file.try_lock();
            if (free) file.unlock();
        }).join();
        return free;
    };
    setHalfSpace(-kSize);
    const auto expectGuarded = [&](osg::Operation& pass) {
        pass(stamp);
        EXPECT_EQ(read, 73);
        EXPECT_EQ(unguarded, 0);
        EXPECT_LE(readers.size(), std::max(1u, std::thread::hardware_concurrency() / 2));
        EXPECT_TRUE(isFree());
        EXPECT_EQ(octree->busy, 0u);
        // Unload them, and let the next pass ask again.
        octree->visibility = OctreeInfo::HIDDEN_NOT_CLEARED;
        (*dyn)(stamp);
        octree->visibility = OctreeInfo::VISIBLE;
        for (const osg::ref_ptr<osg::Node>& leaf : leaves)
            leaf->dirtyBound();
        readers.clear();
        read = 0;
    };
    const osg::ref_ptr<VelIncrementalCompileOperation> compile = new VelIncrementalCompileOperation;
    isGuarded = [&] { return !isFree(); };
    expectGuarded(*osg::ref_ptr<DynPointCloudLod>(new DynPointCloudLod(compile, nullptr)));
    isGuarded = [&] { return octree->busy == 1; };
    expectGuarded(*osg::ref_ptr<FixPointCloudLod>(new FixPointCloudLod(compile, nullptr)));
}

TEST_F(LodPassTest, WhatItReadsIsCompiledAfterWhatWaitsAlready)
{
    const osg::ref_ptr<VelIncrementalCompileOperation> compile = new VelIncrementalCompileOperation;
    dyn = new DynPointCloudLod(compile, nullptr);
    for (const auto& [budget, waiting] : {std::pair(0u, 1u), std::pair(1000u, 9u), std::pair(10000u, 73u)}) {
        stamp->maxNumOfPointCloud = budget;
        (*dyn)(stamp);
        int deepest = 0;
        ASSERT_EQ(compile->getToCompile().size(), waiting);
        for (const auto& set : compile->getToCompile()) {
            const int level = dynamic_cast<CellLeaf&>(*set->_subgraphToCompile).getLevel();
            EXPECT_GE(level, deepest);
            deepest = level;
        }
    }
}

TEST_F(LodPassTest, LoadsEveryLevelThatARecordCanState)
{
    octree = handOctree(fullTree(256, osg::Vec3d(), kSize, 1));
    stamp->octrees = {octree};
    setHalfSpace(-kSize);
    (*fix)(stamp);
    EXPECT_EQ(countLoaded(*octree), 256u);
    setHalfSpace(kSize);
    (*fix)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u);
}

TEST_F(LodPassTest, AnOctreeWhoseFileIsNotOpenIsLeftAlone)
{
    octree->pointFile = std::make_unique<VelBrx::File>("/nonexistent/store.brx");
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u);
    EXPECT_FALSE(octree->cellTable);
}

TEST_F(LodPassTest, AnAbortedPassReadsNothingClearsTheFlagAndTheNextOneReadsTheRest)
{
    dyn->setAbort(true);
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 0u);
    EXPECT_TRUE(stamp->incomplete);
    EXPECT_FALSE(dyn->isAborted());
    (*dyn)(stamp);
    EXPECT_EQ(countLoaded(*octree), 73u);
    EXPECT_FALSE(stamp->incomplete);
}

TEST_F(LodPassTest, ACellThatCannotBeReadIsTriedAgainByLaterPasses)
{
    CellData& cell = *octree->root->children[3];
    const std::vector<VelBrx::Segment> segments = cell.record.segments;
    cell.record.segments.clear();
    (*dyn)(stamp);
    EXPECT_FALSE(cell.node);
    EXPECT_EQ(countLoaded(*octree), 72u);
    EXPECT_FALSE(stamp->incomplete) << "no pass is forced for a cell that may never be readable";
    cell.record.segments = segments;
    (*dyn)(stamp);
    EXPECT_TRUE(cell.node);
}

} // namespace
