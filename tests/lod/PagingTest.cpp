#include "tests/support/PagingScene.h"

#include <gtest/gtest.h>

#include <random>

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
    EXPECT_GT(loaded, 50u);
}

} // namespace
