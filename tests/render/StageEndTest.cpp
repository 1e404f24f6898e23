#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/PointCloudHelper.h>

#include <gtest/gtest.h>
#include <osg/Camera>
#include <osg/Texture2D>
#include <osgViewer/Renderer>

#include <algorithm>

namespace {

constexpr int kNever = -1;

/// Notes how much state the draw thread has still on when OSG lets the frame thread go on.
struct StateAtRelease : osg::State::DynamicObjectRenderingCompletedCallback
{
    void completed(osg::State* state) override
    {
        stateSets = std::max(stateSets, static_cast<int>(state->getStateSetStackSize()));
    }

    int stateSets = kNever;
};

osg::ref_ptr<osg::Camera> makePictureOf(osg::Node& node)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setRenderOrder(osg::Camera::POST_RENDER);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setViewport(0, 0, PointPicture::kSize, PointPicture::kSize);
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(PointPicture::kSize, PointPicture::kSize);
    texture->setInternalFormat(GL_RGBA);
    camera->attach(osg::Camera::COLOR_BUFFER, texture);
    camera->addChild(&node);
    return camera;
}

unsigned dynamicLeaves(PointPicture& picture)
{
    auto& renderer = dynamic_cast<osgViewer::Renderer&>(*picture.viewer.camera().getRenderer());
    return std::max(renderer.getSceneView(0)->getDynamicObjectCount(),
                    renderer.getSceneView(1)->getDynamicObjectCount());
}

} // namespace

/// From then on hosts add uniforms to the state of clouds, and of what is above them.
TEST(StageEnd, TheFrameThreadWaitsUntilNoStateOfACloudIsOn)
{
    PointPicture picture({coloredPoint(255, 255, 255), coloredPoint(0, 255, 0)});
    VelOsgDBBrx::PointCloudHelper::setPointSize(picture.root, 3);
    const osg::ref_ptr<PointCloudImpl> second = makeCloud(picture.fixture);
    picture.root->addChild(second);
    picture.draw();

    osg::State& state = *picture.viewer.window->getState();
    const auto released = [&picture, &state] {
        picture.draw();
        const osg::ref_ptr<StateAtRelease> release = new StateAtRelease;
        state.setDynamicObjectRenderingCompletedCallback(release);
        state.setDynamicObjectCount(dynamicLeaves(picture)); // a viewer with draw threads does so
        picture.draw();
        state.setDynamicObjectRenderingCompletedCallback(nullptr);
        return release->stateSets;
    };
    const int none = 0;
    EXPECT_EQ(released(), none) << "two clouds";
    second->enableEyeDomeLighting();
    EXPECT_EQ(released(), none) << "one of them under eye-dome lighting";
    picture.root->addChild(makePictureOf(*second));
    EXPECT_EQ(released(), none) << "a second stage";
}
