#include "viewer/camera/Pose.h"
#include "viewer/camera/PoseTrail.h"
#include "viewer/camera/SavedViews.h"

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <osg/Math>
#include <osg/Matrixd>

#include <cmath>

namespace {

constexpr double kAspect = 1.6;
const osg::Vec3d kTown(1234567.891, 6543210.123, 95.5);

/// Where a place in the world is in the picture, as the graphics card sees it.
osg::Vec2d seen(const Pose& pose, const osg::Vec3d& world)
{
    const Look look = pose.look();
    const osg::Vec3d clip =
        world * (osg::Matrixd::lookAt(look.eye, look.center, look.up) * projectionOf(pose.lens(), kAspect));
    return osg::Vec2d(clip.x(), clip.y());
}

void expectSame(const osg::Vec2d& a, const osg::Vec2d& b)
{
    EXPECT_LT((a - b).length(), 1e-6) << a.x() << ", " << a.y() << " and " << b.x() << ", " << b.y();
}

/// Oblique, in perspective and orthographic.
std::vector<Pose> poses()
{
    const Look look = {kTown + osg::Vec3d(40, -90, 70), kTown, osg::Vec3d(0, 0, 1)};
    return {Pose(look, Lens()), Pose(look, {true, 60})};
}

} // namespace

TEST(Pose, APointKeepsItsPixelInTurnsAndZoomsAndStaysUnderTheHandInPans)
{
    const osg::Vec3d roof = kTown + osg::Vec3d(6, -11, 9);
    const osg::Vec2d hand(0.3, -0.45);
    for (const Pose& pose : poses()) {
        const osg::Vec2d pixel = seen(pose, roof);
        const Pose focused = pose.focusedOn(roof);
        expectSame(seen(focused, roof), pixel);
        expectSame(seen(focused, kTown), seen(pose, kTown));
        expectSame(seen(focused.projected(!pose.orthographic()), roof), pixel);
        for (const Pose& turned :
             {focused.turnedLevel(roof, 0.7, -0.3), focused.turnedFreely(roof, -0.4, 2.5)}) {
            expectSame(seen(turned, roof), pixel);
            EXPECT_GT((seen(turned, kTown) - seen(pose, kTown)).length(), 0.01);
        }
        EXPECT_NEAR(focused.turnedLevel(roof, 0.7, -0.3).right().z(), 0, 1e-12);

        const Pose near = pose.zoomed(roof, 0.25);
        expectSame(seen(near, roof), pixel);
        EXPECT_NEAR(near.height(), 0.25 * focused.height(), 1e-6);

        const osg::Vec3d way = focused.worldAt(pixel, kAspect) - focused.worldAt(hand, kAspect);
        expectSame(seen(focused.moved(way), roof), hand);
        expectSame(seen(pose, pose.worldAt(hand, kAspect)), hand);
    }
}

TEST(Pose, PerspectiveAndOrthographicShowTheCentreInTheSameScaleAndFromTheSameSide)
{
    for (const Pose& pose : poses()) {
        const Pose other = pose.projected(!pose.orthographic());
        for (const osg::Vec3d& way : {pose.right(), pose.up()})
            expectSame(seen(other, kTown + way * 5), seen(pose, kTown + way * 5));
        EXPECT_TRUE(other.projected(pose.orthographic()) == pose);
        EXPECT_NEAR(Pose(pose.look(), pose.lens()).height(), pose.height(), 1e-6);
        EXPECT_NEAR(pose.height(), 2 * (pose.worldAt({0, 1}, kAspect) - pose.center()).length(), 1e-6);
    }
}

TEST(Pose, ALevelTurnEndsStraightAboveAndLevelsWhatLeans)
{
    for (const Pose& pose : poses()) {
        const Pose down = pose.turnedLevel(kTown, 0, -3);
        EXPECT_NEAR(down.ahead().z(), -1, 1e-9);
        EXPECT_LT((down.right() - pose.right()).length(), 1e-9) << "the same side is right";
        EXPECT_NEAR(down.turnedLevel(kTown, 0, 0.5).ahead().z(), -std::cos(0.5), 1e-9);

        const Pose leaning = pose.turnedFreely(kTown, 0.8, 0.4).turnedFreely(kTown, 0.9, 0);
        EXPECT_GT(std::abs(leaning.right().z()), 0.05);
        EXPECT_NEAR(leaning.leveled().right().z(), 0, 1e-9);
        EXPECT_LT((leaning.leveled().ahead() - leaning.ahead()).length(), 1e-9);
        EXPECT_LT((down.leveled().up() - down.up()).length(), 1e-9) << "nothing leans straight down";
    }
}

TEST(Pose, FitsAllOfTheDataIntoThePictureFromTheSameSide)
{
    const osg::BoundingBoxd tile(kTown - osg::Vec3d(500, 300, 20), kTown + osg::Vec3d(400, 300, 60));
    for (const Pose& pose : poses()) {
        const Pose all = pose.fitted(tile, kAspect);
        double largest = 0;
        for (unsigned i = 0; i < 8; ++i) {
            const osg::Vec2d corner = seen(all, tile.corner(i));
            largest = std::max({largest, std::abs(corner.x()), std::abs(corner.y())});
        }
        EXPECT_LE(largest, 1);
        EXPECT_GT(largest, 0.9);
        EXPECT_LT((all.ahead() - pose.ahead()).length(), 1e-9);
        EXPECT_EQ(all.orthographic(), pose.orthographic());
    }
}

TEST(Pose, ATrailLeadsBackAndForwardUntilAnotherWayIsTaken)
{
    const std::vector<Pose> way = poses();
    const Pose end = way[0].moved({1, 2, 3});
    PoseTrail trail;
    EXPECT_TRUE(trail.back(end) == end);
    trail.leave(way[0]);
    trail.leave(way[0]); // stands still
    trail.leave(way[1]);
    EXPECT_TRUE(trail.back(end) == way[1]);
    EXPECT_TRUE(trail.back(way[1]) == way[0]);
    EXPECT_TRUE(trail.back(way[0]) == way[0]);
    EXPECT_TRUE(trail.forward(way[0]) == way[1]);
    trail.leave(way[1]);
    EXPECT_TRUE(trail.forward(end) == end) << "another way was taken";
}

TEST(Pose, IsKeptByNameForEachStoreFromOneWindowToTheNext)
{
    const TempFolder folder;
    const std::string file = folder.file("settings.json");
    {
        Settings settings(file);
        SavedViews views(settings, [] { return "tile.brx"; });
        views.save("roof", poses()[0]);
        views.save("bank", poses()[1]);
        views.save("tree", poses()[1]);
        EXPECT_FALSE(views.rename(0, "tree")) << "which is there";
        EXPECT_TRUE(views.rename(0, "yard"));
        views.remove(1); // the tree
        EXPECT_TRUE(settings.save());
    }
    Settings settings(file);
    SavedViews views(settings, [] { return "tile.brx"; });
    ASSERT_EQ(views.all().size(), 2u);
    EXPECT_EQ(views.all()[0].name, "roof");
    EXPECT_EQ(views.all()[1].name, "yard");
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(views.all()[i].pose.orthographic(), poses()[i].orthographic());
        expectSame(seen(views.all()[i].pose, kTown + osg::Vec3d(3, 4, 5)),
                   seen(poses()[i], kTown + osg::Vec3d(3, 4, 5)));
    }
    EXPECT_TRUE(SavedViews(settings, [] { return "other.brx"; }).all().empty());
}
