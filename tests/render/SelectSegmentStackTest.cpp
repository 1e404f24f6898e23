#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/BufferIndexBinding>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::SelectSegmentStack;

namespace {

using Polygon = std::vector<osg::Vec2d>;

constexpr int kSize = PointPicture::kSize;
const osg::Vec3ub kSelected(255, 0, 157);
const osg::Vec3ub kPlain(0, 255, 0);
const Polygon kLeft = {{-5, -5}, {12.25, -5}, {12.25, 40}, {-5, 40}};
const Polygon kLower = {{-5, -5}, {40, -5}, {40, 7.75}, {-5, 7.75}};

/// One point somewhere in each pixel of the picture, so that the pixel shows what became of the point.
std::vector<TestPoint> pointInEachPixel()
{
    std::mt19937 random(5);
    std::uniform_int_distribution<int32_t> within(100, 900);
    std::vector<TestPoint> points;
    for (int i = 0; i < kSize * kSize; ++i) {
        const int32_t x = i % kSize * 1000 + within(random);
        points.push_back(placed(coloredPoint(0, 255, 0), x, i / kSize * 1000 + within(random)));
    }
    return points;
}

struct SelectSegmentStackTest : testing::Test
{
    std::vector<TestPoint> points = pointInEachPixel();
    PointPicture picture{PointPicture::AsGiven{points}};
    SelectSegmentStack stack{picture.viewer.viewer, picture.cloud};

    osg::Vec3d local(int i) const { return osg::Vec3d(points[i].x, points[i].y, points[i].z) * 0.001; }

    osg::Vec3ub pixelOf(int i) { return picture.at(i % kSize, i / kSize); }

    void push(Polygon polygon, bool inside = true) { stack.selectPushAndApply(polygon, inside); }
    void pushSegment(Polygon polygon, bool flag = true) { stack.segmentPushAndApply(polygon, flag); }

    /// Draws, and counts the points shown in a colour.
    int count(const osg::Vec3ub& color)
    {
        picture.draw();
        int found = 0;
        for (int i = 0; i < kSize * kSize; ++i)
            found += pixelOf(i) == color;
        return found;
    }

    /// Draws, and expects each pixel to be as the processor says of its point. Returns how many differ from
    /// a cloud without selection.
    int expectAgreement()
    {
        picture.draw();
        int changed = 0;
        for (int i = 0; i < kSize * kSize; ++i) {
            osg::Vec3d p = local(i);
            const osg::Vec3ub expected = !stack.pointIsVisible(p) ? PointPicture::kBackground
                                         : stack.pointIsSelect(p) ? kSelected
                                                                  : kPlain;
            EXPECT_EQ(pixelOf(i), expected) << "point " << i;
            changed += expected != kPlain;
        }
        return changed;
    }
};

} // namespace

TEST_F(SelectSegmentStackTest, ShadersAndProcessorAgreeOnEveryPoint)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<double> coordinate(-6, kSize + 6);
    const auto polygon = [&](int vertices) {
        Polygon made;
        for (int i = 0; i < vertices; ++i)
            made.emplace_back(coordinate(random), coordinate(random));
        return made;
    };
    for (int round = 0; round < 12; ++round) {
        const int pushes = 1 + round % 5;
        for (int i = 0; i < pushes; ++i) {
            push(polygon(3 + (round + i) % 6), (round + i) % 3 != 0); // most of them cross themselves
            if (i == 2) stack.selectConvertSegment(round % 2);
            if (round % 4 == 3 && i == 1) pushSegment(polygon(4));
        }
        expectAgreement();
        stack.clearAndApply();
    }
}

TEST_F(SelectSegmentStackTest, SelectionStaysOnTheDataOfATurnedCloudWhileTheCameraMoves)
{
    const osg::Matrixd place = picture.root->getMatrix();
    picture.root->setMatrix(osg::Matrixd::rotate(0.7, osg::Vec3d(1, 2, 3)) * place *
                            osg::Matrixd::translate(3, -2, 5));
    picture.lookInPerspective();
    picture.viewer.camera().setViewport(4, 2, 24, 20); // off the window's centre
    push({{5, 3}, {20, 6}, {9, 21}, {26.5, 18.5}});
    stack.selectConvertSegment(true);
    push({{10, 4}, {27, 4}, {18, 20}});

    picture.root->setMatrix(place);
    picture.viewer.camera().setViewport(0, 0, kSize, kSize);
    picture.viewer.camera().setViewMatrix(osg::Matrixd::translate(-PointPicture::kOrigin));
    picture.viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -1000, 1000);
    EXPECT_GT(expectAgreement(), 100);
}

TEST_F(SelectSegmentStackTest, SelectsUnderThePolygonInAReversedWindow)
{
    osg::Camera& camera = picture.viewer.camera();
    const osg::Matrixd projection = camera.getProjectionMatrix();
    camera.setProjectionMatrix(projection * osg::Matrixd::scale(-1, 1, 1));
    push(kLeft);
    camera.setProjectionMatrix(projection);
    expectAgreement();
    for (int i = 0; i < kSize * kSize; ++i)
        EXPECT_EQ(pixelOf(i) == kSelected, local(i).x() > kSize - kLeft[1].x()) << "point " << i;
}

TEST_F(SelectSegmentStackTest, LeavesPointsBehindTheCameraAlone)
{
    const osg::Vec3d middle = PointPicture::kOrigin + osg::Vec3d(kSize / 2, kSize / 2, 0);
    picture.viewer.camera().setViewMatrixAsLookAt(middle, middle + osg::Vec3d(1, 0, 0.001),
                                                  osg::Vec3d(0, 0, 1));
    picture.viewer.camera().setProjectionMatrixAsPerspective(90, 1, 0.1, 100);
    push({{-1e4, -1e4}, {1e4, -1e4}, {1e4, 1e4}, {-1e4, 1e4}});

    picture.viewer.camera().setViewMatrix(osg::Matrixd::translate(-PointPicture::kOrigin));
    picture.viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -1000, 1000);
    expectAgreement();
    for (int i = 0; i < kSize * kSize; ++i)
        EXPECT_EQ(pixelOf(i) == kSelected, i % kSize >= kSize / 2) << "point " << i;
}

TEST_F(SelectSegmentStackTest, TakesPolygonsOfThousandsOfVerticesAndOfTooFew)
{
    push({});
    push({{3, 3}});
    push({{3, 3}, {30, 30}});
    EXPECT_EQ(expectAgreement(), 0);
    Polygon circle;
    for (int i = 0; i < 4000; ++i)
        circle.emplace_back(16 + 10 * std::cos(i * M_PI / 2000), 16 + 10 * std::sin(i * M_PI / 2000));
    push(circle);
    EXPECT_NEAR(expectAgreement(), 314, 20);
}

TEST_F(SelectSegmentStackTest, ALaterPolygonTakesPointsOutOfTheSelection)
{
    push(kLeft);
    const int left = count(kSelected);
    EXPECT_NEAR(left, 12 * kSize, kSize);
    push(kLower, false);
    EXPECT_LT(count(kSelected), left - 80);
    expectAgreement();
    stack.selectPopAndApply();
    EXPECT_EQ(count(kSelected), left);
    stack.selectClearAndApply();
    EXPECT_EQ(count(kPlain), kSize * kSize);
}

TEST_F(SelectSegmentStackTest, BrightnessLeavesTheColourOfTheSelectionAloneExceptForTimes)
{
    push(kLeft);
    const int selected = count(kSelected);
    const osg::Vec3ub grey(128, 128, 128);
    PointCloudHelper::setBrightnessContrast(picture.root, 0, 0);
    EXPECT_EQ(count(kSelected), selected);
    EXPECT_EQ(count(grey), kSize * kSize - selected);
    VelOsgDBBrx::ColorScale white;
    white.addColorScaleElement(-1, osg::Vec4f(1, 1, 1, 1));
    white.addColorScaleElement(1, osg::Vec4f(1, 1, 1, 1));
    VelOsgDBBrx::ShaderHelper::gpsTimeColorShader(picture.cloud, white);
    EXPECT_EQ(count(grey), kSize * kSize);
}

TEST_F(SelectSegmentStackTest, SegmentsHideTheInsideOrEverything)
{
    pushSegment(kLeft, true);
    EXPECT_NEAR(count(PointPicture::kBackground), 12 * kSize, kSize);
    stack.segmentPopAndApply();
    EXPECT_EQ(count(kPlain), kSize * kSize);
    pushSegment(kLeft, false);
    EXPECT_EQ(count(PointPicture::kBackground), kSize * kSize);
    stack.segmentClearAndApply();
    EXPECT_EQ(count(kPlain), kSize * kSize);
}

TEST_F(SelectSegmentStackTest, ASelectionBecomesASegmentAndComesBack)
{
    push(kLeft);
    push(kLower);
    const int selected = count(kSelected);
    stack.selectConvertSegment(false);
    EXPECT_EQ(count(kPlain), selected) << "only what was selected is kept";
    EXPECT_EQ(count(PointPicture::kBackground), kSize * kSize - selected);
    stack.pop();
    EXPECT_EQ(count(kSelected), selected);
    EXPECT_EQ(count(kPlain), kSize * kSize - selected);

    stack.selectConvertSegment(true);
    stack.selectConvertPopAndApply();
    EXPECT_EQ(count(kSelected), selected);
    stack.selectConvertPopAndApply();
    EXPECT_EQ(count(kSelected), selected) << "no segment, nothing changes";
}

TEST_F(SelectSegmentStackTest, PopTakesBackPushesInOrderAndDriftsAfterPopsOfTheListsThemselves)
{
    push(kLeft);
    pushSegment(kLower);
    stack.pop();
    EXPECT_EQ(count(PointPicture::kBackground), 0);
    push(kLower);
    const int both = count(kSelected);
    push({{20, 20}, {30, 20}, {30, 30}});
    stack.selectPopAndApply();
    EXPECT_EQ(count(kSelected), both);
    stack.pop(); // the entry of the polygon that is gone: takes the one before it
    EXPECT_LT(count(kSelected), both);
    for (int i = 0; i < 5; ++i)
        stack.pop();
    EXPECT_EQ(count(kPlain), kSize * kSize);
}

TEST_F(SelectSegmentStackTest, ClearingLeavesNoSelectionNoSegmentAndNoBuffers)
{
    push(kLeft);
    pushSegment(kLower);
    stack.clearAndApply();
    EXPECT_EQ(count(kPlain), kSize * kSize);
    osg::StateSet& state = *picture.cloud->getStateSet();
    bool active = true;
    ASSERT_TRUE(state.getUniform("activeClip")->get(active));
    EXPECT_FALSE(active);
    for (unsigned int binding = 0; binding < 5; ++binding)
        EXPECT_FALSE(state.getAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, binding));
    stack.pop();
    EXPECT_EQ(count(kPlain), kSize * kSize);
}

TEST_F(SelectSegmentStackTest, KeepsCloudsOfOneSceneApart)
{
    CellFixture other({placed(coloredPoint(0, 255, 0), 5500, 5500, 500)}, PointPicture::kOrigin);
    const osg::ref_ptr<PointCloudImpl> second = makeCloud(other);
    picture.root->addChild(second);
    SelectSegmentStack secondStack(picture.viewer.viewer, second);
    Polygon left = kLeft;
    secondStack.selectPushAndApply(left, true);
    picture.draw();
    EXPECT_EQ(picture.at(5, 5), kSelected);
    EXPECT_EQ(count(kSelected), 1) << "the first cloud is not selected";
    push(kLower);
    secondStack.clearAndApply();
    EXPECT_GT(count(kSelected), 7 * kSize) << "the first cloud keeps its own";
}

TEST(SelectSegmentStack, DoesNothingWithoutViewerOrNode)
{
    Polygon polygon = kLeft;
    osg::Vec3d p(1, 1, 0);
    for (const osg::ref_ptr<osg::Node>& node :
         {osg::ref_ptr<osg::Node>(), osg::ref_ptr<osg::Node>(new osg::Group)}) {
        SelectSegmentStack stack(nullptr, node);
        stack.selectPushAndApply(polygon, true);
        stack.segmentPushAndApply(polygon, true);
        stack.selectConvertSegment(true);
        stack.pop();
        stack.clearAndApply();
        EXPECT_FALSE(stack.pointIsSelect(p));
        EXPECT_TRUE(stack.pointIsVisible(p));
    }
}
