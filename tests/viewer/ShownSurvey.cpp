#include "tests/viewer/ShownSurvey.h"

#include "viewer/scene/StoreCache.h"
#include "viewer/window/Window.h"

#include <gtest/gtest.h>

ShownSurvey::ShownSurvey(osgViewer::ViewerBase::ThreadingModel threading, int classes)
    : host(kSize, kSize, threading)
{
    survey.classes = classes;
    survey.side = 20;
    survey.slope = 0.125;
    EXPECT_TRUE(survey.write(folder.file("grid.las")));
    std::string store;
    EXPECT_TRUE(findOrBuildStore(folder.file("grid.las"), false, store));
    EXPECT_TRUE(scene.load({store}, Options()));

    CameraView top;
    top.kind = CameraView::TOP;
    const Look look = lookAt(top, scene.bounds(), 1.0);
    setUpCamera(host.camera(), 1.0);
    host.camera().setViewMatrixAsLookAt(look.eye, look.center, look.up);
}

void ShownSurvey::show()
{
    host.show(scene.root());
    services.emplace(host.window, std::nullopt);
    EXPECT_TRUE(services->settle(*host.viewer, std::chrono::seconds(60)));
}

void ShownSurvey::pressKey(int key)
{
    host.window->getEventQueue()->keyPress(key);
    host.window->getEventQueue()->keyRelease(key);
    EXPECT_TRUE(services->settle(*host.viewer, std::chrono::seconds(60)));
}

osg::Vec2d ShownSurvey::onScreen(const osg::Vec3d& world)
{
    const osg::Camera& camera = host.camera();
    const osg::Vec3d window = world * camera.getViewMatrix() * camera.getProjectionMatrix() *
                              camera.getViewport()->computeWindowMatrix();
    return osg::Vec2d(window.x(), kSize - window.y());
}
