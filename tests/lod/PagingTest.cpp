#include "tests/support/PagingScene.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

namespace {

using ThreadingModel = osgViewer::ViewerBase::ThreadingModel;

class EveryThreadingModel : public testing::TestWithParam<ThreadingModel>
{
};

std::string modelName(const testing::TestParamInfo<ThreadingModel>& model)
{
    switch (model.param) {
    case osgViewer::ViewerBase::SingleThreaded:
        return "SingleThreaded";
    case osgViewer::ViewerBase::CullDrawThreadPerContext:
        return "CullDrawThreadPerContext";
    case osgViewer::ViewerBase::DrawThreadPerContext:
        return "DrawThreadPerContext";
    default:
        return "CullThreadPerCameraDrawThreadPerContext";
    }
}

INSTANTIATE_TEST_SUITE_P(Paging, EveryThreadingModel,
                         testing::Values(osgViewer::ViewerBase::SingleThreaded,
                                         osgViewer::ViewerBase::CullDrawThreadPerContext,
                                         osgViewer::ViewerBase::DrawThreadPerContext,
                                         osgViewer::ViewerBase::CullThreadPerCameraDrawThreadPerContext),
                         modelName);

TEST_P(EveryThreadingModel, DrawsExactlyTheLoadedCellsAfterARandomFlightUnderASmallBudget)
{
    PagingScene scene(GetParam());
    scene.manager().setMaxNumOfPointCloud(scene.cellCount() * 20 / 3);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(-150, 150);
    size_t loaded = 0;
    for (int stop = 0; stop < 12; ++stop) {
        for (int frame = 0; frame < 15; ++frame) {
            scene.look(osg::Vec3d(coordinate(random), coordinate(random), coordinate(random)),
                       osg::Vec3d(coordinate(random), coordinate(random), coordinate(random)) * 0.3);
            scene.view.frame();
        }
        ASSERT_TRUE(scene.settle());
        ASSERT_EQ(scene.loadedNodes(), scene.drawnNodes()) << "at stop " << stop;
        loaded += scene.drawnNodes().size();
    }
    EXPECT_GT(loaded, 500u);
}

TEST_P(EveryThreadingModel, ANodeMovedUnderAStillCameraIsPagedAnew)
{
    PagingScene scene(GetParam(), 3);
    ASSERT_TRUE(scene.settle());
    EXPECT_EQ(scene.drawnNodes().size(), 73u);
    const osg::Matrixd place = scene.placement->getMatrix();
    scene.placement->setMatrix(place * osg::Matrixd::translate(50000, 0, 0));
    ASSERT_TRUE(scene.settle());
    EXPECT_TRUE(scene.drawnNodes().empty());
    scene.placement->setMatrix(place);
    ASSERT_TRUE(scene.settle());
    EXPECT_EQ(scene.drawnNodes().size(), 73u);
    EXPECT_GT(countOtherThan(*scene.view.picture(), osg::Vec3ub(0, 0, 0)), 50);
}

TEST_P(EveryThreadingModel, AHiddenOctreeLeavesTheSceneAndComesBack)
{
    PagingScene scene(GetParam(), 3);
    ASSERT_TRUE(scene.settle());
    scene.manager().setOctreeVisible(scene.lod->getOctree(), false);
    ASSERT_TRUE(scene.settle());
    EXPECT_TRUE(scene.drawnNodes().empty() && scene.loadedNodes().empty());
    EXPECT_EQ(countOtherThan(*scene.view.picture(), osg::Vec3ub(0, 0, 0)), 0);
    scene.manager().setOctreeVisible(scene.lod->getOctree(), true);
    ASSERT_TRUE(scene.settle());
    EXPECT_EQ(scene.drawnNodes().size(), 73u);
}

TEST_P(EveryThreadingModel, ALeafWantedAgainBeforeItsRemovalStaysInTheScene)
{
    PagingScene scene(GetParam(), 3);
    ASSERT_TRUE(scene.settle());
    OctreeInfo* octree = scene.lod->getOctree();
    for (int round = 0; round < 50; ++round) {
        for (const bool visible : {false, true}) {
            scene.manager().setOctreeVisible(octree, visible);
            if (round % 3 == 0) scene.view.frame();
            std::this_thread::sleep_for(std::chrono::milliseconds(round % 4));
        }
    }
    ASSERT_TRUE(scene.settle());
    EXPECT_EQ(scene.drawnNodes().size(), 73u);
    EXPECT_EQ(scene.loadedNodes(), scene.drawnNodes());
}

} // namespace
