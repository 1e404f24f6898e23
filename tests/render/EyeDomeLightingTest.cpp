#include "tests/render/PointPicture.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/CalcLevelVisitor.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/ColorMask>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Texture2D>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <string>

using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::ShaderHelper;

namespace {

constexpr int kSize = PointPicture::kSize;
const osg::Vec3ub kGround(200, 180, 100);
const osg::Vec3ub kBlock(100, 120, 220);

/// Whether a pixel of the picture shows the block, a square in the middle, ten metres above the ground.
bool isBlock(int x, int y)
{
    return x >= 12 && x < 20 && y >= 12 && y < 20;
}

/// Flat ground with the block on it, a point a pixel; seen from straight above, or from a point above.
std::vector<TestPoint> blockOnGround(int millimetres = 10000)
{
    std::vector<TestPoint> points;
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            const TestPoint point = coloredPoint(isBlock(x, y) ? kBlock : kGround);
            points.push_back(placed(point, x * 1000 + 500, y * 1000 + 500, isBlock(x, y) ? millimetres : 0));
        }
    }
    return points;
}

struct BlockPicture : PointPicture
{
    explicit BlockPicture(int millimetres = 10000) : PointPicture(AsGiven{blockOnGround(millimetres)})
    {
        viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -20, 20);
    }
};

/// A red square over the whole picture at a height above the origin.
osg::ref_ptr<osg::Geode> sheet(double height)
{
    const osg::ref_ptr<osg::Geometry> square = osg::createTexturedQuadGeometry(
        osg::Vec3(0, 0, static_cast<float>(height)), osg::Vec3(kSize, 0, 0), osg::Vec3(0, kSize, 0));
    const osg::ref_ptr<osg::Vec4Array> red = new osg::Vec4Array;
    red->push_back(osg::Vec4(1, 0, 0, 1));
    square->setColorArray(red, osg::Array::BIND_OVERALL);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(square);
    return geode;
}

const osg::Vec3ub kRed(255, 0, 0);

/// The shading that eye-dome lighting is to give a pixel, where `depthOf` tells the depth of the visible
/// point of each pixel: 0 at the near plane, 1 at the far one.
template <class DepthOf>
double shade(int x, int y, bool perspective, DepthOf depthOf, double strength = 2)
{
    constexpr int kNeighbours[8][2] = {{2, 0}, {1, 1}, {0, 2}, {-1, 1}, {-2, 0}, {-1, -1}, {0, -2}, {1, -1}};
    const auto transformed = [&](int column, int line) {
        const double z = depthOf(std::clamp(column, 0, kSize - 1), std::clamp(line, 0, kSize - 1));
        return perspective ? (z + 1) / 2 : 1 - z;
    };
    double sum = 0;
    for (const auto& step : kNeighbours)
        sum += std::max(0.0, transformed(x, y) - transformed(x + step[0], y + step[1]));
    return std::exp(-sum / 8 * 300 * strength);
}

/// What a host reads of the second pass of a cloud with eye-dome lighting.
osg::StateSet& secondPass(PointCloudImpl& cloud)
{
    return *cloud.getChild(1)->getStateSet();
}

const osg::Texture2D& textureOf(const osg::StateSet& state, unsigned unit)
{
    return dynamic_cast<const osg::Texture2D&>(
        *state.getTextureAttribute(unit, osg::StateAttribute::TEXTURE));
}

template <typename T>
T valueOf(const osg::StateSet& state, const char* name)
{
    T value{};
    EXPECT_TRUE(state.getUniform(name) && state.getUniform(name)->get(value)) << name;
    return value;
}

/// Of the sizes that the state set of a second pass shows.
void expectSize(const osg::StateSet& state, int width, int height)
{
    for (const unsigned unit : {0u, 1u}) {
        EXPECT_EQ(textureOf(state, unit).getTextureWidth(), width) << unit;
        EXPECT_EQ(textureOf(state, unit).getTextureHeight(), height) << unit;
    }
}

} // namespace

TEST(EyeDomeLighting, StartsWithTexturesUniformsAndAProtectedProgramInItsStateSet)
{
    BlockPicture picture;
    picture.cloud->enableEyeDomeLighting();
    const osg::StateSet& state = secondPass(*picture.cloud);
    const std::map<std::string, float> floats = {{"Sx", 512.0f},        {"Sy", 512.0f}, {"radius", 2.0f},
                                                 {"edlStrength", 2.0f}, {"Zm", 1.0f},   {"ZM", 0.0f}};
    for (const auto& [name, value] : floats)
        EXPECT_EQ(valueOf<float>(state, name.c_str()), value) << name;
    const std::map<std::string, int> integers = {{"s1_color", 1}, {"s2_depth", 0}, {"PerspectiveMode", 0}};
    for (const auto& [name, value] : integers)
        EXPECT_EQ(valueOf<int>(state, name.c_str()), value) << name;
    for (const auto& [name, uniform] : state.getUniformList())
        EXPECT_EQ(uniform.second, static_cast<unsigned>(osg::StateAttribute::OFF)) << name << ": plain";
    EXPECT_EQ(state.getUniformList().size(), floats.size() + integers.size() + 1);
    const osg::Uniform& directions = *state.getUniform("Neigh_pos_2D");
    EXPECT_EQ(directions.getType(), osg::Uniform::FLOAT_VEC2);
    EXPECT_EQ(directions.getNumElements(), 8u);
    osg::Vec2f third;
    directions.getElement(3, third);
    EXPECT_LT((third - osg::Vec2f(-0.70710678f, 0.70710678f)).length(), 1e-6f);

    EXPECT_EQ(state.getAttributePair(osg::StateAttribute::PROGRAM)->second,
              static_cast<unsigned>(osg::StateAttribute::PROTECTED));
    expectSize(state, 960, 512);
    const osg::Texture2D& depth = textureOf(state, 0);
    EXPECT_EQ(depth.getInternalFormat(), GL_DEPTH_COMPONENT);
    EXPECT_EQ(depth.getSourceType(), static_cast<GLenum>(GL_FLOAT));
    EXPECT_EQ(depth.getFilter(osg::Texture::MIN_FILTER), osg::Texture::NEAREST);
    EXPECT_EQ(depth.getFilter(osg::Texture::MAG_FILTER), osg::Texture::NEAREST);
    EXPECT_EQ(depth.getWrap(osg::Texture::WRAP_S), osg::Texture::CLAMP_TO_EDGE);
    EXPECT_EQ(depth.getWrap(osg::Texture::WRAP_T), osg::Texture::CLAMP_TO_EDGE);
    const osg::Texture2D& color = textureOf(state, 1);
    EXPECT_EQ(color.getInternalFormat(), GL_RGBA);
    EXPECT_EQ(color.getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR);
    EXPECT_EQ(color.getFilter(osg::Texture::MAG_FILTER), osg::Texture::LINEAR);
}

TEST(EyeDomeLighting, ShowsTheHostTheViewportAndTheProjectionOfTheLastFrame)
{
    BlockPicture picture;
    picture.cloud->enableEyeDomeLighting();
    const osg::StateSet& state = secondPass(*picture.cloud);
    const auto expect = [&](int width, int height, int perspective) {
        picture.draw();
        expectSize(state, width, height);
        EXPECT_EQ(valueOf<float>(state, "Sx"), static_cast<float>(width));
        EXPECT_EQ(valueOf<float>(state, "Sy"), static_cast<float>(height));
        EXPECT_EQ(valueOf<int>(state, "PerspectiveMode"), perspective);
    };
    expect(kSize, kSize, 0);
    const osg::ref_ptr<const osg::Texture2D> before = &textureOf(state, 0);
    picture.draw();
    EXPECT_EQ(before, &textureOf(state, 0)) << "nothing changed";
    picture.viewer.camera().setViewport(0, 0, 20, 12);
    expect(20, 12, 0);
    picture.lookInPerspective();
    expect(20, 12, 1);
    picture.viewer.camera().setViewport(0, 0, kSize, kSize);
    expect(kSize, kSize, 1);

    const auto shaded = [&] {
        return countOtherThan(*picture.picture, PointPicture::kBackground) -
               countOf(*picture.picture, kGround) - countOf(*picture.picture, kBlock);
    };
    EXPECT_GT(shaded(), 0);
    secondPass(*picture.cloud).addUniform(new osg::Uniform("edlStrength", 0.0f));
    picture.draw();
    EXPECT_EQ(shaded(), 0) << "what the host puts there is drawn with";
}

TEST(EyeDomeLighting, TakesStrengthAndRadiusOfTheHostForAllCloudsOrForOne)
{
    BlockPicture picture(100);
    const auto expectStrength = [&](double strength, const char* which) {
        picture.draw();
        const auto depthOf = [](int x, int y) { return (20 - (isBlock(x, y) ? 0.1 : 0)) / 40; };
        for (int x = 0; x < kSize; ++x) {
            const double expected = shade(x, 15, false, depthOf, strength);
            const osg::Vec3ub& plain = isBlock(x, 15) ? kBlock : kGround;
            ASSERT_NEAR(picture.at(x, 15).g(), plain.g() * expected, 0.75) << x << " " << which;
        }
    };
    PointCloudHelper::setEyeDomeLighting(picture.root, 0.5f, 2);
    picture.cloud->enableEyeDomeLighting();
    expectStrength(0.5, "set above the cloud before it is switched on");
    PointCloudHelper::setEyeDomeLighting(picture.cloud, 1, 2);
    expectStrength(1, "the cloud's own");
    picture.cloud->disableEyeDomeLighting();
    picture.cloud->enableEyeDomeLighting();
    expectStrength(1, "kept when switched off and on");

    PointCloudHelper::setEyeDomeLighting(picture.cloud, 2, 4);
    picture.draw();
    EXPECT_LT(picture.at(15, 15).g(), kBlock.g() + 1);
    EXPECT_LT(picture.at(15, 15).g(), kBlock.g()) << "four pixels from the edge";
    PointCloudHelper::setEyeDomeLighting(picture.cloud, 2, 2);
    picture.draw();
    EXPECT_EQ(picture.at(15, 15).g(), kBlock.g());
}

/// The near and far plane do not matter, and no pixel becomes black.
TEST(EyeDomeLighting, BalancedShadesBySlopesAndLeavesEveryPointItsColour)
{
    const auto expected = [](double rise,
                             double pixel) { // beside a straight edge: 3 of 8 neighbours are higher
        const double slope = rise / (2 * pixel);
        return std::exp(-3.0 / 8 * slope / (slope + 1.5));
    };
    for (const bool perspective : {false, true}) {
        for (const double farther : {1.0, 30.0}) {
            BlockPicture picture(1000);
            osg::Camera& camera = picture.viewer.camera();
            const double height = kSize / 2 / std::tan(osg::DegreesToRadians(15.0));
            if (perspective) {
                picture.lookInPerspective();
                camera.setProjectionMatrixAsPerspective(30, 1, 40 / farther, 100 * farther);
            } else {
                camera.setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -20 * farther, 20 * farther);
            }
            PointCloudHelper::setBalancedEyeDomeLighting(picture.root);
            picture.cloud->enableEyeDomeLighting();
            picture.draw();
            const double pixel = perspective ? 2 * height * std::tan(osg::DegreesToRadians(15.0)) / kSize : 1;
            EXPECT_NEAR(picture.at(15, 11).r(), kGround.r() * expected(1, pixel), 2)
                << perspective << " " << farther;
            EXPECT_EQ(picture.at(3, 3), kGround) << "level ground";
            EXPECT_EQ(picture.at(15, 15), kBlock);
        }
    }
    BlockPicture cliff(1000000);
    cliff.viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -2000, 2000);
    PointCloudHelper::setBalancedEyeDomeLighting(cliff.cloud, 0.5f);
    cliff.cloud->enableEyeDomeLighting();
    cliff.draw();
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x)
            ASSERT_GE(cliff.at(x, y).g(), std::min(kGround.g(), kBlock.g()) * std::exp(-0.5) - 1);
}

/// A low block, so that its edges are shaded by halves.
TEST(EyeDomeLighting, ShadesEveryPixelByTheDepthsAroundIt)
{
    for (const bool perspective : {false, true}) {
        const int millimetres = perspective ? 1000 : 100;
        BlockPicture picture(millimetres);
        if (perspective) picture.lookInPerspective();
        const auto depthOf = [&](int x, int y) {
            const double height = isBlock(x, y) ? millimetres * 0.001 : 0;
            constexpr double kNear = 10;
            constexpr double kFar = 100;
            const double distance = kSize / 2 / std::tan(osg::DegreesToRadians(15.0)) - height;
            return perspective ? kFar / (kFar - kNear) * (1 - kNear / distance) : (20 - height) / 40;
        };
        picture.cloud->enableEyeDomeLighting();
        picture.draw();
        int shaded = 0;
        for (int y = 0; y < kSize; ++y) {
            for (int x = 0; x < kSize; ++x) {
                const double expected = shade(x, y, perspective, depthOf);
                const osg::Vec3ub& plain = isBlock(x, y) ? kBlock : kGround;
                for (int channel = 0; channel < 3; ++channel)
                    ASSERT_NEAR(picture.at(x, y)[channel], plain[channel] * expected, 0.75)
                        << x << ", " << y << (perspective ? " in perspective" : "");
                shaded += expected > 0.3 && expected < 0.95;
            }
        }
        EXPECT_GT(shaded, 30);
    }
}

/// The bounds of the cell hold the eye: by them, the near plane would lie close before it.
TEST(EyeDomeLighting, KeepsItsStrengthWithTheEyeAmongThePoints)
{
    BlockPicture picture;
    osg::Camera& camera = picture.viewer.camera();
    camera.setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    const double height = 30;
    const osg::Vec3d middle = PointPicture::kOrigin + osg::Vec3d(kSize / 2, kSize / 2, 0);
    camera.setViewMatrixAsLookAt(middle + osg::Vec3d(0, 0, height), middle, osg::Y_AXIS);
    camera.setProjectionMatrixAsPerspective(2 * osg::RadiansToDegrees(std::atan(kSize / 2 / height)), 1, 1,
                                            100);
    picture.cloud->enableEyeDomeLighting();
    picture.draw();
    EXPECT_EQ(picture.at(3, 3), kGround);
    int darkened = 0; // the block is 18 pixels from side to side, ten metres nearer than the ground
    for (int x = 0; x < kSize; ++x)
        darkened += picture.at(x, 15).b() < kGround.b() / 4;
    EXPECT_GE(darkened, 2);
}

TEST(EyeDomeLighting, LeavesNoTraceWhenSwitchedOff)
{
    BlockPicture picture;
    picture.draw();
    const osg::ref_ptr<osg::Image> before = picture.picture;
    ShaderHelper::switchEDLShader(picture.cloud, false);
    EXPECT_EQ(picture.cloud->getNumChildren(), 1u) << "off while off";

    for (int cycle = 0; cycle < 3; ++cycle) {
        ShaderHelper::switchEDLShader(picture.root, true);
        ShaderHelper::switchEDLShader(picture.root, true);
        EXPECT_EQ(picture.cloud->getNumChildren(), 2u) << "one first pass and one second";
        picture.draw();
        EXPECT_FALSE(samePixels(*before, *picture.picture));

        ShaderHelper::switchEDLShader(picture.root, false);
        ShaderHelper::switchEDLShader(picture.root, false);
        EXPECT_EQ(picture.cloud->getNumChildren(), 1u);
        picture.draw();
        EXPECT_TRUE(samePixels(*before, *picture.picture)) << cycle;
    }
}

TEST(EyeDomeLighting, ShowsNothingWhereNoPointIs)
{
    PointPicture picture({coloredPoint(255, 255, 255), coloredPoint(255, 255, 255)});
    picture.cloud->enableEyeDomeLighting();
    picture.draw();
    EXPECT_EQ(picture.at(0, PointPicture::kRow), osg::Vec3ub(255, 255, 255)) << "background does not darken";
    EXPECT_EQ(countOtherThan(*picture.picture, PointPicture::kBackground), 2);
}

TEST(EyeDomeLighting, FollowsTheColourModeAndPointSizeOfTheCloud)
{
    BlockPicture picture;
    picture.cloud->enableEyeDomeLighting();
    picture.draw();
    ShaderHelper::singleColorShader(picture.cloud, osg::Vec4f(0, 1, 0, 1));
    picture.draw();
    EXPECT_EQ(picture.at(3, 3), osg::Vec3ub(0, 255, 0));

    PointPicture large({coloredPoint(255, 255, 255)});
    large.cloud->enableEyeDomeLighting();
    PointCloudHelper::setPointSize(large.root, 5);
    large.draw();
    EXPECT_EQ(countOtherThan(*large.picture, PointPicture::kBackground), 15);
}

TEST(EyeDomeLighting, FollowsTheViewportToItsNewSizeAndPlace)
{
    const int sizes[][4] = {{0, 0, 32, 20}, {0, 0, 16, 16}, {16, 8, 16, 16}, {0, 0, 32, 32}};
    for (const bool balanced : {false, true}) {
        BlockPicture reference, picture;
        for (BlockPicture* each : {&reference, &picture}) {
            if (balanced) PointCloudHelper::setBalancedEyeDomeLighting(each->root);
            each->cloud->enableEyeDomeLighting();
        }
        reference.draw();
        for (const auto& size : sizes) {
            // The lower left part of the scene, always a metre a pixel.
            picture.viewer.camera().setViewport(size[0], size[1], size[2], size[3]);
            picture.viewer.camera().setProjectionMatrixAsOrtho(0, size[2], 0, size[3], -20, 20);
            picture.draw();
            const int margin = size[3] == kSize ? 0 : 3; // pixels that the smaller window lacks as neighbours
            for (int y = 0; y < size[3] - margin; ++y)
                for (int x = 0; x < (size[2] == kSize ? kSize : size[2] - margin); ++x)
                    ASSERT_EQ(picture.at(x, y), reference.at(x, y))
                        << x << ", " << y << " of " << size[2] << balanced;
        }
    }
}

TEST(EyeDomeLighting, DrawsIntoTheFrameBufferOfTheHostsCamera)
{
    BlockPicture reference;
    reference.cloud->enableEyeDomeLighting();
    reference.draw();

    BlockPicture picture;
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(kSize, kSize, 1, GL_RGB, GL_UNSIGNED_BYTE);
    osg::Camera& camera = picture.viewer.camera();
    camera.setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera.attach(osg::Camera::COLOR_BUFFER0, image);
    picture.cloud->enableEyeDomeLighting();
    for (int frame = 0; frame < 2; ++frame) {
        std::memset(image->data(), 0, image->getTotalSizeInBytes());
        picture.viewer.frame();
        EXPECT_TRUE(samePixels(*image, *reference.picture)) << frame;
    }
}

TEST(EyeDomeLighting, KeepsTheDepthThatOtherThingsAreTestedAgainst)
{
    for (const bool sheetFirst : {true, false}) {
        BlockPicture picture;
        const osg::ref_ptr<osg::Geode> mesh = sheet(5);
        mesh->getOrCreateStateSet()->setRenderBinDetails(sheetFirst ? -100 : 1000000, "RenderBin");
        picture.root->addChild(mesh);
        picture.cloud->enableEyeDomeLighting();
        picture.draw();
        EXPECT_EQ(picture.at(3, 3), kRed) << "the sheet hides the ground";
        EXPECT_EQ(picture.at(15, 15), kBlock) << "and the block the sheet";
    }
}

/// Culled points keep their place in the arrays; in the second pass they must not stand before what is
/// visible.
TEST(EyeDomeLighting, SeesThroughCulledPoints)
{
    std::vector<TestPoint> points = blockOnGround();
    for (TestPoint& point : points)
        if (point.z > 0) point.flags = 4;
    points.push_back(placed(coloredPoint(0, 0, 255), 15500, 15500));
    PointPicture picture(PointPicture::AsGiven{points});
    picture.root->addChild(sheet(5));
    picture.cloud->enableEyeDomeLighting();
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, kRed), 0) << "the sheet hides all that is left";

    picture.root->removeChildren(1, 1);
    picture.draw();
    EXPECT_EQ(picture.at(15, 15), osg::Vec3ub(0, 0, 255));
    EXPECT_EQ(picture.at(14, 14), PointPicture::kBackground);
}

TEST(EyeDomeLighting, LightsAnEnhancedLineAtItsWholeSize)
{
    PointPicture picture({coloredPoint(255, 255, 255), coloredPoint(255, 255, 255)});
    picture.root->setMatrix(osg::Matrixd());
    picture.viewer.camera().setViewMatrix(osg::Matrixd());
    picture.cloud->enableEyeDomeLighting();
    const float row = PointPicture::kRow + 0.5f;
    PointCloudHelper::setEnhancedLine(
        picture.cloud, {osg::Vec2f(1, row - 1), osg::Vec2f(2, row + 1), osg::Vec2f(2, row - 1)},
        osg::Vec4f(0, 1, 0, 1), 3);
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, PointPicture::kBackground), 9);
    EXPECT_EQ(picture.at(2, PointPicture::kRow + 1), osg::Vec3ub(0, 255, 0));
}

/// What the host sets for its own frame buffer does not hold in the first pass.
TEST(EyeDomeLighting, HeedsWriteMasksOfTheHostInTheSecondPassOnly)
{
    BlockPicture picture;
    picture.cloud->enableEyeDomeLighting();
    picture.draw();
    const osg::ref_ptr<osg::Image> lit = picture.picture;
    osg::StateSet& state = *picture.root->getOrCreateStateSet();
    state.setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0, 1, false));
    picture.draw();
    EXPECT_TRUE(samePixels(*lit, *picture.picture)) << "points that write no depth";

    state.removeAttribute(osg::StateAttribute::DEPTH);
    state.setAttributeAndModes(new osg::ColorMask(true, true, false, true));
    picture.draw();
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            osg::Vec3ub expected = pixel(*lit, x, y);
            expected.b() = PointPicture::kBackground.b();
            ASSERT_EQ(picture.at(x, y), expected) << x << ", " << y;
        }
    }
}

TEST(EyeDomeLighting, ShowsThePointsToOtherVisitorsOnce)
{
    BlockPicture picture;
    picture.cloud->enableEyeDomeLighting();
    VelOsgDBBrx::CalcLevelVisitor levels;
    picture.root->accept(levels);
    EXPECT_EQ(levels.getLevelWithNum(), (std::map<int, int>{{0, kSize * kSize}}));
}

/// A horizontal rectangle of points, a point a metre.
std::vector<TestPoint> rectangle(int left, int width, int height, int z, const osg::Vec3ub& color)
{
    std::vector<TestPoint> points;
    for (int y = 0; y < height; ++y) {
        for (int x = left; x < left + width; ++x)
            points.push_back(placed(coloredPoint(color), x * 1000 + 500, y * 1000 + 500, z * 1000));
    }
    return points;
}

/// Each clears what clouds drawn before it left where it is, and no more than about that.
TEST(EyeDomeLighting, ShadesManyCloudsEachByItsOwnDepth)
{
    constexpr int kWidth = 160;
    constexpr int kBlocks = 5;
    constexpr int kBlockSize = 4;
    HeadlessViewer viewer(kWidth, kSize);
    const osg::ref_ptr<osg::Group> clouds = new osg::Group;
    std::vector<std::unique_ptr<CellFixture>> fixtures;
    const auto add = [&](int left, int width, int height, int z, const osg::Vec3ub& color) {
        fixtures.push_back(
            std::make_unique<CellFixture>(rectangle(left, width, height, z, color), PointPicture::kOrigin));
        OctreeInfo& octree = *fixtures.back()->octree;
        octree.min.set(left, 0, z);
        octree.max.set(left + width, height, z);
        const osg::ref_ptr<PointCloudImpl> cloud = makeCloud(*fixtures.back());
        cloud->enableEyeDomeLighting();
        clouds->addChild(cloud);
    };
    add(0, kWidth, kSize, 0, kGround);
    for (int i = 0; i < kBlocks; ++i)
        add(20 + i * 25, kBlockSize, kBlockSize, 10, kBlock);

    PointCloudHelper::setEyeDomeLighting(clouds, 2, 60);
    viewer.camera().setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    viewer.camera().setProjectionMatrixAsOrtho(0, kWidth, 0, kSize, -20, 20);
    viewer.show(clouds);
    for (const int shift : {0, 10, -10}) {
        viewer.camera().setViewMatrix(osg::Matrixd::translate(shift, 0, 0));
        const osg::ref_ptr<osg::Image> picture = viewer.picture();
        constexpr int kBlockPixels = kBlocks * kBlockSize * kBlockSize;
        EXPECT_EQ(countOf(*picture, kBlock), kBlockPixels) << "all bright, moved by " << shift;
        EXPECT_EQ(countOf(*picture, kGround), (kWidth - std::abs(shift)) * kSize - kBlockPixels);
    }
}

/// What was drawn before lies beside the box of the second cloud, where its points reach by their size and
/// their shading by its radius.
TEST(EyeDomeLighting, ClearsAsFarAsLargePointsAndTheirNeighboursReach)
{
    constexpr int kWidth = 64;
    constexpr int kPointWidth = 41;
    constexpr int kRadius = 8;
    using Enlarge = void (*)(osg::Node*);
    const Enlarge ways[] = {
        [](osg::Node* cloud) { PointCloudHelper::setPointSize(cloud, kPointWidth); },
        [](osg::Node* cloud) { PointCloudHelper::setPointSizeBySpacing(cloud, 1, kPointWidth, kPointWidth); },
        [](osg::Node* cloud) {
            PointCloudHelper::setEnhancedLine(
                cloud, {osg::Vec2f(-1e3f, -1e3f), osg::Vec2f(1e6f, -1e3f), osg::Vec2f(-1e3f, 1e6f)},
                osg::Vec4f(kGround.r() / 255.f, kGround.g() / 255.f, kGround.b() / 255.f, 1), kPointWidth);
        }};
    for (const Enlarge& enlarge : ways) {
        HeadlessViewer viewer(kWidth, kSize);
        CellFixture near(rectangle(0, 24, kSize, 10, kBlock), osg::Vec3d());
        CellFixture wide({placed(coloredPoint(kGround), 44500, 16500)}, osg::Vec3d());
        near.octree->max.set(24, kSize, 10);
        near.octree->min.set(0, 0, 10);
        wide.octree->min.set(44.5, 16.5, 0);
        wide.octree->max = wide.octree->min;
        wide.octree->root = wide.wholeCell();
        const osg::ref_ptr<osg::Group> clouds = new osg::Group;
        for (const CellFixture* fixture : {&near, &wide}) {
            clouds->addChild(makeCloud(*fixture));
            dynamic_cast<PointCloudImpl&>(*clouds->getChild(clouds->getNumChildren() - 1))
                .enableEyeDomeLighting();
        }
        enlarge(clouds->getChild(1));
        PointCloudHelper::setBalancedEyeDomeLighting(clouds, 2, kRadius);
        viewer.camera().setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
        viewer.camera().setProjectionMatrixAsOrtho(0, kWidth, 0, kSize, -20, 20);
        viewer.show(clouds);
        const osg::ref_ptr<osg::Image> picture = viewer.picture();
        EXPECT_EQ(countOf(*picture, kBlock), 24 * kSize) << &enlarge - ways;
        EXPECT_EQ(countOf(*picture, kGround), (kWidth - 24) * kSize) << &enlarge - ways;
    }
}

TEST(EyeDomeLighting, IsNotReplacedByProgramsAboveOrBelow)
{
    BlockPicture picture;
    picture.cloud->enableEyeDomeLighting();
    picture.draw();
    const osg::ref_ptr<osg::Image> lit = picture.picture;

    ShaderHelper::originColorShader(picture.cloud->getChild(1)->asGroup()->getChild(0));
    picture.draw();
    EXPECT_TRUE(samePixels(*lit, *picture.picture)) << "a mode chosen below the pass";

    ShaderHelper::originColorShader(picture.root);
    osg::StateSet& state = *picture.root->getStateSet();
    state.setAttributeAndModes(state.getAttribute(osg::StateAttribute::PROGRAM),
                               osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    picture.draw();
    EXPECT_TRUE(samePixels(*lit, *picture.picture)) << "a mode forced from above";
}

namespace {

/// Rows of a window that a camera has.
struct Rows
{
    int first, count;
};

constexpr int kWindowWidth = 20;

/// Shows the lower left part of the blocks' scene, a metre a pixel.
void lookAtBlocks(osg::Camera& camera, const Rows& rows)
{
    camera.setViewport(0, rows.first, kWindowWidth, rows.count);
    camera.setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    camera.setProjectionMatrixAsOrtho(0, kWindowWidth, 0, rows.count, -20, 20);
    camera.setViewMatrix(osg::Matrixd::translate(-PointPicture::kOrigin));
}

} // namespace

class EyeDomeLightingOnThreads : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
};

/// Two contexts of different size, one of them split between two cameras.
TEST_P(EyeDomeLightingOnThreads, WorksInSeveralContextsAndViewsOfDifferentSizeAtOnce)
{
    BlockPicture first;
    first.cloud->enableEyeDomeLighting();
    first.draw();
    const osg::ref_ptr<osg::Image> expected = first.picture;
    const Rows lower = {0, 16};
    const Rows upper = {16, 24};
    const osg::StateSet& shown = secondPass(*first.cloud);
    for (const bool isUpper : {false, true}) {
        HeadlessViewer second(kWindowWidth, 40, GetParam());
        const Rows& rows = isUpper ? upper : lower;
        lookAtBlocks(second.camera(), rows);
        const osg::ref_ptr<osg::Camera> beside = new osg::Camera;
        beside->setGraphicsContext(second.window);
        beside->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
        lookAtBlocks(*beside, isUpper ? lower : upper);
        second.viewer->addSlave(beside, osg::Matrixd(), osg::Matrixd(), true);
        second.show(first.root);
        for (int frame = 0; frame < 3; ++frame) {
            const osg::ref_ptr<osg::Image> other = second.picture();
            for (int y = 0; y < rows.count - 3; ++y)
                for (int x = 0; x < kWindowWidth - 4; ++x)
                    ASSERT_EQ(pixel(*other, x, y), pixel(*expected, x, y))
                        << x << ", " << y << " " << isUpper;
            // Where each camera has its thread, either may be the last.
            if (GetParam() != osgViewer::ViewerBase::CullThreadPerCameraDrawThreadPerContext)
                expectSize(shown, kWindowWidth, isUpper ? 16 : 40);
            first.draw();
            expectSize(shown, kSize, kSize);
            ASSERT_TRUE(samePixels(*expected, *first.picture));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EyeDomeLighting, EyeDomeLightingOnThreads, everyThreadingModel(),
                         threadingModelName);
