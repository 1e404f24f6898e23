#include "viewer/camera/SectionFrame.h"

#include <gtest/gtest.h>
#include <osg/Matrixd>
#include <osg/Viewport>

namespace {

constexpr double kAspect = 3;

/// Oblique, far from the origin, heights drawn four times as large.
Section oblique()
{
    Section section;
    section.from.set(1234567.25, 6543210.5);
    section.to = section.from + osg::Vec2d(60, 80);
    section.width = 4;
    section.exaggeration = 4;
    return section;
}

double smallest(const Section& section, const osg::Vec2d& place)
{
    double inside = 1e9;
    for (const osg::Vec4d& plane : section.planes())
        inside = std::min(inside, plane.x() * place.x() + plane.y() * place.y() + plane.w());
    return inside;
}

} // namespace

TEST(Section, StandsOnBothSidesOfItsLineAndStepsAndTurnsAsTheMapShows)
{
    const Section section = oblique();
    EXPECT_DOUBLE_EQ(section.length(), 100);
    const osg::Vec2d ahead(-0.8, 0.6); // to the left of the way from end to end
    EXPECT_LT((section.ahead() - ahead).length(), 1e-12);
    for (const osg::Vec2d& place : {section.from, section.to, section.to + section.along() * 500}) {
        EXPECT_NEAR(smallest(section, place), 2, 1e-6);
        EXPECT_NEAR(smallest(section, place + ahead * 1.9), 0.1, 1e-6);
        EXPECT_LT(smallest(section, place - ahead * 2.1), 0);
    }
    const Section next = section.stepped(1);
    EXPECT_LT((next.from - section.from - ahead * 4).length(), 1e-6);
    EXPECT_NEAR(smallest(next, section.to + ahead * 2.1), 0.1, 1e-6) << "begins where the other one ends";

    const Section turned = section.turned(90);
    EXPECT_LT((turned.along() - ahead).length(), 1e-9);
    EXPECT_LT((turned.from + turned.to - section.from - section.to).length(), 1e-6) << "about its middle";
    for (const auto& [length, width] : {std::pair(100.0, 5.0), {41, 2}, {1999, 50}, {20, 1}, {0.7, 0.02}})
        EXPECT_NEAR(Section::widthFor(length), width, 1e-9) << length;
}

TEST(Section, ShowsDistancesAndHeightsToScaleAndNothingBesideTheStrip)
{
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setViewport(300, 40, 600, 200);
    SectionFrame frame(oblique(), 90, 100, kAspect);
    frame = frame.zoomed({30, 95}, 0.5).moved({1, -2});
    frame.place(*camera);
    const osg::Matrixd toClip = camera->getViewMatrix() * camera->getProjectionMatrix();
    for (const osg::Vec2d& at : {osg::Vec2d(30, 95), {-7, 91.5}}) {
        const osg::Vec3d world = frame.worldAt(at);
        EXPECT_LT((frame.of(world) - at).length(), 1e-6);
        const osg::Vec3d clip = world * toClip;
        const osg::Vec2d place = frame.placeOf(at, kAspect);
        EXPECT_LT((osg::Vec2d(clip.x(), clip.y()) - place).length(), 1e-6);
        EXPECT_LT((frame.at(place, kAspect) - at).length(), 1e-6);
        const osg::Vec3d ahead(oblique().ahead(), 0);
        EXPECT_LT(std::abs(((world + ahead * 2) * toClip).z()), 1) << "its far side";
        EXPECT_GT(((world + ahead * 4) * toClip).z(), 1) << "behind the strip";
        EXPECT_LT(((world - ahead * 4) * toClip).z(), -1) << "before it";
    }
    const osg::Vec2d metre = frame.placeOf({31, 96}, kAspect) - frame.placeOf({30, 95}, kAspect);
    EXPECT_NEAR(metre.y() * 100, 4 * metre.x() * 300, 1e-6) << "pixels up and aside";

    const SectionFrame whole(oblique(), 90, 100, kAspect);
    EXPECT_LT(std::abs(whole.placeOf({100, 100}, kAspect).x()), 1);
    EXPECT_LT(whole.placeOf({100, 100}, kAspect).y(), 1);
    EXPECT_GT(std::max(whole.placeOf({100, 100}, kAspect).x(), whole.placeOf({100, 100}, kAspect).y()), 0.85);
    const osg::Vec2d target(80, 93);
    EXPECT_LT((whole.zoomed(target, 0.3).placeOf(target, kAspect) - whole.placeOf(target, kAspect)).length(),
              1e-6);
}
