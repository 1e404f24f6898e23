#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/ClipNode>
#include <osg/Math>
#include <osg/Uniform>

#include <cmath>
#include <functional>
#include <map>
#include <string>

using VelOsgDBBrx::ColorEntry;
using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::ShaderHelper;

namespace {

using Colors = std::vector<osg::Vec3ub>;

const osg::Vec3ub kHidden = PointPicture::kBackground;
const osg::Vec3ub kWhite(255, 255, 255);
const osg::Vec3d kOrigin = PointPicture::kOrigin;

std::vector<TestPoint> whitePoints(size_t count)
{
    return std::vector<TestPoint>(count, coloredPoint(255, 255, 255));
}

/// White points as in the row of a picture, a few rows above it.
std::vector<TestPoint> secondRow(size_t count)
{
    std::vector<TestPoint> points = whitePoints(count);
    for (size_t i = 0; i < count; ++i)
        points[i] = placed(points[i], static_cast<int32_t>(i) * 1000 + 500, 20500);
    return points;
}

/// For each of the first `count` points, whether it is drawn: 'x' or '.'.
std::string drawn(PointPicture& picture)
{
    std::string result;
    for (const osg::Vec3ub& color : picture.draw())
        result += color == kHidden ? '.' : 'x';
    return result;
}

/// Every colour mode for points, each in white alone.
std::map<std::string, std::function<void()>> whiteModes(osg::Node& cloud)
{
    const osg::Vec4f white(1, 1, 1, 1);
    std::vector<osg::Vec4f> table(256, white);
    ColorWithRangeInfo ramp;
    ramp.entries.resize(2);
    ramp.entries[1].position = 1;
    ramp.entries[0].color = ramp.entries[1].color = white;
    ramp.range.set(0, 1000);
    VelOsgDBBrx::ColorScale scale;
    scale.addColorScaleElement(-1, white);
    scale.addColorScaleElement(1, white);
    const auto byTable = [&](void (*mode)(osg::Node*, std::vector<osg::Vec4f>&)) {
        return [=, &cloud]() mutable { mode(&cloud, table); };
    };
    return {{"origin", [&cloud] { ShaderHelper::originColorShader(&cloud); }},
            {"single", [=, &cloud] { ShaderHelper::singleColorShader(&cloud, white); }},
            {"intensity", [=, &cloud]() mutable { ShaderHelper::intensityShader(&cloud, ramp); }},
            {"elevation", [=, &cloud]() mutable { ShaderHelper::elevationColorShader(&cloud, ramp, false); }},
            {"class", byTable(ShaderHelper::classificationColorShader)},
            {"source", byTable(ShaderHelper::pointSourceIDColorShader)},
            {"return", byTable(ShaderHelper::returnNumberColorShader)},
            {"returns", byTable(ShaderHelper::numbersReturnColorShader)},
            {"flight line", byTable(ShaderHelper::flightLineColorShader)},
            {"time", [=, &cloud]() mutable { ShaderHelper::gpsTimeColorShader(&cloud, scale); }}};
}

/// Inside where x is at least (sign 1) or at most (sign -1) `metres` right of the picture's origin.
osg::Vec4d xPlane(double sign, double metres)
{
    return osg::Vec4d(sign, 0, 0, -sign * (kOrigin.x() + metres));
}

} // namespace

TEST(ClipBox, HidesWhatIsOutsideAnyOfItsPlanesToTheMillimetre)
{
    PointPicture picture(whitePoints(6)); // at x = 0.5, 1.5, ...
    osg::BoundingBoxd box(kOrigin + osg::Vec3d(1.5, -10, -10), kOrigin + osg::Vec3d(3.4995, 40, 10));
    PointCloudHelper::setClipBox(picture.cloud, box);
    EXPECT_EQ(drawn(picture), ".xx...");
    box.xMin() += 0.0005;
    PointCloudHelper::setClipBox(picture.cloud, box);
    EXPECT_EQ(drawn(picture), "..x...");
    PointCloudHelper::setClipBox(picture.cloud, osg::BoundingBoxd());
    EXPECT_EQ(drawn(picture), "xxxxxx");

    EXPECT_FALSE(PointCloudHelper::setClipBox(picture.cloud, std::vector<osg::Vec4d>(9, xPlane(1, 3))));
    EXPECT_EQ(drawn(picture), "xxxxxx");
    EXPECT_TRUE(PointCloudHelper::setClipBox(picture.root, std::vector<osg::Vec4d>(8, xPlane(1, 4))));
    EXPECT_EQ(drawn(picture), "xxxxxx") << "the cloud's own setting wins";
    picture.cloud->getStateSet()->removeUniform("activeDClipPlane");
    picture.cloud->getStateSet()->removeUniform("clipPlane");
    EXPECT_EQ(drawn(picture), "....xx") << "without one, the setting above holds";
}

TEST(ClipBox, HeedsAllEightPlanesInclusiveAndIsOffWhereItsUniformIs)
{
    PointPicture picture(whitePoints(6));
    picture.root->setMatrix(osg::Matrixd());
    picture.viewer.camera().setViewMatrix(osg::Matrixd());
    std::vector<osg::Vec4d> planes(7, osg::Vec4d(1, 0, 0, 0));
    planes.push_back(osg::Vec4d(1, 0, 0, -2.5));
    EXPECT_TRUE(PointCloudHelper::setClipBox(picture.cloud, planes));
    EXPECT_EQ(drawn(picture), "..xxxx") << "the point on the eighth plane is inside";
    picture.cloud->getStateSet()->getUniform("activeDClipPlane")->set(false);
    EXPECT_EQ(drawn(picture), "xxxxxx");
}

TEST(CloudPlanes, ClipEveryCloudBelowTheNodeWithAnyNumberOfPlanes)
{
    PointPicture picture(whitePoints(6));
    const osg::ref_ptr<osg::Group> hidden = new osg::Group;
    hidden->setNodeMask(0);
    picture.root->addChild(hidden);
    hidden->addChild(picture.cloud);
    picture.root->removeChild(picture.cloud);

    std::vector<osg::Vec4d> planes(20, xPlane(1, 1.5));
    planes.push_back(xPlane(-1, 3.4995));
    PointCloudHelper::setClipPlane(picture.root, planes);
    hidden->setNodeMask(~0u);
    EXPECT_EQ(drawn(picture), ".xx...");
    EXPECT_EQ(picture.fixture.octree->planes, planes);
    PointCloudHelper::setClipPlane(picture.root, {});
    EXPECT_EQ(drawn(picture), "xxxxxx");
}

TEST(CloudPlanes, BelongToTheirCloudStandInTheWorldAndAreReplacedByTheNextCall)
{
    PointPicture picture(whitePoints(6));
    const CellFixture fixture(secondRow(6), kOrigin);
    const osg::ref_ptr<osg::Node> other = makeCloud(fixture);
    picture.root->addChild(other);
    const auto drawnOfOther = [&picture] {
        std::string result;
        for (int x = 0; x < 6; ++x)
            result += picture.at(x, 20) == kHidden ? '.' : 'x';
        return result;
    };
    PointCloudHelper::setClipPlane(picture.root, {xPlane(1, 3)});
    PointCloudHelper::setClipPlane(other, {xPlane(-1, 4)});
    EXPECT_EQ(drawn(picture), "...xxx");
    EXPECT_EQ(drawnOfOther(), "xxxx..") << "the later call alone";

    picture.root->setMatrix(osg::Matrixd::translate(kOrigin + osg::Vec3d(2, 0, 0)));
    EXPECT_EQ(drawn(picture), "...xxx") << "the points moved, the plane did not";
    EXPECT_EQ(drawnOfOther(), "..xx..");
    PointCloudHelper::setClipPlane(picture.root, {});
    EXPECT_EQ(drawn(picture), "..xxxx");
    EXPECT_EQ(drawnOfOther(), "..xxxx");
}

TEST(FixedFunctionPlanes, ClipOnlyWhatIsBelowTheirNode)
{
    PointPicture picture(whitePoints(6));
    const CellFixture other(secondRow(3), kOrigin);
    const osg::ref_ptr<osg::ClipNode> clip = new osg::ClipNode;
    clip->addClipPlane(new osg::ClipPlane(0, 1, 0, 0, -1));
    clip->addClipPlane(new osg::ClipPlane(3, -1, 0, 0, 5));
    clip->addChild(makeCloud(other));
    picture.root->addChild(clip);
    for (int frame = 0; frame < 2; ++frame) {
        EXPECT_EQ(drawn(picture), "xxxxxx");
        EXPECT_EQ(picture.at(0, 20), kHidden);
        EXPECT_EQ(picture.at(1, 20), kWhite);
    }
    picture.root->removeChild(picture.cloud);
    clip->addChild(picture.cloud);
    EXPECT_EQ(drawn(picture), ".xxxx.") << "both planes";
    clip->getClipPlane(1)->setClipPlane(-1, 0, 0, 2.2);
    EXPECT_EQ(drawn(picture), ".x....");
}

/// A plane of a sibling stays in OpenGL's state when another plane is on.
TEST(FixedFunctionPlanes, OfSiblingsDoNotClipACloudThatHasAHarmlessOne)
{
    PointPicture picture(whitePoints(6));
    const osg::ref_ptr<osg::ClipNode> sibling = new osg::ClipNode;
    sibling->addClipPlane(new osg::ClipPlane(0, 1, 0, 0, -1000));
    const CellFixture other(secondRow(3), kOrigin);
    sibling->addChild(makeCloud(other));
    picture.root->insertChild(0, sibling);
    const osg::ref_ptr<osg::ClipNode> harmless = new osg::ClipNode;
    harmless->addClipPlane(new osg::ClipPlane(1, 1, 0, 0, -1.2));
    picture.root->removeChild(picture.cloud);
    harmless->addChild(picture.cloud);
    picture.root->addChild(harmless);
    for (int frame = 0; frame < 2; ++frame) {
        EXPECT_EQ(drawn(picture), ".xxxxx");
        EXPECT_EQ(picture.at(0, 20), kHidden);
    }
    osg::StateSet& cell = *picture.cells().getChild(0)->getOrCreateStateSet();
    cell.setMode(GL_CLIP_PLANE0 + 1, osg::StateAttribute::OFF);
    EXPECT_EQ(drawn(picture), "xxxxxx") << "off for the cell";
}

/// The programs of plain clouds leave out what nobody asked for.
TEST(UniformsOfCells, WorkAsThoseOfAnyNodeAbove)
{
    PointPicture picture(whitePoints(6));
    const std::vector<osg::Vec4d> planes = {xPlane(1, 2)};
    for (osg::Node* const node :
         {static_cast<osg::Node*>(&picture.geometry()), picture.cells().getChild(0)}) {
        EXPECT_EQ(drawn(picture), "xxxxxx");
        PointCloudHelper::setClipBox(node, planes);
        EXPECT_EQ(drawn(picture), "..xxxx");
        node->setStateSet(nullptr);
    }
    PointCloudHelper::setShownClasses(&picture.geometry(), std::bitset<256>().set(7));
    EXPECT_EQ(drawn(picture), "......");
    picture.geometry().setStateSet(nullptr);
    PointCloudHelper::setPointSize(&picture.geometry(), 3);
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, kHidden), 7 * 3);
}

namespace {

/// Points of a host's own, under no cloud, in white or in the colour mode that the node has.
osg::ref_ptr<osg::Group> hostPoints(const CellFixture& fixture)
{
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(VelOsgDBBrx::LasReaderWriter::read(fixture.wholeCell("host")));
    ShaderHelper::singleColorShader(group, osg::Vec4f(1, 1, 1, 1));
    PointCloudHelper::setPointSize(group, 1);
    return group;
}

} // namespace

TEST(HostGeometry, IsClippedByEveryFixedFunctionPlaneOnOrOff)
{
    PointPicture picture(whitePoints(6));
    const CellFixture fixture(secondRow(6), kOrigin);
    picture.root->addChild(hostPoints(fixture));
    const osg::ref_ptr<osg::ClipPlane> plane = new osg::ClipPlane(2, 1, 0, 0, -2.2);
    picture.root->getOrCreateStateSet()->setAttribute(plane); // its mode stays off
    EXPECT_EQ(drawn(picture), "xxxxxx") << "a cloud goes by what is on";
    EXPECT_EQ(picture.at(1, 20), kHidden);
    EXPECT_EQ(picture.at(2, 20), kWhite);
}

TEST(HostGeometry, HasItsFlightLineInAnAttributeOfItsOwn)
{
    PointPicture picture(whitePoints(1));
    const float flights[] = {-3, 0, 7.9f, 255, 1000};
    std::vector<TestPoint> points = secondRow(5);
    for (size_t i = 0; i < 5; ++i) {
        points[i].gpsTime = flights[i]; // the attribute of times in clouds is that of flight lines elsewhere
        points[i].sourceId = 9;
    }
    const CellFixture fixture(points, kOrigin);
    const osg::ref_ptr<osg::Group> host = hostPoints(fixture);
    picture.root->addChild(host);
    std::vector<osg::Vec4f> table(256, osg::Vec4f(0, 0, 1, 1));
    table[0].set(1, 0, 0, 1);
    table[7].set(0, 1, 0, 1);
    table[255].set(1, 1, 0, 1);
    ShaderHelper::flightLineColorShader(host, table);
    picture.draw();
    const osg::Vec3ub red(255, 0, 0);
    const Colors expected = {red, red, {0, 255, 0}, {255, 255, 0}, {255, 255, 0}};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(picture.at(i, 20), expected[static_cast<size_t>(i)]) << flights[i];
}

namespace {

/// The share of its colour that a point keeps, whose normal the light meets so.
int lit(double facing)
{
    return static_cast<int>(std::lround(255 * (0.3 + 0.7 * facing)));
}

} // namespace

TEST(NormalLight, ShinesFromTheEyeOnBothSidesOfASurfaceInEveryMode)
{
    const std::vector<osg::Vec4f> normals = {osg::Vec4f(0, 0, 1, 0), osg::Vec4f(0, 0, -3, 0),
                                             osg::Vec4f(0.8f, 0, 0.6f, 0), osg::Vec4f(1, 0, 0, 0),
                                             osg::Vec4f(0, 0, 0, 0)};
    PointPicture picture(whitePoints(5), normals);
    const int expected[] = {255, 255, lit(0.6), lit(0), 255};
    for (const auto& [mode, apply] : whiteModes(*picture.cloud)) {
        apply();
        PointCloudHelper::setHeadLight(picture.root);
        const Colors colors = picture.draw();
        for (size_t i = 0; i < colors.size(); ++i)
            EXPECT_NEAR(colors[i].g(), expected[i], 1) << i << " in mode " << mode;
        PointCloudHelper::setLightOff(picture.root);
        EXPECT_EQ(picture.draw(), Colors(5, kWhite)) << "off";
    }

    PointPicture without(whitePoints(2));
    PointCloudHelper::setHeadLight(without.root);
    EXPECT_EQ(without.draw(), Colors(2, kWhite)) << "a store without normals";
}

TEST(NormalLight, OfTheEyeSpreadsFromItInPerspective)
{
    PointPicture picture(whitePoints(6), std::vector<osg::Vec4f>(6, osg::Vec4f(0, 0, 1, 0)));
    picture.lookInPerspective();
    PointCloudHelper::setHeadLight(picture.cloud);
    picture.draw();
    const double height = 16 / std::tan(osg::DegreesToRadians(15.0));
    const osg::Vec3d toEye(15.5, 11.5, height);
    EXPECT_NEAR(picture.at(0, PointPicture::kRow).r(), lit(height / toEye.length()), 1);
}

/// The sun stays where it is when the cloud or the camera turns.
TEST(NormalLight, OfTheSunComesFromItsAzimuthAndHeightInTheWorld)
{
    const std::vector<osg::Vec4f> normals = {
        osg::Vec4f(0, 0, 1, 0), osg::Vec4f(1, 0, 0, 0),  osg::Vec4f(0, 1, 0, 0),  osg::Vec4f(-1, 0, 0, 0),
        osg::Vec4f(0, 0, 0, 0), osg::Vec4f(0, 0, -1, 0), osg::Vec4f(0, 1, -1, 0), osg::Vec4f(0, -1, -1, 0)};
    PointPicture picture(whitePoints(8), normals);
    const auto expect = [&](const std::vector<int>& expected) {
        const Colors colors = picture.draw();
        for (size_t i = 0; i < expected.size(); ++i)
            EXPECT_NEAR(colors[i].r(), expected[i], 1) << i;
    };
    PointCloudHelper::setSunLight(picture.cloud, 90, 30); // in the east
    const double across = std::cos(osg::DegreesToRadians(30.0));
    expect({lit(0.5), lit(across), lit(0), lit(0), 255});
    PointCloudHelper::setSunLight(picture.cloud, 0, 90);
    expect({255, lit(0), lit(0), lit(0), 255});
    PointCloudHelper::setSunLight(picture.cloud, 0, 0); // in the north
    const int slope =
        lit(std::sqrt(0.5)); // whose normal points down to the south, so that its upper side is north
    expect({lit(0), lit(0), 255, lit(0), 255, lit(0), lit(0), slope});

    // The cloud turned about the row of points: its y axis points up, and its z axis to the south.
    const osg::Vec3d row(0, PointPicture::kRow + 0.5, 0);
    picture.root->setMatrix(osg::Matrixd::translate(-row) * osg::Matrixd::rotate(osg::PI_2, osg::X_AXIS) *
                            osg::Matrixd::translate(kOrigin + row));
    PointCloudHelper::setSunLight(picture.cloud, 180, 0);
    expect({255, lit(0), lit(0), lit(0), 255});
}

TEST(SectionPlanes, ShowWhatIsInsideAnyGroup)
{
    PointPicture picture(whitePoints(6));
    picture.root->setMatrix(osg::Matrixd::translate(0, 0, 0));
    picture.viewer.camera().setViewMatrix(osg::Matrixd());
    const std::vector<osg::Vec4f> planes = {osg::Vec4f(1, 0, 0, 0), osg::Vec4f(-1, 0, 0, 2.2f),
                                            osg::Vec4f(1, 0, 0, -4), osg::Vec4f(-1, 0, 0, 5)};
    EXPECT_TRUE(PointCloudHelper::setSectionPlanes(picture.cloud, planes, 2));
    EXPECT_EQ(drawn(picture), "xx..x.");
    EXPECT_TRUE(PointCloudHelper::setSectionPlanes(picture.cloud, planes, 1));
    EXPECT_EQ(drawn(picture), "xxxxxx") << "each plane a group of its own";
    EXPECT_TRUE(PointCloudHelper::setSectionPlanes(picture.cloud, planes, 2, osg::Vec4d(0, 0, 0, -0.65)));
    EXPECT_EQ(drawn(picture), ".x....") << "0.65 to 1.55, and an empty group";
    EXPECT_FALSE(PointCloudHelper::setSectionPlanes(picture.cloud, planes, 3));
    EXPECT_FALSE(PointCloudHelper::setSectionPlanes(picture.cloud, planes, 0));
    EXPECT_EQ(drawn(picture), ".x....");
    EXPECT_TRUE(PointCloudHelper::setSectionPlanes(picture.cloud, {osg::Vec4f(1, 0, 0, -2.5)}, 1));
    EXPECT_EQ(drawn(picture), "..xxxx") << "a point on the plane is inside";
    picture.cloud->getStateSet()->getUniform("sectionNum")->set(0);
    EXPECT_EQ(drawn(picture), "......") << "there is no group to be inside of";
    PointCloudHelper::clearSectionPlanes(picture.cloud);
    EXPECT_EQ(drawn(picture), "xxxxxx");
}

TEST(NormalFilter, KeepsPointsSeenUnderAFlatAngleAndPointsWithoutANormal)
{
    const std::vector<osg::Vec4f> normals = {osg::Vec4f(0, 0, 1, 0),        osg::Vec4f(1, 0, 0, 0),
                                             osg::Vec4f(0, 0, -1, 0),       osg::Vec4f(0.8f, 0, 0.6f, 0),
                                             osg::Vec4f(0.9f, 0, 0.43f, 0), osg::Vec4f(0, 0, 0, 0),
                                             osg::Vec4f(0, 1, 0, 0)};
    PointPicture picture(whitePoints(7), normals);
    EXPECT_EQ(drawn(picture), "xxxxxxx");
    PointCloudHelper::setNormalFilter(picture.cloud, true);
    EXPECT_EQ(drawn(picture), ".x..xxx");

    // Turned by a right angle about the row of points.
    const osg::Vec3d row(0, PointPicture::kRow + 0.5, 0);
    picture.root->setMatrix(osg::Matrixd::translate(-row) * osg::Matrixd::rotate(osg::PI_2, osg::X_AXIS) *
                            osg::Matrixd::translate(kOrigin + row));
    EXPECT_EQ(drawn(picture), "xxxxxx.");

    PointPicture without(whitePoints(2));
    PointCloudHelper::setNormalFilter(without.cloud, true);
    EXPECT_EQ(drawn(without), "xx");
}

TEST(ClassFilter, HidesClassesInEveryColourMode)
{
    std::vector<TestPoint> points = whitePoints(5);
    const uint8_t codes[] = {0, 2, 31, 32, 255};
    for (size_t i = 0; i < points.size(); ++i)
        points[i].classCode = codes[i];
    PointPicture picture(points);
    for (const auto& [mode, apply] : whiteModes(*picture.cloud)) {
        apply();
        std::bitset<256> shown;
        shown.set();
        for (const unsigned code : {31u, 255u})
            shown.reset(code);
        PointCloudHelper::setShownClasses(picture.root, shown);
        EXPECT_EQ(drawn(picture), "xx.x.") << mode;
        PointCloudHelper::setShownClasses(picture.root, std::bitset<256>().set(32));
        EXPECT_EQ(drawn(picture), "...x.") << mode;
        PointCloudHelper::setShownClasses(picture.root, std::bitset<256>().set());
        EXPECT_EQ(drawn(picture), "xxxxx") << mode;
    }
}

TEST(Brightness, GoesThroughATableAfterTheColourMode)
{
    PointPicture picture({coloredPoint(0, 100, 255), coloredPoint(51, 51, 51)});
    std::array<float, 256> inverse;
    for (size_t i = 0; i < inverse.size(); ++i)
        inverse[i] = static_cast<float>(255 - i);
    PointCloudHelper::setBrightnessTable(picture.cloud, inverse);
    EXPECT_EQ(picture.draw(), (Colors{{255, 155, 0}, {204, 204, 204}}));
    ShaderHelper::singleColorShader(picture.cloud, osg::Vec4f(1, 0, 0.2f, 1));
    EXPECT_EQ(picture.draw()[0], osg::Vec3ub(0, 255, 204));
    ShaderHelper::originColorShader(picture.cloud);
    PointCloudHelper::setBrightnessContrast(picture.cloud, 0, 1);
    EXPECT_EQ(picture.draw(), (Colors{{0, 100, 255}, {51, 51, 51}}));
    PointCloudHelper::setBrightnessContrast(picture.cloud, 0.2f, 1);
    EXPECT_EQ(picture.draw(), (Colors{{51, 151, 255}, {102, 102, 102}}));
    PointCloudHelper::resetBrightness(picture.cloud);
    EXPECT_EQ(picture.draw(), (Colors{{0, 100, 255}, {51, 51, 51}}));
}

TEST(Brightness, LooksUpTheStoredColourAndNotTheBlendedOneInTheOriginMode)
{
    PointPicture picture({coloredPoint(100, 100, 100)}); // intensity 0: blended to black
    picture.cloud->getOrCreateStateSet()->addUniform(new osg::Uniform("blendIntensity", true));
    EXPECT_EQ(picture.draw()[0], osg::Vec3ub(0, 0, 0));
    PointCloudHelper::setBrightnessContrast(picture.cloud, 0, 1);
    EXPECT_EQ(picture.draw()[0], osg::Vec3ub(100, 100, 100));
    ShaderHelper::singleColorShader(picture.cloud, osg::Vec4f(1, 1, 1, 1));
    EXPECT_EQ(picture.draw()[0], osg::Vec3ub(0, 0, 0));
}

TEST(EnhancedLine, StandsOutByColourAndSize)
{
    PointPicture picture(whitePoints(6));
    picture.root->setMatrix(osg::Matrixd::translate(0, 0, 0));
    picture.viewer.camera().setViewMatrix(osg::Matrixd());
    const float row = PointPicture::kRow + 0.5f;
    const std::vector<osg::Vec2f> triangle = {osg::Vec2f(3, row - 1), osg::Vec2f(5, row + 1),
                                              osg::Vec2f(5, row - 1)};
    PointCloudHelper::setEnhancedLine(picture.cloud, triangle, osg::Vec4f(1, 0, 0, 1), 3);
    picture.draw();
    const osg::Vec3ub red(255, 0, 0);
    EXPECT_EQ(picture.at(4, PointPicture::kRow), red);
    EXPECT_EQ(picture.at(4, PointPicture::kRow + 1), red);
    EXPECT_EQ(picture.at(3, PointPicture::kRow - 1), red);
    EXPECT_EQ(picture.at(2, PointPicture::kRow), kWhite);
    EXPECT_EQ(countOtherThan(*picture.picture, kHidden), 9 + 3);

    ColorWithRangeInfo info;
    info.entries.resize(2);
    info.entries[1].position = 1;
    info.range.set(0, 1);
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    picture.draw();
    EXPECT_EQ(picture.at(4, PointPicture::kRow + 4), red) << "the elevation mode's own size";

    PointCloudHelper::clearEnhancedLine(picture.cloud);
    picture.draw();
    EXPECT_EQ(countOtherThan(*picture.picture, kHidden), 6);
}
