#include "viewer/window/DisplayKeys.h"

#include "tests/viewer/ShownSurvey.h"
#include "viewer/window/Window.h"

#include <gtest/gtest.h>

namespace {

const osg::Vec3ub kBackground(28, 31, 36);

class DisplayKeysTest : public testing::Test
{
protected:
    void showWithKeys()
    {
        _shown.host.viewer->addEventHandler(new DisplayKeys(_shown.scene, *_shown.overlay, true));
        _shown.show();
    }

    ShownSurvey _shown;
};

} // namespace

TEST_F(DisplayKeysTest, PlusAndMinusChangeTheSizeOfThePointsWithinItsLimits)
{
    showWithKeys();
    const int before = countOtherThan(*_shown.host.picture(), kBackground);
    _shown.pressKey('+');
    EXPECT_GT(countOtherThan(*_shown.host.picture(), kBackground), before);
    for (int i = 0; i < 10; ++i)
        _shown.pressKey('-');
    const int points = _shown.survey.side * _shown.survey.side;
    EXPECT_EQ(countOtherThan(*_shown.host.picture(), kBackground), points) << "a pixel a point";
}

TEST_F(DisplayKeysTest, ViewKeysMoveTheCameraOfTheManipulator)
{
    const osg::ref_ptr<osgGA::CameraManipulator> manipulator =
        makeManipulators({osg::Vec3d(0, 0, 1), osg::Vec3d(), osg::Vec3d(0, 1, 0)});
    _shown.host.viewer->setCameraManipulator(manipulator);
    showWithKeys();
    const auto lookingAlong = [&] {
        osg::Vec3d eye;
        osg::Vec3d center;
        osg::Vec3d up;
        manipulator->getInverseMatrix().getLookAt(eye, center, up);
        return center - eye;
    };
    _shown.pressKey('T');
    EXPECT_NEAR(lookingAlong().z(), -1, 1e-6);
    _shown.pressKey('N');
    EXPECT_NEAR(lookingAlong().y(), 1, 1e-6);
    _shown.pressKey('I');
    EXPECT_LT(lookingAlong().z(), -0.3);
    EXPECT_GT(countOtherThan(*_shown.host.picture(), kBackground), 100);
}

TEST_F(DisplayKeysTest, BracketsChangeTheStrengthOfEyeDomeLightingAndBTakesTurnsWithLights)
{
    showWithKeys();
    _shown.pressKey('d');
    const double before = _shown.scene.shading().strength;
    _shown.pressKey(']');
    EXPECT_GT(_shown.scene.shading().strength, before);
    for (int i = 0; i < 50; ++i)
        _shown.pressKey('[');
    EXPECT_GT(_shown.scene.shading().strength, 0);

    EXPECT_EQ(_shown.scene.light().source, NormalLight::EYE);
    for (const NormalLight::Source next : {NormalLight::SUN, NormalLight::NONE, NormalLight::EYE}) {
        _shown.pressKey('B');
        EXPECT_EQ(_shown.scene.light().source, next);
    }
}

TEST_F(DisplayKeysTest, TheLegendListsAClassThatAnEditMade)
{
    _shown.host.viewer->getCamera()->addPostDrawCallback(_shown.overlay);
    _shown.scene.setColorMode(ColorMode::CLASSIFICATION);
    showWithKeys();
    const osg::ref_ptr<osg::Image> before = _shown.host.picture();
    EXPECT_TRUE(samePixels(*_shown.host.picture(), *before));
    _shown.scene.noteClass(17);
    EXPECT_FALSE(samePixels(*_shown.host.picture(), *before));
}
