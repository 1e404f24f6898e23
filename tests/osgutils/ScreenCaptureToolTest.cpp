#include "tests/support/HeadlessViewer.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgUtils/ScreenCaptureTool.h>

#include <osg/Group>

#include <gtest/gtest.h>

namespace {

using VelOsgUtils::FrameBuffer;
using VelOsgUtils::ScreenCaptureTool;

osg::Matrixd viewFrom(double x)
{
    return osg::Matrixd::lookAt(osg::Vec3d(x, -10, 0), osg::Vec3d(), osg::Vec3d(0, 0, 1));
}

osg::Matrixd capturedView(ScreenCaptureTool& tool)
{
    FrameBuffer& frame = *tool.getFrameBuffer();
    frame.lock();
    const osg::Matrixd view = frame.getViewMatrix();
    frame.release();
    return view;
}

class CaptureInEveryThreadingModel : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
protected:
    void SetUp() override
    {
        tool = new ScreenCaptureTool(view.window);
        view.viewer->addUpdateOperation(tool);
        view.show(new osg::Group);
    }
    void TearDown() override { view.viewer->stopThreading(); }

    HeadlessViewer view{32, 16, GetParam()};
    osg::ref_ptr<ScreenCaptureTool> tool;
};

INSTANTIATE_TEST_SUITE_P(Capture, CaptureInEveryThreadingModel, everyThreadingModel(), threadingModelName);

TEST_P(CaptureInEveryThreadingModel, EveryFrameIsCapturedTheLastOneToo)
{
    for (int i = 1; i < 20; ++i) {
        view.camera().setViewMatrix(viewFrom(i));
        view.frame();
        ASSERT_EQ(capturedView(*tool), viewFrom(i)) << "frame " << i;
    }
    FrameBuffer& frame = *tool->getFrameBuffer();
    frame.lock();
    EXPECT_EQ(frame.getViewPort()->width(), 32);
    EXPECT_EQ(frame.getViewPort()->height(), 16);
    EXPECT_NEAR(frame.getProjectionMatrix()(1, 1), view.camera().getProjectionMatrix()(1, 1), 1e-12);
    frame.release();
}

TEST(ScreenCaptureTool, BeforeTheFirstFrameThereIsNoViewport)
{
    const osg::ref_ptr<ScreenCaptureTool> tool = new ScreenCaptureTool(nullptr);
    (*tool)(nullptr);
    FrameBuffer& frame = *tool->getFrameBuffer();
    frame.lock();
    EXPECT_EQ(frame.getViewPort()->width(), 0);
    EXPECT_TRUE(frame.getViewMatrix().isIdentity() && frame.getProjectionMatrix().isIdentity());
    frame.release();
}

class CaptureAmongOtherCameras : public testing::Test
{
protected:
    void SetUp() override
    {
        view.viewer->addUpdateOperation(tool);
        view.camera().setViewMatrix(viewFrom(1));
    }

    osg::ref_ptr<osg::Camera> makeCamera(osg::Camera::RenderOrder order)
    {
        osg::ref_ptr<osg::Camera> camera = new osg::Camera;
        camera->setRenderOrder(order);
        camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
        camera->setViewMatrix(viewFrom(50));
        camera->setViewport(0, 0, 8, 8);
        return camera;
    }

    HeadlessViewer view{16, 16};
    osg::ref_ptr<ScreenCaptureTool> tool = new ScreenCaptureTool(view.window);
};

TEST_F(CaptureAmongOtherCameras, OnlyTheMainCameraIsTaken)
{
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    scene->addChild(makeCamera(osg::Camera::POST_RENDER)); // inside the scene
    scene->addChild(makeCamera(osg::Camera::PRE_RENDER));
    const osg::ref_ptr<osg::Camera> slave = makeCamera(osg::Camera::PRE_RENDER);
    slave->setGraphicsContext(view.window);
    view.viewer->addSlave(slave, false);
    const osg::ref_ptr<osg::Camera> display = makeCamera(osg::Camera::PRE_RENDER); // belongs to no view
    display->setGraphicsContext(view.window);
    view.show(scene);
    view.frame();
    EXPECT_EQ(capturedView(*tool), viewFrom(1));
}

TEST_F(CaptureAmongOtherCameras, ASlaveIsTakenWhereTheMasterDrawsNothing)
{
    const osg::ref_ptr<osg::Camera> slave = makeCamera(osg::Camera::POST_RENDER);
    slave->setReferenceFrame(osg::Transform::RELATIVE_RF);
    slave->setGraphicsContext(view.window);
    view.camera().setGraphicsContext(nullptr);
    view.viewer->addSlave(slave, osg::Matrixd(), osg::Matrixd::translate(0, 0, -3));
    view.show(new osg::Group);
    view.frame();
    EXPECT_EQ(capturedView(*tool), viewFrom(1) * osg::Matrixd::translate(0, 0, -3));
}

/// Counts culls and hides what is nested in it, as a host's callback may.
class HostCallback : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        ++runs;
        visitor->traverse(*node);
    }
    int runs = 0;
};

TEST_F(CaptureAmongOtherCameras, HostCallbacksSetBeforeOrLaterKeepRunningAndHideNothing)
{
    const osg::ref_ptr<HostCallback> early = new HostCallback;
    const osg::ref_ptr<HostCallback> late = new HostCallback;
    view.camera().setCullCallback(early);
    view.show(new osg::Group);
    view.frame();
    EXPECT_EQ(early->runs, 1);
    EXPECT_EQ(capturedView(*tool), viewFrom(1));

    view.camera().setCullCallback(late);
    view.camera().setViewMatrix(viewFrom(2));
    view.frame();
    EXPECT_EQ(late->runs, 1);
    EXPECT_EQ(capturedView(*tool), viewFrom(2));

    tool->detach();
    EXPECT_EQ(view.camera().getCullCallback(), late);
}

} // namespace
