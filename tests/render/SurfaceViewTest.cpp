#include "loading/CellGeometry.h"
#include "tests/render/PointPicture.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/PointPicker.h>
#include <VelOsgDBBrx/ShaderHelper.h>
#include <VelOsgDBBrx/SurfaceView.h>

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

#include <algorithm>
#include <cmath>
#include <cstdlib>

using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::SurfaceSettings;
using VelOsgDBBrx::SurfaceView;

namespace {

constexpr int kSide = 64;    ///< metres, a point in the middle of each square metre
constexpr int kPixels = 128; ///< on a side of the picture: two for a metre where one looks from above
constexpr int kGround = 2;
constexpr int kTree = 5;
const osg::Vec3d kOrigin = PointPicture::kOrigin;
const osg::Vec3ub kSky(0, 0, 0);
const osg::Vec3ub kGreen(0, 255, 0);

int brightness(const osg::Vec3ub& color)
{
    return color.r() + color.g() + color.b();
}

/// Points of a plane that rises to the east, from `first` to `last` metres in both directions.
std::vector<TestPoint> plane(double slope, int first = 8, int last = kSide - 8)
{
    std::vector<TestPoint> points;
    for (int y = first; y < last; ++y) {
        for (int x = first; x < last; ++x) {
            TestPoint point = coloredPoint(255, 0, 0);
            point.classCode = kGround;
            points.push_back(placed(point, x * 1000 + 500, y * 1000 + 500,
                                    static_cast<int32_t>(slope * (x * 1000 + 500))));
        }
    }
    return points;
}

/// Without the points of a square in the middle.
std::vector<TestPoint> withHole(std::vector<TestPoint> points, int width)
{
    const auto isInHole = [=](const TestPoint& p) {
        return std::abs(p.x - 500 * kSide) < 500 * width && std::abs(p.y - 500 * kSide) < 500 * width;
    };
    points.erase(std::remove_if(points.begin(), points.end(), isInHole), points.end());
    return points;
}

/// A surface without the other points, seen from above unless something else is said.
struct SurfacePicture
{
    explicit SurfacePicture(
        const std::vector<TestPoint>& points,
        osgViewer::ViewerBase::ThreadingModel threading = osgViewer::ViewerBase::SingleThreaded)
        : fixture(points, kOrigin), viewer(kPixels, kPixels, threading), cloud(makeCloud(fixture))
    {
        const osg::ref_ptr<osg::MatrixTransform> place =
            new osg::MatrixTransform(osg::Matrixd::translate(kOrigin));
        place->addChild(cloud);
        surface->addChild(place);
        settings.otherPoints = false;
        settings.contourInterval = 0;
        surface->setActive(true);
        fromAbove(viewer.camera());
        viewer.show(surface);
    }

    static void fromAbove(osg::Camera& camera)
    {
        camera.setViewMatrix(osg::Matrixd::translate(-kOrigin - osg::Vec3d(0, 0, 50)));
        camera.setProjectionMatrixAsOrtho(0, kSide, 0, kSide, 1, 100);
    }

    void obliquely(double height = 80)
    {
        const osg::Vec3d middle = kOrigin + osg::Vec3d(kSide / 2, kSide / 2, 5);
        viewer.camera().setViewMatrixAsLookAt(middle + osg::Vec3d(-70, -90, height), middle, osg::Z_AXIS);
        viewer.camera().setProjectionMatrixAsPerspective(30, 1, 1, 1000);
    }

    void draw()
    {
        surface->setSettings(settings);
        picture = viewer.picture();
    }

    /// At the picture of a place in metres from the origin.
    osg::Vec3ub at(double x, double y, double z) const
    {
        osg::Camera& camera = *viewer.viewer->getCamera();
        const osg::Vec3d seen = (kOrigin + osg::Vec3d(x, y, z)) * camera.getViewMatrix() *
                                camera.getProjectionMatrix() * camera.getViewport()->computeWindowMatrix();
        return pixel(*picture, static_cast<int>(std::floor(seen.x())),
                     static_cast<int>(std::floor(seen.y())));
    }

    CellGeometry& cell() const
    {
        osg::Node* leaf = cloud->getChild(0)->asGroup()->getChild(0);
        return dynamic_cast<CellGeometry&>(*leaf->asGeode()->getDrawable(0));
    }

    /// Gives the last point, as edits do, another class and hidden bits.
    void editLastPoint(int classCode, int hiddenBits = 0) const
    {
        cell().editCategories([=](osg::IntArray& values) {
            values.back() = (values.back() & 0xffff) | hiddenBits << 16 | classCode << 24;
            return true;
        });
    }

    CellFixture fixture;
    HeadlessViewer viewer;
    osg::ref_ptr<SurfaceView> surface = new SurfaceView;
    osg::ref_ptr<PointCloudImpl> cloud;
    SurfaceSettings settings;
    osg::ref_ptr<osg::Image> picture; ///< of the last frame
};

osg::ref_ptr<osg::Geode> redSheet(double height)
{
    const osg::ref_ptr<osg::Geometry> square = osg::createTexturedQuadGeometry(
        kOrigin + osg::Vec3d(0, 0, height), osg::Vec3(kSide / 2, 0, 0), osg::Vec3(0, kSide, 0));
    const osg::ref_ptr<osg::Vec4Array> red = new osg::Vec4Array;
    red->push_back(osg::Vec4(1, 0, 0, 1));
    square->setColorArray(red, osg::Array::BIND_OVERALL);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(square);
    return geode;
}

} // namespace

/// Whole, with the shade of its slope also where points are missing, and no farther than the points.
TEST(SurfaceView, ClosesHolesOfATiltedPlaneAndShadesItBySunAndSlope)
{
    constexpr double kSlope = 0.2;
    SurfacePicture picture(withHole(plane(kSlope), 14));
    for (const double from : {0, 80, -80}) { // straight above, above and below
        SCOPED_TRACE(from);
        if (from != 0) picture.obliquely(from);
        const auto height = [](double x) { return kSlope * x; };
        int shades[2] = {};
        for (const int fromWest : {0, 1}) {
            picture.settings.sunAzimuth = fromWest ? 270 : 90;
            picture.settings.closing = 30;
            picture.draw();
            shades[fromWest] = brightness(picture.at(14, 20, height(14)));
            for (const double x : {14.0, 25.5, 32.0, 40.0, 50.0})
                for (const double y : {20.0, 32.0, 45.0})
                    EXPECT_NEAR(brightness(picture.at(x, y, height(x))), shades[fromWest], from < 0 ? 40 : 12)
                        << x << " " << y;
            for (const double x : {3.0, 61.0})
                EXPECT_EQ(picture.at(x, 32, height(x)), kSky) << x;
        }
        EXPECT_GT(shades[1], shades[0] + 100) << "it faces the west";

        picture.settings.closing = 2;
        picture.draw();
        EXPECT_EQ(picture.at(32, 32, height(32)), kSky) << "too wide a hole";
        EXPECT_NE(picture.at(20, 20, height(20)), kSky);
    }
}

/// At coordinates of seven digits, on heights that are whole multiples in the world, every fifth bold.
TEST(SurfaceView, DrawsContourLinesAtTheirHeights)
{
    constexpr double kSlope = 0.25; // a line every 8 metres; the one at 130 m is bold
    SurfacePicture picture(withHole(plane(kSlope), 10));
    picture.settings.contourInterval = 2;
    const auto place = [](double height) { return (height - kOrigin.z()) / kSlope; };
    for (const bool oblique : {false, true}) {
        SCOPED_TRACE(oblique);
        if (oblique) picture.obliquely();
        picture.draw();
        const auto at = [&](double height, double y) {
            const double x = place(height);
            return brightness(picture.at(x, y, kSlope * x));
        };
        for (const double y : {20.0, 32.0, 44.0}) {
            const int between = at(129, y);
            for (const double line : {126.0, 128.0, 132.0, 134.0}) {
                EXPECT_LT(at(line, y), between - 60) << line << " " << y;
                EXPECT_NEAR(at(line + 0.7, y), between, 25) << line << " " << y;
            }
            EXPECT_LT(at(130, y), at(128, y) - 40) << "bold";
        }
    }
}

/// Points come onto the surface and leave it with the frame after an edit, and so does what is drawn above.
TEST(SurfaceView, FollowsClassesHidingAndClippingInTheNextFrame)
{
    std::vector<TestPoint> points = plane(0);
    const osg::Vec3ub blue(0, 0, 255);
    TestPoint grass = coloredPoint(blue);
    grass.classCode = 3;
    points.push_back(placed(grass, 24000, 24000, 0));
    TestPoint tree = coloredPoint(kGreen);
    tree.classCode = kTree;
    points.push_back(placed(tree, 32500, 32500, 3000));
    SurfacePicture picture(points);
    picture.obliquely();
    picture.draw();
    const osg::ref_ptr<osg::Image> right = picture.picture;
    EXPECT_EQ(countOf(*right, kGreen), 0);
    const auto expect = [&](bool isRight, const char* what) {
        picture.draw();
        EXPECT_EQ(samePixels(*picture.picture, *right), isRight) << what;
    };
    picture.editLastPoint(kGround);
    expect(false, "a tree is ground");
    const osg::ref_ptr<osg::Image> wrong = picture.picture;
    picture.editLastPoint(kGround, 1);
    expect(true, "hidden");
    PointCloudHelper::showCulledPoints(picture.surface, osg::Vec4f(1, 0, 1, 1));
    expect(true, "hidden, and shown as such among the points");
    PointCloudHelper::hideCulledPoints(picture.surface);
    picture.editLastPoint(kGround);
    PointCloudHelper::setClipBox(picture.surface, osg::BoundingBoxd(0, 0, 0, 1e7, 1e7, kOrigin.z() + 2));
    expect(true, "clipped");
    PointCloudHelper::setClipBox(picture.surface, osg::BoundingBoxd());
    expect(false, "back");
    EXPECT_TRUE(samePixels(*picture.picture, *wrong));
    picture.editLastPoint(kTree);
    expect(true, "undone");

    picture.settings.otherPoints = true;
    picture.draw();
    EXPECT_GT(countOf(*picture.picture, kGreen), 0) << "drawn over the ground";
    EXPECT_GT(countOf(*picture.picture, blue), 0) << "drawn where it lies on the ground";
    picture.editLastPoint(kGround);
    picture.draw();
    EXPECT_EQ(countOf(*picture.picture, kGreen), 0) << "on the surface";
    EXPECT_EQ(countOf(*picture.picture, osg::Vec3ub(255, 0, 0)), 0) << "no point of the ground is drawn";

    PointCloudHelper::setShownClasses(picture.surface, std::bitset<256>().set(kTree));
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, kSky), 0) << "ground is not shown";
}

/// Hosts' things stand before it and behind it; a pick finds the point below the mouse.
TEST(SurfaceView, HasDepthAndLetsItsPointsBePicked)
{
    SurfacePicture picture(plane(0));
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> picker = new VelOsgDBBrx::PointPicker(picture.surface);
    picture.surface->addChild(picker);
    for (const double height : {5.0, -5.0}) {
        const osg::ref_ptr<osg::Geode> sheet = redSheet(height);
        picture.surface->addChild(sheet);
        picture.draw();
        EXPECT_EQ(picture.at(20, 30, 0) == osg::Vec3ub(255, 0, 0), height > 0) << height;
        EXPECT_NE(picture.at(40, 30, 0), kSky);
        picture.surface->removeChild(sheet);
    }
    picture.draw();
    ASSERT_TRUE(picker->request(picture.viewer.camera(), 81, 61));
    const osg::ref_ptr<osg::Image> before = picture.picture;
    picture.draw();
    std::optional<VelOsgDBBrx::PickedPoint> point;
    ASSERT_TRUE(picker->takeAnswer(point) && point);
    EXPECT_LT((point->position - (kOrigin + osg::Vec3d(40.5, 30.5, 0))).length(), 0.002);
    EXPECT_TRUE(samePixels(*before, *picture.picture)) << "a pick disturbs nothing";
}

class SurfaceViewOnThreads : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
};

/// Each view has a surface of its own, wherever it is in the window, also when its size has changed.
TEST_P(SurfaceViewOnThreads, IsTheSameInEveryViewOfAWindow)
{
    const std::vector<TestPoint> points = withHole(plane(0.3), 6);
    SurfacePicture alone(points);
    alone.settings.contourInterval = 1;
    alone.draw();
    constexpr int kLeft = 37;
    for (const bool isRight : {false, true}) {
        HeadlessViewer both(2 * kPixels + kLeft, kPixels + 11, GetParam());
        const osg::ref_ptr<osg::Camera> beside = new osg::Camera;
        beside->setGraphicsContext(both.window);
        beside->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
        both.viewer->addSlave(beside, osg::Matrixd(), osg::Matrixd(), true);
        osg::Camera& right = isRight ? both.camera() : *beside;
        osg::Camera& left = isRight ? *beside : both.camera();
        left.setViewport(kLeft, 11, kPixels, kPixels);
        right.setViewport(kLeft + kPixels, 0, kPixels, kPixels);
        SurfacePicture::fromAbove(left);
        SurfacePicture::fromAbove(right);
        both.show(alone.surface);
        for (int frame = 0; frame < 3; ++frame) {
            ASSERT_TRUE(samePixels(*both.picture(), *alone.picture)) << isRight << " " << frame;
            alone.viewer.frame();
            both.camera().setViewport(kLeft, 11, kPixels / 2, kPixels / 2);
            both.frame();
            both.camera().setViewport(isRight ? kLeft + kPixels : kLeft, isRight ? 0 : 11, kPixels, kPixels);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(SurfaceView, SurfaceViewOnThreads, everyThreadingModel(), threadingModelName);
