#include <VelOsgDBBrx/ColorScale.h>

#include <gtest/gtest.h>

using VelOsgDBBrx::ColorScale;

namespace {

const osg::Vec4f kDefault(0.1f, 0.2f, 0.3f, 0.4f);
const osg::Vec4f kRed(1, 0, 0, 0.5f);
const osg::Vec4f kBlue(0, 0, 1, 0.5f);

} // namespace

TEST(ColorScale, InterpolatesBetweenElementsInWhateverOrderTheyCame)
{
    ColorScale scale;
    scale.addColorScaleElement(10, kBlue);
    scale.addColorScaleElement(0, kRed);
    EXPECT_EQ(scale.getColor(0, kDefault), osg::Vec4f(1, 0, 0, 1));
    EXPECT_EQ(scale.getColor(5, kDefault), osg::Vec4f(0.5f, 0, 0.5f, 1));
    EXPECT_EQ(scale.getColor(10, kDefault), kDefault) << "the last value itself is outside";
    EXPECT_EQ(scale.getColor(-0.001, kDefault), kDefault);
    EXPECT_EQ(scale.getColor(11, kDefault), kDefault);

    double min = 7;
    double max = 7;
    EXPECT_TRUE(scale.getAbsoluteBoundaries(min, max));
    EXPECT_EQ(min, 0);
    EXPECT_EQ(max, 10);
}

TEST(ColorScale, IsNoScaleWithFewerThanTwoElements)
{
    ColorScale scale;
    double min = 7;
    double max = 8;
    for (int elements = 0; elements < 2; ++elements) {
        EXPECT_EQ(scale.getColor(0, kDefault), kDefault);
        EXPECT_FALSE(scale.getAbsoluteBoundaries(min, max));
        EXPECT_EQ(min, 7);
        EXPECT_EQ(max, 8);
        scale.addColorScaleElement(0, kRed);
    }
}

TEST(ColorScale, SkipsSegmentsWithoutWidth)
{
    ColorScale scale;
    scale.addColorScaleElement(0, kRed);
    scale.addColorScaleElement(5, kRed);
    scale.addColorScaleElement(5 + 1e-9, kBlue);
    scale.addColorScaleElement(6, kBlue);
    EXPECT_EQ(scale.getColor(5, kDefault), kDefault);
    EXPECT_EQ(scale.getColor(5.5, kDefault), osg::Vec4f(0, 0, 1, 1));
}

TEST(ColorScale, TakesAtMost257Elements)
{
    ColorScale scale;
    for (int i = 0; i < 257; ++i)
        EXPECT_TRUE(scale.addColorScaleElement(i, kRed)) << i;
    EXPECT_FALSE(scale.addColorScaleElement(257, kBlue));
    EXPECT_EQ(scale.getColorScaleElementCount(), 257);
    EXPECT_EQ(scale.getColorScaleElements(256).value, 256);
}

TEST(ColorScale, IgnoresIndicesOutOfRange)
{
    ColorScale scale;
    scale.addColorScaleElement(3, kRed);
    for (const int index : {-1, 1}) {
        scale.removeColorScaleElement(index);
        EXPECT_EQ(scale.getColorScaleElementCount(), 1);
        EXPECT_EQ(scale.getColorScaleElements(index).value, 0);
        EXPECT_EQ(scale.getColorScaleElements(index).color, osg::Vec4f(0, 0, 0, 1));
    }
    scale.removeColorScaleElement(0);
    EXPECT_EQ(scale.getColorScaleElementCount(), 0);
}
