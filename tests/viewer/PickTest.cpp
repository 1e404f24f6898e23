#include "viewer/window/PickHandler.h"

#include "tests/support/ThreadingModels.h"
#include "tests/viewer/ShownSurvey.h"

#include <gtest/gtest.h>

namespace {

class Picking : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
protected:
    Picking() : _shown(GetParam())
    {
        _shown.host.viewer->addEventHandler(new PickHandler(_shown.scene, *_shown.overlay));
        _shown.show();
    }

    /// A point of the survey.
    osg::Vec3d point(int column, int row) const
    {
        const TestSurvey& survey = _shown.survey;
        return osg::Vec3d(survey.x + column, survey.y + row, survey.z + survey.heightOf(column));
    }

    /// What is printed after a press at one place and a release at another, in pixels from the first.
    std::string dragged(const osg::Vec3d& window, float pixels)
    {
        osgGA::EventQueue* events = _shown.host.window->getEventQueue();
        const auto x = static_cast<float>(window.x());
        const auto y = static_cast<float>(ShownSurvey::kSize - window.y()); // input counts from the top
        testing::internal::CaptureStdout();
        events->mouseButtonPress(x, y, 1);
        _shown.host.frame();
        events->mouseButtonRelease(x + pixels, y, 1);
        for (int i = 0; i < 4; ++i)
            _shown.host.frame();
        return testing::internal::GetCapturedStdout();
    }

    ShownSurvey _shown;
};

INSTANTIATE_TEST_SUITE_P(All, Picking,
                         testing::Values(osgViewer::ViewerBase::SingleThreaded,
                                         osgViewer::ViewerBase::DrawThreadPerContext),
                         threadingModelName);

} // namespace

TEST_P(Picking, AClickTellsTheStoredCoordinatesToTheMillimetre)
{
    const std::string printed = dragged(_shown.onScreen(point(13, 4)), 0);
    EXPECT_EQ(printed.rfind("1234513.000  6543204.000  101.625\tGPS time 0.000000 s\t"
                            "class 2 ground, intensity 0, return 1 of 1, source 0\tcloud 1, ",
                            0),
              0u)
        << printed;
    EXPECT_NE(printed.find("grid.las.brx\n"), std::string::npos) << printed;
}

TEST_P(Picking, DragsAndClicksBesideThePointsTellNothing)
{
    EXPECT_EQ(dragged(_shown.onScreen(point(13, 4)), 20), "");
    EXPECT_EQ(dragged(osg::Vec3d(1, 1, 0), 0), "");
}
