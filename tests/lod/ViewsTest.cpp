#include "lod/CellVisibility.h"
#include "tests/support/HandOctree.h"
#include "tests/support/PagingScene.h"
#include "tests/support/PlainWalk.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <gtest/gtest.h>
#include <osgViewer/CompositeViewer>

#include <algorithm>
#include <chrono>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace {

using VelOsgDBBrx::GlobalObject;
using Cells = std::set<const CellData*>;

/// Two opposite corners of the cloud, seen from close by.
const osg::Vec3d kLowEye(-60, -70, -50), kLowTarget(-42, -40, -44);
const osg::Vec3d kHighEye(70, 60, 55), kHighTarget(40, 44, 41);

VelOsgUtils::CameraState stateOf(const osg::Camera& camera)
{
    return {camera.getProjectionMatrix(), camera.getViewMatrix(),
            static_cast<int>(camera.getViewport()->width()),
            static_cast<int>(camera.getViewport()->height())};
}

/// What a camera wants of an octree where it is the only one.
Cells cellsWanted(const OctreeInfo& octree, const osg::Matrixd& localToWorld,
                  const VelOsgUtils::CameraState& camera)
{
    const osg::ref_ptr<VelOsgDBBrx::FrameStamp> noRegion = new VelOsgDBBrx::FrameStamp;
    const CameraVisibility visibility(camera, *noRegion, localToWorld);
    Cells wanted;
    walkPlainly(
        *octree.root, octree, visibility, [&](const CellData& cell) { wanted.insert(&cell); },
        [](const CellData&) {});
    return wanted;
}

Cells cellsLoaded(const OctreeInfo& octree)
{
    Cells loaded;
    visitCells(*octree.root, [&](CellData& cell) {
        if (cell.node) loaded.insert(&cell);
    });
    return loaded;
}

class ViewsOfACloud : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
protected:
    ViewsOfACloud() { scene.look(kLowEye, kLowTarget); }
    ~ViewsOfACloud() override { scene.view.viewer->stopThreading(); }

    osgViewer::Viewer& viewer() { return *scene.view.viewer; }
    osg::Camera& master() { return scene.view.camera(); }

    osg::Matrixd lookAt(const osg::Vec3d& eye, const osg::Vec3d& target) const
    {
        const osg::Vec3d middle = scene.placement->getMatrix().getTrans();
        return osg::Matrixd::lookAt(middle + eye, middle + target, osg::Vec3d(0, 0, 1));
    }

    /// A slave camera of the viewer that looks from `eye` at `target`.
    osg::ref_ptr<osg::Camera> addSlave(EglGraphicsWindow& window, const osg::Vec3d& eye,
                                       const osg::Vec3d& target,
                                       const osg::Matrixd& projectionOffset = osg::Matrixd())
    {
        const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
        window.attachTo(*camera);
        viewer().stopThreading();
        viewer().addSlave(camera, projectionOffset,
                          osg::Matrixd::inverse(master().getViewMatrix()) * lookAt(eye, target));
        if (!window.isRealized()) window.realize();
        viewer().startThreading();
        return camera;
    }

    /// Draws frames of all viewers until paging of the cloud is at rest.
    bool settle(std::vector<osgViewer::ViewerBase*> viewers = {})
    {
        viewers.insert(viewers.begin(), &viewer()); // its context pages the cloud
        return drawUntil(viewers, [&] { return scene.manager().isSettled(); });
    }

    Cells wantedBy(const osg::Camera& camera) const
    {
        return cellsWanted(*scene.lod->getOctree(), scene.placement->getMatrix(), stateOf(camera));
    }

    /// The cloud has the cells that these cameras want, no others, and draws them.
    void expectPagedFor(const std::vector<const osg::Camera*>& cameras) const
    {
        Cells wanted;
        for (const osg::Camera* camera : cameras) {
            const Cells more = wantedBy(*camera);
            wanted.insert(more.begin(), more.end());
            EXPECT_GT(more.size(), 20u);
        }
        const Cells loaded = cellsLoaded(*scene.lod->getOctree());
        EXPECT_EQ(loaded.size(), wanted.size());
        EXPECT_TRUE(loaded == wanted);
        EXPECT_EQ(scene.loadedNodes(), scene.drawnNodes());
        for (const osg::Camera* camera : cameras)
            EXPECT_TRUE(cameras.size() == 1 || wantedBy(*camera) != wanted) << "one view wants it all";
    }

    PagingScene scene{GetParam(), 4, 10};
};

INSTANTIATE_TEST_SUITE_P(Views, ViewsOfACloud, everyThreadingModel(), threadingModelName);

TEST_P(ViewsOfACloud, TwoWindowsOfOneViewerAndOneIsClosed)
{
    for (const bool registered : {false, true}) {
        const osg::ref_ptr<EglGraphicsWindow> window = makeWindow(64, 64);
        if (registered) GlobalObject::registerGraphicsContext(window);
        const osg::ref_ptr<osg::Camera> slave = addSlave(*window, kHighEye, kHighTarget);
        ASSERT_TRUE(settle());
        expectPagedFor({&master(), slave});

        viewer().stopThreading();
        window->close();
        viewer().startThreading();
        ASSERT_TRUE(settle());
        expectPagedFor({&master()});
        viewer().stopThreading();
        viewer().removeSlave(viewer().findSlaveIndexForCamera(slave));
        viewer().startThreading();
        GlobalObject::unRegisterGraphicsContext(window);
    }
}

TEST_P(ViewsOfACloud, ASplitViewInOneWindowWhoseHalvesMoveRestAndGo)
{
    master().setViewport(0, 0, 32, 64);
    const osg::ref_ptr<osg::Camera> half = addSlave(*scene.view.window, kHighEye, kHighTarget);
    half->setViewport(32, 0, 32, 64);
    ASSERT_TRUE(settle());
    expectPagedFor({&master(), half});

    viewer().getSlave(0)._viewOffset = osg::Matrixd::inverse(master().getViewMatrix()) *
                                       lookAt(osg::Vec3d(-60, 70, 20), osg::Vec3d(-42, 40, 10));
    ASSERT_TRUE(settle());
    expectPagedFor({&master(), half});

    half->setNodeMask(0);
    ASSERT_TRUE(settle());
    expectPagedFor({&master()});
    half->setNodeMask(~0u);
    ASSERT_TRUE(settle());
    expectPagedFor({&master(), half});

    viewer().stopThreading();
    half->setGraphicsContext(nullptr);
    viewer().removeSlave(0);
    viewer().startThreading();
    ASSERT_TRUE(settle());
    expectPagedFor({&master()});
}

TEST_P(ViewsOfACloud, SlavesOfAVideoWall)
{
    viewer().stopThreading();
    master().setGraphicsContext(nullptr); // draws nothing itself
    viewer().startThreading();
    const osg::Matrixd wide = osg::Matrixd::scale(2, 1, 1);
    const auto left =
        addSlave(*scene.view.window, kLowEye, kLowTarget, wide * osg::Matrixd::translate(1, 0, 0));
    ASSERT_TRUE(settle()); // this window pages the cloud
    const osg::ref_ptr<EglGraphicsWindow> second = makeWindow(64, 64);
    GlobalObject::registerGraphicsContext(second);
    const auto right = addSlave(*second, kLowEye, kLowTarget, wide * osg::Matrixd::translate(-1, 0, 0));
    ASSERT_TRUE(settle());
    expectPagedFor({left, right});
    viewer().stopThreading();
    GlobalObject::unRegisterGraphicsContext(second);
}

TEST_P(ViewsOfACloud, TwoContextsOfTwoViewersShareACloudUntilOneDropsItOrDies)
{
    auto other = std::make_unique<HeadlessViewer>(48, 48, GetParam());
    const osg::ref_ptr<osg::GraphicsContext> context = other->window;
    GlobalObject::registerGraphicsContext(context);
    const osg::ref_ptr<osg::Group> otherScene = new osg::Group;
    otherScene->addChild(scene.placement);
    other->camera().setViewMatrix(lookAt(kHighEye, kHighTarget));
    other->show(otherScene);
    ASSERT_TRUE(settle({other->viewer}));
    expectPagedFor({&master(), &other->camera()});

    otherScene->removeChild(scene.placement); // shows something else from now on
    ASSERT_TRUE(settle({other->viewer}));
    expectPagedFor({&master()});
    otherScene->addChild(scene.placement);
    ASSERT_TRUE(settle({other->viewer}));
    expectPagedFor({&master(), &other->camera()});

    const osg::ref_ptr<osg::Camera> survivor = &other->camera(); // hosts hold cameras
    other.reset();
    ASSERT_TRUE(settle());
    expectPagedFor({&master()});
    GlobalObject::unRegisterGraphicsContext(context);
}

TEST_P(ViewsOfACloud, CamerasOfTheirOwnProjectionsPageACloudThatStandsObliqueAtTwoPlaces)
{
    master().setViewport(0, 0, 40, 64);
    const auto half = addSlave(*scene.view.window, kHighEye, kHighTarget,
                               osg::Matrixd::scale(3, 2, 1) * osg::Matrixd::translate(0.4, -0.3, 0));
    half->setViewport(40, 0, 24, 50);
    const osg::ref_ptr<osg::MatrixTransform> second = new osg::MatrixTransform;
    second->addChild(scene.cloud);
    scene.placement->addChild(second);
    const osg::Matrixd upright = scene.placement->getMatrix();
    for (const double angle : {0.5, 2.0}) { // moves it under still cameras
        scene.placement->setMatrix(osg::Matrixd::rotate(angle, osg::Vec3d(1, 2, 3)) *
                                   osg::Matrixd::scale(1.3, 0.8, 1) * upright);
        second->setMatrix(osg::Matrixd::rotate(angle, osg::Vec3d(3, 0, 1)) *
                          osg::Matrixd::translate(10, 5, -20));
        ASSERT_TRUE(settle());
        const osg::Matrixd places[] = {scene.placement->getMatrix(),
                                       second->getMatrix() * scene.placement->getMatrix()};
        const VelOsgUtils::CameraState cameras[] = {stateOf(master()), stateOf(*half)};
        const auto wantedBy = [&](const VelOsgUtils::CameraState& one, const VelOsgUtils::CameraState& other,
                                  int firstPlace, int lastPlace) {
            Cells wanted;
            for (int place = firstPlace; place <= lastPlace; ++place)
                for (const auto& camera : {one, other})
                    wanted.merge(cellsWanted(*scene.lod->getOctree(), places[place], camera));
            return wanted;
        };
        const Cells wanted = wantedBy(cameras[0], cameras[1], 0, 1);
        EXPECT_TRUE(cellsLoaded(*scene.lod->getOctree()) == wanted);
        EXPECT_EQ(scene.loadedNodes(), scene.drawnNodes());
        EXPECT_GT(wanted.size(), 100u);
        for (const int place : {0, 1})
            EXPECT_FALSE(wantedBy(cameras[0], cameras[1], place, place) == wanted) << "one place decides";
        auto mixed = cameras[0], mixedToo = cameras[1];
        std::swap(mixed.projection, mixedToo.projection);
        EXPECT_FALSE(wantedBy(mixed, mixedToo, 0, 1) == wanted) << "any projection would do";
    }
    for (int frame = 0; frame < 10; ++frame) { // still cameras of a still cloud ask for nothing
        viewer().frame();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_TRUE(scene.manager().isSettled());
    }
}

TEST_P(ViewsOfACloud, AnOnlookerIsSettledWhenTheCloudIsAndTakesItOverUnderItsOwnBudget)
{
    HeadlessViewer near(48, 48, GetParam()), far(32, 32, GetParam());
    near.camera().setViewMatrix(lookAt(kHighEye, kHighTarget));
    far.camera().setViewMatrix(lookAt(osg::Vec3d(40, 60, 200), osg::Vec3d()));
    std::vector<VelOsgDBBrx::IPointLoadManager*> onlookers;
    ASSERT_TRUE(settle());
    for (HeadlessViewer* view : {&near, &far}) {
        onlookers.push_back(GlobalObject::registerGraphicsContext(view->window));
        onlookers.back()->setMaxNumOfPointCloud(400 * onlookers.size());
        const osg::ref_ptr<osg::Group> own = new osg::Group;
        own->addChild(scene.placement);
        view->show(own);
    }
    const auto settleOnlookers = [&](const std::vector<osgViewer::ViewerBase*>& drawing) {
        int unsettled = 0;
        for (int frame = 0; frame < 2000; ++frame) {
            for (osgViewer::ViewerBase* viewer : drawing)
                viewer->frame();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            if (frame < 3) continue; // until every camera was noted
            const bool settled = onlookers[0]->isSettled();
            EXPECT_EQ(settled, onlookers[1]->isSettled()) << "both show the same";
            if (settled) return unsettled;
            ++unsettled;
        }
        return -1;
    };
    scene.manager().getIncrementalCompileOperation()->setMaximumNumOfObjectsToCompilePerFrame(1);
    EXPECT_GT(settleOnlookers({&viewer(), near.viewer, far.viewer}), 5);
    expectPagedFor({&master(), &near.camera(), &far.camera()});

    GlobalObject::unRegisterGraphicsContext(far.window); // it draws no further frame, and counts no more
    ASSERT_TRUE(settle({near.viewer}));
    expectPagedFor({&master(), &near.camera()});
    onlookers[1] = onlookers[0];
    GlobalObject::unRegisterGraphicsContext(scene.view.window);
    EXPECT_FALSE(onlookers[0]->isSettled()) << "nobody pages the cloud";
    EXPECT_GE(settleOnlookers({near.viewer}), 0);
    EXPECT_EQ(scene.loadedNodes(), scene.drawnNodes());
    EXPECT_GT(scene.drawnNodes().size(), 8u);
    EXPECT_LT(scene.drawnNodes().size() * 10, 400u);
    GlobalObject::unRegisterGraphicsContext(near.window);
}

TEST_P(ViewsOfACloud, InACompositeViewerEachViewCountsForTheCloudsThatItDraws)
{
    const TempFolder folder;
    const PlacedCloud clouds[2] = {PlacedCloud(writeRandomStore(folder, 3, 10, 11)),
                                   PlacedCloud(writeRandomStore(folder, 3, 10, 12))};
    const osg::ref_ptr<EglGraphicsWindow> window = makeWindow(64, 64);
    GlobalObject::registerGraphicsContext(window);
    {
        osgViewer::CompositeViewer composite;
        composite.setThreadingModel(GetParam());
        const osg::Vec3d eyes[2] = {kLowEye, kHighEye}, targets[2] = {kLowTarget, kHighTarget};
        osg::ref_ptr<osg::Camera> cameras[2];
        for (int i = 0; i < 2; ++i) {
            const osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
            cameras[i] = view->getCamera();
            window->attachTo(*cameras[i]);
            cameras[i]->setViewport(32 * i, 0, 32, 64);
            cameras[i]->setProjectionMatrixAsPerspective(30, 0.5, 1, 10000);
            cameras[i]->setViewMatrixAsLookAt(clouds[i].offset + eyes[i], clouds[i].offset + targets[i],
                                              osg::Vec3d(0, 0, 1));
            view->setSceneData(clouds[i].root);
            composite.addView(view);
        }
        composite.realize();
        const auto settled = [&] {
            return drawUntil({&composite}, [&] { return GlobalObject::getPLM(window)->isSettled(); });
        };
        const auto wanted = [&](int cloud, int camera) {
            return cellsWanted(clouds[cloud].octree(), clouds[cloud].root->getMatrix(),
                               stateOf(*cameras[camera]));
        };
        ASSERT_TRUE(settled());
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(cellsLoaded(clouds[i].octree()) == wanted(i, i)) << i;
            EXPECT_FALSE(wanted(i, 1 - i) == wanted(i, i));
        }
        composite.stopThreading();
        cameras[0]->setGraphicsContext(nullptr);
        composite.removeView(composite.getView(0));
        composite.startThreading();
        ASSERT_TRUE(settled());
        EXPECT_TRUE(cellsLoaded(clouds[0].octree()).empty());
        EXPECT_TRUE(cellsLoaded(clouds[1].octree()) == wanted(1, 1));
        composite.stopThreading();
    }
    GlobalObject::unRegisterGraphicsContext(window);
}

/// A pass over octrees of four levels, 1 + 8 + 64 + 512 cells of 100 points.
class BudgetOfViews : public testing::Test
{
protected:
    BudgetOfViews()
    {
        for (auto& octree : octrees) {
            octree = handOctree(fullTree(4, osg::Vec3d(), 100));
            stamp->octrees.push_back(octree);
        }
    }

    /// A camera before the cube; wide ones want it all.
    static VelOsgUtils::CameraState camera(double fieldOfView, const osg::Vec3d& target = osg::Vec3d())
    {
        return {osg::Matrixd::perspective(fieldOfView, 1, 1, 1000),
                osg::Matrixd::lookAt(osg::Vec3d(0, -300, 0), target, osg::Vec3d(0, 0, 1)), 10000, 10000};
    }

    void pass(uint64_t budget)
    {
        stamp->maxNumOfPointCloud = budget;
        (*operation)(stamp);
        EXPECT_FALSE(stamp->incomplete);
    }

    size_t loaded(int octree) const { return countLoaded(*octrees[octree]); }

    osg::ref_ptr<OctreeInfo> octrees[2];
    osg::ref_ptr<VelOsgDBBrx::FrameStamp> stamp = new VelOsgDBBrx::FrameStamp;
    osg::ref_ptr<VelOsgDBBrx::DynPointCloudLod> operation =
        new VelOsgDBBrx::DynPointCloudLod(nullptr, nullptr);
};

constexpr uint64_t kAll = 58500, kThreeLevels = 7300; // points

TEST_F(BudgetOfViews, AModestViewHasAllItWantsBesideAGreedyOne)
{
    const VelOsgUtils::CameraState narrow = camera(4, osg::Vec3d(-30, 0, 20));
    stamp->views = {{camera(60), {0}}, {narrow, {0}}};
    pass(20000);
    const Cells modest = cellsWanted(*octrees[0], osg::Matrixd(), narrow);
    const Cells all = cellsLoaded(*octrees[0]);
    EXPECT_GT(modest.size(), 30u);
    EXPECT_TRUE(std::includes(all.begin(), all.end(), modest.begin(), modest.end()));
    EXPECT_GE(countLoaded(*octrees[0], 2), 64u) << "and the greedy one the coarse levels";
    EXPECT_LT(all.size() * 100, 20000u);
    pass(kAll + 1);
    EXPECT_EQ(loaded(0), 585u);
}

TEST_F(BudgetOfViews, EqualViewsHaveEqualShares)
{
    stamp->views = {{camera(60), {0}}, {camera(60), {1}}};
    pass(kAll + kThreeLevels + 1000); // enough for all of one of them
    EXPECT_EQ(loaded(0), 73u);
    EXPECT_EQ(loaded(1), 73u);
    pass(2 * kAll);
    EXPECT_EQ(loaded(0) + loaded(1), 585u + 73u) << "the sum stays below the budget";
    pass(2 * kAll + 1);
    EXPECT_EQ(loaded(0) + loaded(1), 2 * 585u);
    pass(1);
    EXPECT_EQ(loaded(0) + loaded(1), 2u) << "level 0 always";
}

TEST_F(BudgetOfViews, ViewsOfTheSameCostNoMoreThanOne)
{
    for (const uint64_t budget : {uint64_t{3}, kThreeLevels, kThreeLevels + 1, kAll, kAll + 1}) {
        stamp->views = {{camera(60), {0}}};
        pass(budget);
        const Cells alone = cellsLoaded(*octrees[0]);
        stamp->views = {{camera(60), {0}}, {camera(60), {0}}, {camera(60), {0}}};
        pass(budget);
        EXPECT_TRUE(cellsLoaded(*octrees[0]) == alone) << budget;
        EXPECT_EQ(operation->wantedPoints(), kAll) << "each point once";
    }
}

TEST_F(BudgetOfViews, AnOctreeThatNoViewDrawsIsTakenOut)
{
    pass(2 * kAll + 1); // no views: the main camera draws all
    EXPECT_EQ(loaded(0) + loaded(1), 0u) << "it has no viewport yet";
    for (const size_t views : {1, 2}) {
        stamp->views.assign(views, {camera(60), {0, 1, 7}});
        pass(2 * kAll + 1);
        EXPECT_EQ(loaded(0) + loaded(1), 2 * 585u);
        stamp->views.assign(views, {camera(60), {1}});
        pass(2 * kAll + 1);
        EXPECT_EQ(loaded(0), 0u);
        EXPECT_EQ(loaded(1), 585u);
    }
}

} // namespace
