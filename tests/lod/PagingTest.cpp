#include "tests/support/HandOctree.h"
#include "tests/support/PagingScene.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/CalcLevelVisitor.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

namespace {

using ThreadingModel = osgViewer::ViewerBase::ThreadingModel;

class EveryThreadingModel : public testing::TestWithParam<ThreadingModel>
{
};

INSTANTIATE_TEST_SUITE_P(Paging, EveryThreadingModel, everyThreadingModel(), threadingModelName);

TEST_P(EveryThreadingModel, DrawsExactlyTheLoadedCellsAfterARandomFlightUnderASmallBudget)
{
    PagingScene scene(GetParam());
    scene.manager().setMaxNumOfPointCloud(scene.cellCount() * 20 / 3);
    scene.manager().getDecrementalCompileOperation()->setMaximumPerFrame(5);
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

TEST_P(EveryThreadingModel, ALeafWantedAgainBeforeItsRemovalStaysInTheScene)
{
    PagingScene scene(GetParam(), 3);
    ASSERT_TRUE(scene.settle());
    OctreeInfo* octree = scene.lod->getOctree();
    scene.manager().getDecrementalCompileOperation()->setMaximumPerFrame(1); // removals pile up
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

TEST_P(EveryThreadingModel, ARegisteredViewerThatDrawsOnDemandIsAskedUntilThePictureIsFinal)
{
    PagingScene scene(GetParam(), 4);
    scene.view.viewer->setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
    VelOsgDBBrx::PCViewerManager::getInstance()->registerViewer(scene.view.viewer, "on demand");
    ASSERT_TRUE(scene.settle());
    const auto before = scene.drawnNodes();
    scene.look(osg::Vec3d(30, -40, 20));
    scene.view.frame();
    for (int i = 0; i < 2000 && !scene.manager().isSettled(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (scene.view.viewer->checkNeedToDoFrame()) scene.view.frame();
    }
    EXPECT_TRUE(scene.manager().isSettled());
    EXPECT_NE(scene.drawnNodes(), before);
    EXPECT_EQ(scene.drawnNodes(), scene.loadedNodes());
    VelOsgDBBrx::PCViewerManager::getInstance()->unRegisterViewer("on demand");
}

/// Whether a viewer that draws on demand, without drawing, wants a frame within 100 ms.
bool isAsked(osgViewer::Viewer& viewer)
{
    for (int i = 0; i < 100 && !viewer.getRequestRedraw(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return viewer.getRequestRedraw();
}

TEST(Paging, OnlyAViewerThatCanDoTheWaitingWorkOrShowsTheCloudIsAskedForFrames)
{
    auto& viewers = *VelOsgDBBrx::PCViewerManager::getInstance();
    HeadlessViewer uninvolved(8, 8), onlooker(8, 8);
    {
        PagingScene scene(osgViewer::ViewerBase::SingleThreaded, 3);
        onlooker.show(scene.placement);
        uninvolved.show(new osg::Group);
        for (HeadlessViewer* view : {&uninvolved, &onlooker, &scene.view}) {
            view->viewer->setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
            viewers.registerViewer(view->viewer, std::to_string(reinterpret_cast<uintptr_t>(view)));
        }
        scene.view.frame(); // registers the cloud; its cells then wait to be compiled
        uninvolved.frame();
        onlooker.frame();
        EXPECT_TRUE(isAsked(*scene.view.viewer));
        EXPECT_FALSE(isAsked(*uninvolved.viewer));
        EXPECT_FALSE(isAsked(*onlooker.viewer)) << "its frames merge nothing";
        size_t seen = 0;
        for (int frame = 0; frame < 1000 && seen < 73; ++frame) {
            scene.view.frame();
            if (!onlooker.viewer->checkNeedToDoFrame()) continue;
            onlooker.frame();
            seen = scene.drawnNodes().size();
        }
        EXPECT_EQ(seen, 73u) << "the last frame drawn shows all cells";
        EXPECT_FALSE(uninvolved.viewer->checkNeedToDoFrame());
        scene.manager().setOctreeVisible(scene.lod->getOctree(), false);
        ASSERT_TRUE(scene.settle());
        EXPECT_TRUE(isAsked(*onlooker.viewer)) << "cells went";
        while (onlooker.viewer->checkNeedToDoFrame())
            onlooker.frame();
        viewers.unRegisterViewer(std::to_string(reinterpret_cast<uintptr_t>(&scene.view)));
    }
    EXPECT_TRUE(isAsked(*onlooker.viewer)) << "nobody pages the cloud that it shows";
    EXPECT_FALSE(isAsked(*uninvolved.viewer));
    for (HeadlessViewer* view : {&uninvolved, &onlooker})
        viewers.unRegisterViewer(std::to_string(reinterpret_cast<uintptr_t>(view)));
}

TEST(Paging, WorkOfAWindowThatWasClosedKeepsNobodyDrawing)
{
    PagingScene scene(osgViewer::ViewerBase::SingleThreaded, 3);
    osgViewer::Viewer& viewer = *scene.view.viewer;
    const osg::ref_ptr<EglGraphicsWindow> window = makeWindow(32, 32);
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    window->attachTo(*camera);
    scene.view.camera().setCullMask(0); // the second window's context has the cloud
    camera->setCullMask(~0u);
    viewer.addSlave(camera);
    window->realize();
    auto* manager = VelOsgDBBrx::GlobalObject::registerGraphicsContext(window);
    manager->getIncrementalCompileOperation()->setMaximumNumOfObjectsToCompilePerFrame(0);
    VelOsgDBBrx::PCViewerManager::getInstance()->registerViewer(&viewer, "two windows");
    viewer.frame();
    EXPECT_TRUE(isAsked(viewer));
    EXPECT_FALSE(manager->isSettled());
    manager->setState(VelOsgDBBrx::IPointLoadManager::PAUSED); // a pass would give the cells up
    window->close();
    viewer.frame();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    viewer.frame();
    EXPECT_FALSE(manager->isSettled());
    EXPECT_FALSE(isAsked(viewer));
    manager->setState(VelOsgDBBrx::IPointLoadManager::RUNNING);
    for (int frame = 0; frame < 100 && !manager->isSettled(); ++frame)
        if (isAsked(viewer)) viewer.frame();
    EXPECT_TRUE(manager->isSettled()) << "no camera is left that wants them";
    EXPECT_FALSE(isAsked(viewer));
    VelOsgDBBrx::PCViewerManager::getInstance()->unRegisterViewer("two windows");
    VelOsgDBBrx::GlobalObject::unRegisterGraphicsContext(window);
}

/// What one window compiled waits for the others; a closed one must not be waited for.
TEST(Paging, SettlesWhenAnotherWindowIsClosedWhileCellsAreCompiled)
{
    for (const auto threading :
         {osgViewer::ViewerBase::SingleThreaded, osgViewer::ViewerBase::DrawThreadPerContext}) {
        PagingScene scene(threading, 3, 20);
        osgViewer::Viewer& viewer = *scene.view.viewer;
        scene.manager().setState(VelOsgDBBrx::IPointLoadManager::PAUSED); // until both windows draw
        const osg::ref_ptr<EglGraphicsWindow> window = makeWindow(32, 32);
        const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
        window->attachTo(*camera);
        viewer.stopThreading();
        viewer.addSlave(camera);
        window->realize();
        viewer.startThreading();
        viewer.frame();
        viewer.frame();
        auto& compile = *scene.manager().getIncrementalCompileOperation();
        compile.setMaximumNumOfObjectsToCompilePerFrame(1); // the cells wait for many frames
        scene.manager().setState(VelOsgDBBrx::IPointLoadManager::RUNNING);
        for (int frame = 0; frame < 1000 && compile.isEmpty(); ++frame)
            viewer.frame();
        ASSERT_FALSE(compile.isEmpty());

        viewer.stopThreading();
        window->close();
        viewer.startThreading();
        compile.setMaximumNumOfObjectsToCompilePerFrame(1000);
        EXPECT_TRUE(scene.settle()) << threading;
        EXPECT_EQ(scene.drawnNodes(), scene.loadedNodes());
        EXPECT_GT(scene.drawnNodes().size(), 20u);
    }
}

/// Hides the octree while the graphics thread compiles the set, when the queues no longer tell where it is.
class HideWhileCompiling : public osgUtil::IncrementalCompileOperation::CompileCompletedCallback
{
public:
    HideWhileCompiling(VelOsgDBBrx::DynPointCloudLod* pass, VelOsgDBBrx::FrameStamp* stamp)
        : _pass(pass), _stamp(stamp)
    {
    }

    bool compileCompleted(osgUtil::IncrementalCompileOperation::CompileSet*) override
    {
        _stamp->octrees[0]->visibility = OctreeInfo::HIDDEN_NOT_CLEARED;
        (*_pass)(_stamp);
        return false; // the compile operation is to merge it
    }

private:
    osg::ref_ptr<VelOsgDBBrx::DynPointCloudLod> _pass;
    osg::ref_ptr<VelOsgDBBrx::FrameStamp> _stamp;
};

TEST(Paging, LevelStatisticsAddUpTheMergedCellsOfEveryCloudAndVisit)
{
    PagingScene scene(osgViewer::ViewerBase::SingleThreaded, 3, 20);
    ASSERT_TRUE(scene.settle());
    VelOsgDBBrx::CalcLevelVisitor visitor;
    scene.placement->accept(visitor);
    using Counts = std::map<int, int>;
    EXPECT_EQ(visitor.getLevelWithNum(), (Counts{{0, 20}, {1, 160}, {2, 1280}}));
    scene.placement->accept(visitor);
    EXPECT_EQ(visitor.getLevelWithNum(), (Counts{{0, 40}, {1, 320}, {2, 2560}}));

    scene.manager().setOctreeVisible(scene.lod->getOctree(), false);
    ASSERT_TRUE(scene.settle());
    VelOsgDBBrx::CalcLevelVisitor afterwards;
    scene.placement->accept(afterwards);
    EXPECT_EQ(afterwards.getLevelWithNum(), (Counts{{0, 0}, {1, 0}, {2, 0}}));
}

TEST(Paging, ACellUnwantedWhileItIsBeingCompiledNeverEntersTheScene)
{
    HeadlessViewer view(8, 8);
    const osg::ref_ptr<VelOsgDBBrx::VelIncrementalCompileOperation> incremental =
        new VelOsgDBBrx::VelIncrementalCompileOperation;
    const osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> decremental =
        new VelOsgUtils::DecrementalCompileOperation;
    view.viewer->setIncrementalCompileOperation(incremental);
    view.viewer->addUpdateOperation(decremental);
    const osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(1, osg::Vec3d(), 100));
    const osg::ref_ptr<PointCloudLOD> lod = new PointCloudLOD(octree);
    view.show(lod);

    const osg::ref_ptr<VelOsgDBBrx::FrameStamp> stamp = new VelOsgDBBrx::FrameStamp;
    stamp->octrees = {octree};
    stamp->height = 1000;
    stamp->projection.makePerspective(60, 1, 1, 1000);
    stamp->view.makeLookAt(osg::Vec3d(0, -300, 0), osg::Vec3d(), osg::Vec3d(0, 0, 1));
    const osg::ref_ptr<VelOsgDBBrx::DynPointCloudLod> pass =
        new VelOsgDBBrx::DynPointCloudLod(incremental, decremental);
    (*pass)(stamp);
    ASSERT_TRUE(octree->root->compileSet.valid());
    octree->root->compileSet->_compileCompletedCallback = new HideWhileCompiling(pass, stamp);
    for (int frame = 0; frame < 4; ++frame)
        view.frame();
    EXPECT_FALSE(octree->root->node);
    EXPECT_EQ(lod->getNumChildren(), 0u);
    EXPECT_TRUE(incremental->isEmpty());
}

} // namespace
