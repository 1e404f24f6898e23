#include <VelOsgDBBrx/GlobalObject.h>

#include "lod/PointCloudLOD.h"
#include "lod/PointCloudLODVisitor.h"
#include "tests/support/HandOctree.h"
#include "tests/support/PagingScene.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

namespace {

using ThreadingModel = osgViewer::ViewerBase::ThreadingModel;
using VelOsgDBBrx::GlobalObject;

constexpr size_t kCells = 73;

/// A viewer of some clouds. Its context is registered by the tests and outlives it.
struct Window
{
    explicit Window(osg::Node* scene, double distance = 300,
                    ThreadingModel threading = osgViewer::ViewerBase::SingleThreaded)
        : view(std::make_unique<HeadlessViewer>(16, 16, threading)), gc(view->window)
    {
        look(distance);
        view->show(scene);
    }

    void look(double distance) const
    {
        const osg::Vec3d middle(500000, 4500000, 100);
        view->camera().setViewMatrixAsLookAt(middle + osg::Vec3d(0, -distance, 0), middle,
                                             osg::Vec3d(0, 0, 1));
    }

    std::unique_ptr<HeadlessViewer> view; ///< null once it died
    osg::ref_ptr<osg::GraphicsContext> gc;
};

class HandOver : public testing::Test
{
protected:
    TempFolder folder;
    const std::string path = writeRandomStore(folder, 3, 20);
    PlacedCloud cloud{path};
};

TEST_F(HandOver, WhatADeadViewerLeftInTheSceneGoesUnlessTheNextOneWantsIt)
{
    for (const double distance : {1e6, 300.0}) {
        Window a(cloud.root);
        GlobalObject::registerGraphicsContext(a.gc);
        ASSERT_TRUE(settle(*a.view));
        EXPECT_EQ(cloud.drawn().size(), kCells);
        a.view = nullptr;
        GlobalObject::unRegisterGraphicsContext(a.gc);

        Window b(cloud.root, distance);
        GlobalObject::registerGraphicsContext(b.gc);
        const osg::ref_ptr<osg::Node> kept = cloud.lod->getChild(0);
        b.view->frame();
        EXPECT_TRUE(cloud.lod->containsNode(kept)) << "nothing flickers while it is taken over";
        EXPECT_FALSE(GlobalObject::getPLM(b.gc)->isSettled());
        ASSERT_TRUE(settle(*b.view));
        EXPECT_EQ(cloud.drawn().size(), distance < 1000 ? kCells : 0);
        EXPECT_EQ(cloud.loaded(), cloud.drawn());
        b.view = nullptr;
        GlobalObject::unRegisterGraphicsContext(b.gc);
    }
    Window unregistered(cloud.root);
    unregistered.view->frame();
    EXPECT_TRUE(cloud.drawn().empty());
}

TEST_F(HandOver, AViewerThatGaveUpACloudRemovesNothingThatTheNextOneLoaded)
{
    Window a(cloud.root), b(cloud.root);
    for (int round = 0; round < 4; ++round) {
        GlobalObject::registerGraphicsContext(a.gc);
        ASSERT_TRUE(settle(*a.view));
        if (round % 2) { // removals wait when the cloud is given up
            GlobalObject::getDecrementalCompileOperation(a.gc)->setMaximumPerFrame(1);
            a.look(1e6);
            for (int frame = 0; frame < 5; ++frame) {
                a.view->frame();
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            EXPECT_GT(GlobalObject::getDecrementalCompileOperation(a.gc)->pending(), 0u);
            a.look(300);
        }
        GlobalObject::unRegisterGraphicsContext(a.gc);
        GlobalObject::registerGraphicsContext(b.gc);
        ASSERT_TRUE(settle(*b.view));
        EXPECT_EQ(cloud.drawn().size(), kCells);
        for (int frame = 0; frame < 3; ++frame)
            a.view->frame();
        EXPECT_TRUE(GlobalObject::getPLM(b.gc)->isSettled());
        EXPECT_EQ(cloud.drawn().size(), kCells);
        EXPECT_EQ(cloud.loaded(), cloud.drawn());
        GlobalObject::unRegisterGraphicsContext(b.gc);
    }
}

TEST_F(HandOver, AContextThatIsUnregisteredWhileItCullsACloudLeavesItToTheNextOne)
{
    const osg::ref_ptr<osg::GraphicsContext> gone = Window(new osg::Group).gc;
    GlobalObject::registerGraphicsContext(gone);
    const auto loads = GlobalObject::acquirePLM(gone);
    const auto categories = GlobalObject::acquirePCM(gone);
    GlobalObject::unRegisterGraphicsContext(gone);
    cloud.lod->registerOctree(loads, categories);
    EXPECT_FALSE(cloud.lod->getOctree()->registered);

    Window next(cloud.root);
    GlobalObject::registerGraphicsContext(next.gc);
    ASSERT_TRUE(settle(*next.view));
    EXPECT_EQ(cloud.drawn().size(), kCells);
    GlobalObject::unRegisterGraphicsContext(next.gc);
}

/// A host's pass that asks the registry about its context for as long as that is registered.
class AskingPass : public osg::Operation
{
public:
    explicit AskingPass(osg::GraphicsContext* gc) : osg::Operation("AskingPass", true), _gc(gc) {}

    void operator()(osg::Object*) override
    {
        running = true;
        while (GlobalObject::getPLM(_gc))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        GlobalObject::getMaxNumOfPointCloud(_gc);
    }

    std::atomic<bool> running{false};

private:
    osg::GraphicsContext* const _gc;
};

TEST_F(HandOver, AHostsPassMayAskTheRegistryWhileItsContextIsUnregistered)
{
    Window window(cloud.root);
    const osg::ref_ptr<AskingPass> pass = new AskingPass(window.gc);
    GlobalObject::registerGraphicsContext(window.gc)->setLodOperation(pass);
    while (!pass->running)
        window.view->frame();
    GlobalObject::unRegisterGraphicsContext(window.gc); // a deadlock here is ended by the test's time limit
    EXPECT_FALSE(GlobalObject::getPLM(window.gc));
}

/// Windows that open, draw, turn, are unregistered and die in a random order, over two clouds of one file.
class ComingAndGoing : public testing::TestWithParam<unsigned>
{
protected:
    void step()
    {
        switch (pick(8)) {
        case 0:
            if (_windows.size() < 3) open();
            break;
        case 1:
            if (Window* window = any()) GlobalObject::unRegisterGraphicsContext(window->gc);
            break;
        case 2:
            if (pick(2)) die();
            break;
        case 3:
            if (Window* window = any()) GlobalObject::registerGraphicsContext(window->gc);
            break;
        case 4:
            if (Window* window = any()) window->look(pick(3) ? 200 + 50 * pick(10) : 1e6);
            break;
        case 5:
            std::this_thread::sleep_for(std::chrono::milliseconds(pick(5)));
            break;
        default:
            for (int frame = pick(4); frame >= 0; --frame)
                if (Window* window = any()) window->view->frame();
        }
    }

    /// Lets the windows that are left come to rest.
    void settleAll()
    {
        for (const osg::ref_ptr<osg::GraphicsContext>& gc : _contextsOfTheDead)
            GlobalObject::unRegisterGraphicsContext(gc);
        _contextsOfTheDead.clear();
        std::vector<osgViewer::ViewerBase*> viewers;
        for (const auto& window : _windows)
            viewers.push_back(window->view->viewer);
        ASSERT_TRUE(drawUntil(viewers, [&] {
            return std::all_of(_windows.begin(), _windows.end(), [](const auto& window) {
                const auto manager = GlobalObject::acquirePLM(window->gc);
                return !manager || manager->isSettled();
            });
        }));
    }

    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(_random); }

    TempFolder _folder;
    const std::string _path = writeRandomStore(_folder, 3, 20);
    PlacedCloud _clouds[2]{PlacedCloud(_path), PlacedCloud(_path)};
    std::vector<std::unique_ptr<Window>> _windows;
    std::vector<osg::ref_ptr<osg::GraphicsContext>> _contextsOfTheDead;
    std::mt19937 _random{GetParam()};
    const ThreadingModel _threading = static_cast<ThreadingModel>(pick(4));

private:
    Window* any() { return _windows.empty() ? nullptr : _windows[pick(int(_windows.size()))].get(); }

    void open()
    {
        const osg::ref_ptr<osg::Group> both = new osg::Group;
        for (const PlacedCloud& cloud : _clouds)
            both->addChild(cloud.root);
        const osg::ref_ptr<osg::Node> scenes[3] = {_clouds[0].root, _clouds[1].root, both};
        _windows.push_back(std::make_unique<Window>(scenes[pick(3)], 300, _threading));
        if (pick(4)) GlobalObject::registerGraphicsContext(_windows.back()->gc);
    }

    void die()
    {
        if (_windows.empty()) return;
        const size_t index = size_t(pick(int(_windows.size())));
        _contextsOfTheDead.push_back(_windows[index]->gc);
        if (pick(2)) GlobalObject::unRegisterGraphicsContext(_windows[index]->gc);
        _windows.erase(_windows.begin() + long(index));
    }
};

INSTANTIATE_TEST_SUITE_P(HandOver, ComingAndGoing, testing::Range(0u, 12u));

TEST_P(ComingAndGoing, LeavesWhoeverShowsACloudWithExactlyTheLoadedCells)
{
    size_t drawn = 0;
    for (int round = 0; round < 12; ++round) {
        for (int i = 0; i < 12; ++i)
            step();
        ASSERT_NO_FATAL_FAILURE(settleAll()) << "round " << round;
        if (_windows.empty()) continue;
        // What nobody shows waits for the next who does.
        for (const PlacedCloud& cloud : _clouds) {
            PointCloudLODVisitor shown;
            for (const auto& window : _windows)
                window->view->viewer->getSceneData()->accept(shown);
            if (std::count(shown.nodes.begin(), shown.nodes.end(), cloud.lod.get()) == 0) continue;
            ASSERT_EQ(cloud.drawn(), cloud.loaded()) << "round " << round;
            drawn += cloud.drawn().size();
        }
    }
    EXPECT_GT(drawn, 2 * kCells) << "the flight was a lame one";
    for (const auto& window : _windows)
        GlobalObject::unRegisterGraphicsContext(window->gc);
    for (const osg::ref_ptr<osg::GraphicsContext>& gc : _contextsOfTheDead)
        GlobalObject::unRegisterGraphicsContext(gc);
}

} // namespace
