#include "render/DepthRange.h"
#include "render/NearestPoint.h"
#include "tests/support/CellFixture.h"

#include <VelOsgDBBrx/LasReaderWriter.h>

#include <gtest/gtest.h>
#include <osg/Math>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

const osg::Matrixd kSquare = osg::Matrixd::perspective(90, 1, 1, 100);

osg::Matrixd lookAt(const osg::Vec3d& eye, const osg::Vec3d& center)
{
    return osg::Matrixd::lookAt(eye, center, osg::Vec3d(0, 0, 1));
}

} // namespace

TEST(VisibleDepths, AreThoseOfABoxInFullViewOrBeginAtTheEyeInsideIt)
{
    const osg::Matrixd view = lookAt({0, 0, 0}, {0, 1, 0});
    const auto ahead = visibleDepths(osg::BoundingBoxd(-1, 10, -1, 1, 14, 1), view, kSquare);
    ASSERT_TRUE(ahead);
    EXPECT_NEAR(ahead->nearest, 10, 1e-9);
    EXPECT_NEAR(ahead->farthest, 14, 1e-9);
    const auto around = visibleDepths(osg::BoundingBoxd(-5, -5, -5, 5, 5, 5), view, kSquare);
    ASSERT_TRUE(around);
    EXPECT_EQ(around->nearest, 0);
    EXPECT_NEAR(around->farthest, 5, 1e-9);
}

TEST(VisibleDepths, LeaveOutWhatIsBesideTheFrustumOrBehindTheEye)
{
    // The eye stands 10 above wide ground, which reaches far behind it, and looks down at 45 degrees: the
    // lower edge of the picture looks straight down, the upper one to the horizon.
    const osg::BoundingBoxd ground(-1000, -1000, -20, 1000, 1000, -10);
    const auto range = visibleDepths(ground, lookAt({0, 0, 0}, {0, 10, -10}), kSquare);
    ASSERT_TRUE(range);
    EXPECT_NEAR(range->nearest, 10 * std::sqrt(0.5), 1e-6);

    EXPECT_FALSE(visibleDepths(ground, lookAt({0, 0, 0}, {0, 1, 2}), kSquare)) << "looking up";
    EXPECT_FALSE(
        visibleDepths(osg::BoundingBoxd(-1, -14, -1, 1, -10, 1), lookAt({0, 0, 0}, {0, 1, 0}), kSquare));
}

TEST(VisibleDepths, EncloseEveryVisiblePointOfRandomBoxesAndCameras)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(-50, 50);
    const auto point = [&] { return osg::Vec3d(coordinate(random), coordinate(random), coordinate(random)); };
    const osg::Matrixd projections[] = {osg::Matrixd::perspective(40, 1.5, 1, 100),
                                        osg::Matrixd::ortho(-20, 20, -10, 10, 1, 100)};
    int visible = 0;
    for (int i = 0; i < 2000; ++i) {
        osg::BoundingBoxd box;
        box.expandBy(point());
        box.expandBy(point());
        const osg::Matrixd view = lookAt(point(), point());
        const osg::Matrixd& projection = projections[i % 2];
        const auto range = visibleDepths(box, view, projection);
        for (int k = 0; k < 20; ++k) {
            std::uniform_real_distribution<double> share(0, 1);
            const osg::Vec3d size = box._max - box._min;
            const osg::Vec3d inside =
                box._min +
                osg::Vec3d(size.x() * share(random), size.y() * share(random), size.z() * share(random));
            const osg::Vec3d eye = inside * view;
            const osg::Vec4d clip = osg::Vec4d(eye, 1) * projection;
            if (clip.w() <= 0 || std::abs(clip.x()) > clip.w() || std::abs(clip.y()) > clip.w()) continue;
            ++visible;
            ASSERT_TRUE(range);
            EXPECT_LE(range->nearest, -eye.z() + 1e-9);
            EXPECT_GE(range->farthest, -eye.z() - 1e-9);
        }
    }
    EXPECT_GT(visible, 1000);
}

TEST(NearestVisiblePoint, IsThatOfAllPointsOfAllCellsThatARandomCameraSees)
{
    std::mt19937 random(11);
    std::uniform_int_distribution<int32_t> millimetres(-40000, 40000);
    std::vector<TestPoint> points(600);
    for (TestPoint& point : points) {
        point.x = millimetres(random);
        point.y = millimetres(random);
        point.z = millimetres(random) / 4;
    }
    const CellFixture fixture(points);
    const osg::ref_ptr<PointCloudLOD> cloud = new PointCloudLOD(fixture.octree);
    for (int64_t cell = 0; cell < 6; ++cell) {
        const std::string identifier = "cell " + std::to_string(cell);
        cloud->addChild(VelOsgDBBrx::LasReaderWriter::read(fixture.cell({{cell * 100, 100}}, identifier)));
    }
    ASSERT_EQ(cloud->getNumChildren(), 6u);
    std::uniform_real_distribution<double> coordinate(-30, 30);
    int found = 0;
    for (int i = 0; i < 300; ++i) {
        const osg::Matrixd view = osg::Matrixd::scale(2, 2, 2) *
                                  lookAt({coordinate(random), coordinate(random), coordinate(random)},
                                         {coordinate(random), coordinate(random), coordinate(random)});
        const osg::Matrixd projection =
            i % 2 ? osg::Matrixd::perspective(20, 1.5, 1, 100) : osg::Matrixd::ortho(-9, 6, -5, 5, 1, 100);
        double expected = std::numeric_limits<double>::infinity();
        for (const TestPoint& point : points) {
            const osg::Vec3d eye = osg::Vec3d(point.x, point.y, point.z) * 0.001 * view;
            const osg::Vec4d clip = osg::Vec4d(eye, 1) * projection;
            if (eye.z() < 0 && std::abs(clip.x()) <= clip.w() && std::abs(clip.y()) <= clip.w())
                expected = std::min(expected, -eye.z());
        }
        const auto nearest = nearestVisiblePoint(*cloud, view, projection);
        ASSERT_EQ(nearest.has_value(), std::isfinite(expected)) << i;
        if (!nearest) continue;
        EXPECT_NEAR(*nearest, expected, 1e-3) << i;
        ++found;
    }
    EXPECT_GT(found, 100);
}
