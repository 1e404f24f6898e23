#include "lod/PointCloudLOD.h"
#include "tests/support/HandOctree.h"
#include "tests/support/PagingScene.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/ValueObject>
#include <osgViewer/CompositeViewer>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using VelOsgDBBrx::GlobalObject;
using VelOsgDBBrx::PCViewerManager;

constexpr int kSize = 32;

/// Counts the lit pixels of the camera's part of the window.
class PixelCount : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo& renderInfo) const override
    {
        const osg::Viewport& part = *renderInfo.getCurrentCamera()->getViewport();
        const osg::ref_ptr<osg::Image> picture = new osg::Image;
        picture->readPixels(int(part.x()), int(part.y()), int(part.width()), int(part.height()), GL_RGB,
                            GL_UNSIGNED_BYTE);
        lit = countOtherThan(*picture, osg::Vec3ub(0, 0, 0));
    }

    mutable std::atomic<int> lit{0};
};

/// Two views of one cloud side by side in one window, of a composite viewer that draws on demand.
class CompositeViewer : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
protected:
    void SetUp() override
    {
        window = makeWindow(2 * kSize, kSize);
        viewer->setThreadingModel(GetParam());
        viewer->setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
        for (int i = 0; i < 2; ++i) {
            views[i] = new osgViewer::View;
            views[i]->setLightingMode(osg::View::NO_LIGHT);
            osg::Camera& camera = *views[i]->getCamera();
            window->attachTo(camera);
            camera.setViewport(i * kSize, 0, kSize, kSize);
            camera.setProjectionMatrixAsPerspective(30, 1, 1, 10000);
            camera.setClearColor(osg::Vec4(0, 0, 0, 1));
            camera.setCullingMode(camera.getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
            camera.setViewMatrixAsLookAt(offset + osg::Vec3d(0, -300, 0), offset, osg::Vec3d(0, 0, 1));
            camera.addFinalDrawCallback(pixels[i]);
            views[i]->setSceneData(root);
            viewer->addView(views[i]);
            PCViewerManager::getInstance()->registerView(views[i], "view " + std::to_string(i));
        }
        viewer->realize();
        manager = GlobalObject::registerGraphicsContext(window);
    }

    void TearDown() override
    {
        viewer->stopThreading();
        GlobalObject::unRegisterGraphicsContext(window);
    }

    /// Runs the viewer as a host does, until no frame is asked for. Number of frames; -1 when it did not
    /// come to rest.
    int drawOnDemand()
    {
        int frames = 0;
        auto lastFrame = std::chrono::steady_clock::now();
        const auto end = lastFrame + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end) {
            if (viewer->checkNeedToDoFrame()) {
                viewer->frame();
                ++frames;
                lastFrame = std::chrono::steady_clock::now();
            } else if (std::chrono::steady_clock::now() - lastFrame > std::chrono::milliseconds(100) &&
                       (!manager || manager->isSettled())) {
                return frames;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return -1;
    }

    TempFolder folder;
    const PlacedCloud cloud{writeRandomStore(folder, 3, 20)};
    const osg::Vec3d offset = cloud.offset;
    const osg::ref_ptr<osg::MatrixTransform> root = cloud.root;
    const osg::ref_ptr<PointCloudLOD> lod = cloud.lod;
    osg::ref_ptr<EglGraphicsWindow> window;
    osg::ref_ptr<PixelCount> pixels[2] = {new PixelCount, new PixelCount};
    osg::ref_ptr<osgViewer::View> views[2];
    osg::ref_ptr<osgViewer::CompositeViewer> viewer = new osgViewer::CompositeViewer;
    VelOsgDBBrx::IPointLoadManager* manager = nullptr; ///< while the window is registered
};

INSTANTIATE_TEST_SUITE_P(Registry, CompositeViewer, everyThreadingModel(), threadingModelName);

TEST_P(CompositeViewer, FillsOnDemandAndComesToRest)
{
    viewer->frame();
    EXPECT_GT(drawOnDemand(), 0);
    EXPECT_TRUE(manager->isSettled());
    EXPECT_EQ(lod->getNumChildren(), 73u);
    EXPECT_EQ(countLoaded(*lod->getOctree()), 73u);
    viewer->stopThreading(); // the frame in progress is drawn to its end
    viewer->startThreading();
    for (const auto& count : pixels)
        EXPECT_GT(count->lit, 50);

    GlobalObject::unRegisterGraphicsContext(window);
    manager = nullptr;
    EXPECT_GT(drawOnDemand(), 0) << "the services leave in a frame";
    EXPECT_EQ(lod->getNumChildren(), 0u);
    EXPECT_FALSE(viewer->getIncrementalCompileOperation());
}

TEST_P(CompositeViewer, ThinsOneViewOrAllAndSelectsInTheOneThatIsNamed)
{
    viewer->frame();
    ASSERT_GT(drawOnDemand(), 0);
    auto frameAndCount = [&](int i) {
        viewer->frame();
        viewer->stopThreading();
        viewer->startThreading();
        return pixels[i]->lit.load();
    };
    const int full = frameAndCount(0);
    EXPECT_EQ(frameAndCount(1), full);
    views[1]->setUserValue("dilute", true);
    EXPECT_EQ(frameAndCount(0), full);
    EXPECT_LT(frameAndCount(1), full / 2) << "level 0 alone";
    views[1]->setUserValue("dilute", false);
    viewer->setUserValue("dilute", true);
    EXPECT_LT(frameAndCount(0), full / 2);

    // The window's left half is nothing to the view on the right.
    VelOsgDBBrx::SelectSegmentStack stack(*views[1], root);
    std::vector<osg::Vec2d> left{{0, 0}, {kSize, 0}, {kSize, kSize}, {0, kSize}};
    std::vector<osg::Vec2d> right{{kSize, 0}, {2 * kSize, 0}, {2 * kSize, kSize}, {kSize, kSize}};
    osg::Vec3d middle;
    stack.selectPushAndApply(left, true);
    EXPECT_FALSE(stack.pointIsSelect(middle));
    stack.selectPushAndApply(right, true);
    EXPECT_TRUE(stack.pointIsSelect(middle));
    stack.clearAndApply();
}

} // namespace
