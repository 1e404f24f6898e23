#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/Uniform>

using VelOsgDBBrx::LasReaderWriter;
using VelOsgDBBrx::ShaderHelper;

namespace {

using Colors = std::vector<osg::Vec3ub>;

constexpr int kCulled = 0x40000;

void cull(osg::Geometry& geometry, unsigned point)
{
    auto& words = dynamic_cast<osg::IntArray&>(*geometry.getVertexAttribArray(12));
    words[point] |= kCulled;
    words.dirty();
}

void set(osg::Node& node, osg::Uniform* uniform)
{
    node.getOrCreateStateSet()->addUniform(uniform);
}

} // namespace

/// A host may force vertex array objects on, which remember arrays and would not see an edit.
TEST(RenderedCells, ShowAnEditInTheNextFrame)
{
    for (const bool vertexArrayObject : {false, true}) {
        PointPicture picture({coloredPoint(255, 0, 0), coloredPoint(0, 255, 0), coloredPoint(0, 0, 255)});
        picture.geometry().setUseVertexArrayObject(vertexArrayObject);
        EXPECT_EQ(picture.draw(), (Colors{{255, 0, 0}, {0, 255, 0}, {0, 0, 255}}));
        cull(picture.geometry(), 1);
        EXPECT_EQ(picture.draw(), (Colors{{255, 0, 0}, PointPicture::kBackground, {0, 0, 255}}));
        cull(picture.geometry(), 0);
        EXPECT_EQ(picture.draw(),
                  (Colors{PointPicture::kBackground, PointPicture::kBackground, {0, 0, 255}}));
    }
}

TEST(RenderedCells, DrawNothingPastTheirArraysWhereAPartCannotBeMapped)
{
    PointPicture picture({coloredPoint(255, 0, 0), coloredPoint(0, 255, 0)});
    picture.cells().removeChild(picture.cells().getChild(0));
    picture.cells().addChild(LasReaderWriter::read(picture.fixture.cell({{0, 1}, {5, 40}, {1, 1}})));
    EXPECT_EQ(picture.draw(), (Colors{{255, 0, 0}, {0, 255, 0}}));
    set(*picture.cloud, new osg::Uniform("pointSize", 3)); // what lies in the corner would be seen
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, PointPicture::kBackground), 9);

    picture.cells().removeChild(picture.cells().getChild(0));
    picture.cells().addChild(LasReaderWriter::read(picture.fixture.cell({{100, 5000}})));
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, PointPicture::kBackground), 0);
}

/// Cells come and go, and a new one often gets the addresses of a freed one.
TEST(RenderedCells, SurviveBeingRemovedAndAddedOverAndOver)
{
    PointPicture picture({coloredPoint(255, 0, 0)});
    PointCloudLOD& cells = picture.cells();
    for (int cycle = 0; cycle < 300; ++cycle) {
        const osg::ref_ptr<osg::Node> old = cells.getChild(0);
        if (cycle % 2) old->releaseGLObjects();
        cells.removeChild(old);
        if (cycle % 7 == 0) picture.viewer.frame();
        const TestPoint point = coloredPoint(cycle % 256, 255, cycle / 2);
        CellFixture other({placed(point, 500, PointPicture::kRow * 1000 + 500)}, PointPicture::kOrigin);
        cells.addChild(LasReaderWriter::read(other.wholeCell()));
        ASSERT_EQ(picture.draw()[0],
                  osg::Vec3ub(static_cast<uint8_t>(cycle % 256), 255, static_cast<uint8_t>(cycle / 2)))
            << cycle;
    }
}

TEST(RenderedCells, ComeBackAfterTheirBuffersWereReleased)
{
    PointPicture picture({coloredPoint(255, 0, 0), coloredPoint(0, 255, 0)});
    const Colors colors = picture.draw();
    const osg::ref_ptr<osg::Node> leaf = picture.cells().getChild(0);
    for (int cycle = 0; cycle < 5; ++cycle) {
        picture.cells().removeChild(leaf);
        leaf->releaseGLObjects();
        if (cycle % 2) picture.viewer.frame();
        picture.cells().addChild(leaf);
        EXPECT_EQ(picture.draw(), colors);
    }
}

TEST(CulledPoints, AreHiddenUnlessTheHostWantsToSeeThem)
{
    std::vector<TestPoint> points(5, coloredPoint(255, 255, 255));
    for (size_t flag = 0; flag < 4; ++flag)
        points[flag].flags = static_cast<uint8_t>(1 << flag);
    points[4].flags = 0xF0; // channel, direction and edge hide nothing
    PointPicture picture(points);
    const osg::Vec3ub hidden = PointPicture::kBackground;
    EXPECT_EQ(picture.draw(), (Colors{hidden, hidden, hidden, hidden, {255, 255, 255}}));

    set(*picture.cloud, new osg::Uniform("activeCullModel", false));
    set(*picture.cloud, new osg::Uniform("cullColor", osg::Vec4f(0, 0, 1, 1)));
    const osg::Vec3ub blue(0, 0, 255);
    EXPECT_EQ(picture.draw(), (Colors{blue, blue, blue, blue, {255, 255, 255}}));

    auto& words = dynamic_cast<osg::IntArray&>(*picture.geometry().getVertexAttribArray(12));
    words[4] |= 0x800000; // a host's own mark
    words.dirty();
    EXPECT_EQ(picture.draw(), Colors(5, blue));
}

TEST(CloudDefaults, GiveWayToStateOnTheNodeAndAboveItAndComeBackWithoutIt)
{
    PointPicture picture({coloredPoint(255, 0, 0)});
    const auto drawnPixels = [&picture] {
        picture.draw();
        return countOtherThan(*picture.picture, PointPicture::kBackground);
    };
    EXPECT_EQ(drawnPixels(), 1);
    set(*picture.root, new osg::Uniform("pointSize", 3));
    EXPECT_EQ(drawnPixels(), 6) << "one column is cut off by the picture's edge";
    set(*picture.cloud, new osg::Uniform("pointSize", 5));
    EXPECT_EQ(drawnPixels(), 15);
    picture.cloud->getStateSet()->removeUniform("pointSize");
    picture.root->getStateSet()->removeUniform("pointSize");
    EXPECT_EQ(drawnPixels(), 1);

    ShaderHelper::singleColorShader(picture.root, osg::Vec4f(0, 0, 1, 1));
    EXPECT_EQ(picture.draw(), (Colors{{0, 0, 255}})) << "a mode chosen above the cloud";
}

TEST(CloudDefaults, DoNotLeakFromOneCloudToTheNextThroughTheirSharedProgram)
{
    PointPicture picture({coloredPoint(255, 0, 0)});
    const CellFixture other({placed(coloredPoint(0, 255, 0), 10500, 10500)}, PointPicture::kOrigin);
    picture.root->addChild(makeCloud(other));

    set(*picture.cloud, new osg::Uniform("pointSize", 3));
    set(*picture.cloud, new osg::Uniform("isUseBCTable", true));
    set(*picture.cloud, new osg::Uniform(osg::Uniform::FLOAT, "BrightWithContrast", 256));
    for (int frame = 0; frame < 2; ++frame) {
        EXPECT_EQ(picture.draw()[0], osg::Vec3ub(0, 0, 0));
        EXPECT_EQ(picture.at(10, 10), osg::Vec3ub(0, 255, 0));
        EXPECT_EQ(picture.at(11, 10), PointPicture::kBackground);
    }
}
