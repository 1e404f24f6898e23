#include "viewer/PickHandler.h"

#include "tests/support/HeadlessViewer.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "viewer/ContextServices.h"
#include "viewer/StoreCache.h"
#include "viewer/Window.h"

#include <gtest/gtest.h>

namespace {

constexpr int kSize = 200;

/// A survey on the screen of a viewer that takes clicks.
class Picking : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
protected:
    Picking() : _host(kSize, kSize, GetParam())
    {
        _survey.side = 20;
        _survey.slope = 0.125;
        EXPECT_TRUE(_survey.write(_folder.file("grid.las")));
        std::string store;
        EXPECT_TRUE(findOrBuildStore(_folder.file("grid.las"), false, store));
        EXPECT_TRUE(_scene.load({store}, Options()));

        CameraView top;
        top.kind = CameraView::TOP;
        const Look look = lookAt(top, _scene.bounds(), 1.0);
        setUpCamera(_host.camera(), 1.0);
        _host.camera().setViewMatrixAsLookAt(look.eye, look.center, look.up);
        _handler = new PickHandler(_scene, *_overlay);
        _host.viewer->addEventHandler(_handler);
        _host.show(_scene.root());
        _services.emplace(_host.window, std::nullopt);
        EXPECT_TRUE(_services->settle(*_host.viewer, std::chrono::seconds(60)));
    }

    /// Where a world position is in the window, y up.
    osg::Vec3d onScreen(const osg::Vec3d& world)
    {
        const osg::Camera& camera = _host.camera();
        return world * camera.getViewMatrix() * camera.getProjectionMatrix() *
               camera.getViewport()->computeWindowMatrix();
    }

    /// What is printed after a press at one place and a release at another, in pixels from the first.
    std::string dragged(const osg::Vec3d& window, float pixels)
    {
        osgGA::EventQueue* events = _host.window->getEventQueue();
        const auto x = static_cast<float>(window.x());
        const auto y = static_cast<float>(kSize - window.y()); // input counts from the top
        testing::internal::CaptureStdout();
        events->mouseButtonPress(x, y, 1);
        _host.frame();
        events->mouseButtonRelease(x + pixels, y, 1);
        for (int i = 0; i < 4; ++i)
            _host.frame();
        return testing::internal::GetCapturedStdout();
    }

    const TempFolder _folder;
    TestSurvey _survey;
    HeadlessViewer _host;
    Scene _scene;
    const osg::ref_ptr<Overlay> _overlay = new Overlay;
    osg::ref_ptr<PickHandler> _handler;
    std::optional<ContextServices> _services; // ends before the viewer
};

INSTANTIATE_TEST_SUITE_P(All, Picking,
                         testing::Values(osgViewer::ViewerBase::SingleThreaded,
                                         osgViewer::ViewerBase::DrawThreadPerContext));

} // namespace

TEST_P(Picking, AClickTellsTheStoredCoordinatesToTheMillimetre)
{
    const osg::Vec3d point(_survey.x + 13, _survey.y + 4, _survey.z + 13 * 0.125);
    const std::string printed = dragged(onScreen(point), 0);
    EXPECT_EQ(printed.rfind("1234513.000  6543204.000  101.625\t", 0), 0u) << printed;
    EXPECT_NE(printed.find("grid.las.brx\n"), std::string::npos) << printed;
}

TEST_P(Picking, DragsAndClicksBesideThePointsTellNothing)
{
    const osg::Vec3d point(_survey.x + 13, _survey.y + 4, _survey.z + 13 * 0.125);
    EXPECT_EQ(dragged(onScreen(point), 20), "");
    EXPECT_EQ(dragged(osg::Vec3d(1, 1, 0), 0), "");
}
