#include "viewer/scene/CameraView.h"

#include <gtest/gtest.h>
#include <osg/Matrixd>

#include <algorithm>
#include <cmath>

namespace {

const osg::BoundingBoxd kTile(1234000.0, 6543000.0, 95.0, 1235000.0, 6543600.0, 180.0);

osg::Matrixd windowMatrix(const Look& look, double aspect)
{
    return osg::Matrixd::lookAt(look.eye, look.center, look.up) *
           osg::Matrixd::perspective(kFieldOfView, aspect, 1.0, 1e7);
}

CameraView named(CameraView::Kind kind)
{
    CameraView view;
    view.kind = kind;
    return view;
}

} // namespace

TEST(CameraView, NamedViewsShowAllOfTheDataAsLargeAsThePictureAllows)
{
    for (const CameraView::Kind kind : {CameraView::TOP, CameraView::NORTH, CameraView::ISO}) {
        for (const double aspect : {0.5, 1.0, 2.4}) {
            const osg::Matrixd window = windowMatrix(lookAt(named(kind), kTile, aspect), aspect);
            osg::BoundingBoxd seen;
            for (unsigned i = 0; i < 8; ++i)
                seen.expandBy(kTile.corner(i) * window);
            const double largest = std::max({-seen.xMin(), seen.xMax(), -seen.yMin(), seen.yMax()});
            EXPECT_LE(largest, 1.0) << "view " << kind << " aspect " << aspect;
            EXPECT_GT(largest, 0.9) << "view " << kind << " aspect " << aspect;
            const double aside =
                std::min(std::abs(seen.xMin() + seen.xMax()), std::abs(seen.yMin() + seen.yMax()));
            EXPECT_LT(aside, 0.01) << "view " << kind << " aspect " << aspect;
        }
    }
}

TEST(CameraView, NorthIsUpInTheTopViewAndAheadInTheNorthView)
{
    const osg::Vec3d center = kTile.center();
    const osg::Vec3d north = center + osg::Vec3d(0, 100, 0);
    const osg::Vec3d east = center + osg::Vec3d(100, 0, 0);
    const osg::Vec3d up = center + osg::Vec3d(0, 0, 20);

    const osg::Matrixd top = windowMatrix(lookAt(named(CameraView::TOP), kTile, 1.5), 1.5);
    EXPECT_GT((north * top).y(), 0.1);
    EXPECT_NEAR((north * top).x(), 0.0, 1e-6);
    EXPECT_GT((east * top).x(), 0.1);

    const Look level = lookAt(named(CameraView::NORTH), kTile, 1.5);
    EXPECT_LT(level.eye.y(), kTile.yMin());
    EXPECT_NEAR(level.eye.z(), level.center.z(), 1e-6);
    const osg::Matrixd ahead = windowMatrix(level, 1.5);
    EXPECT_GT((up * ahead).y(), 0.01);
    EXPECT_GT((east * ahead).x(), 0.1);
}

TEST(CameraView, ASinglePointIsFramedInTheMiddle)
{
    const osg::BoundingBoxd point(5, 6, 7, 5, 6, 7);
    const Look look = lookAt(named(CameraView::ISO), point, 1.0);
    EXPECT_LT((look.center - osg::Vec3d(5, 6, 7)).length(), 1e-9);
    EXPECT_GT((look.eye - look.center).length(), 1.0);
}
