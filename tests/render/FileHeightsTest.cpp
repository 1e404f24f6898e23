#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>

using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::DefaultDisplay;
using VelOsgDBBrx::ShaderHelper;

namespace {

using Colors = std::vector<osg::Vec3ub>;

/// Heights of the points' file, from that of the picture's origin up.
VelBrx::AttributeRange heights(double from, double to)
{
    VelBrx::AttributeRange range;
    range.min = range.low = PointPicture::kOrigin.z() + from;
    range.max = range.high = PointPicture::kOrigin.z() + to;
    return range;
}

} // namespace

TEST(FileHeights, ColourPointsAlikeWhereverTheCloudStands)
{
    std::vector<TestPoint> points(4);
    for (int i = 0; i < 4; ++i)
        points[static_cast<size_t>(i)].z = 1000 + 3500 * i;
    PointPicture picture(points);
    DefaultDisplay::elevation(picture.cloud, heights(0, 14));
    const Colors inFile = picture.draw();
    for (size_t i = 1; i < 4; ++i)
        EXPECT_NE(inFile[i], inFile[i - 1]);

    // Re-centred, stretched in height, and turned about the vertical by half a turn.
    picture.viewer.camera().setViewMatrix(osg::Matrixd::rotate(osg::PI, osg::Z_AXIS));
    picture.root->setMatrix(osg::Matrixd::scale(1, 1, 3) * osg::Matrixd::translate(0, 0, -700) *
                            osg::Matrixd::rotate(-osg::PI, osg::Z_AXIS));
    EXPECT_EQ(picture.draw(), inFile);

    picture.cloud->getStateSet()->clear();
    DefaultDisplay::elevation(picture.root, heights(0, 14)); // above the cloud
    EXPECT_EQ(picture.draw(), inFile);

    ColorWithRangeInfo own = DefaultDisplay::ramp(heights(0, 14));
    own.range.set(-700, 3 * 14); // a host's own, in world heights
    ShaderHelper::elevationColorShader(picture.root, own, false);
    EXPECT_EQ(picture.draw(), inFile);
}
