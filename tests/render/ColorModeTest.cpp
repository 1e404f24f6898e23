#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/BlendFunc>
#include <osg/Uniform>

#include <algorithm>
#include <optional>

using VelOsgDBBrx::ColorEntry;
using VelOsgDBBrx::ColorScale;
using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::ShaderHelper;

namespace {

using Colors = std::vector<osg::Vec3ub>;

const osg::Vec3ub kBlack(0, 0, 0);

/// Black, red from the middle on, then to yellow at the end.
ColorWithRangeInfo gradient(float first, float span)
{
    ColorWithRangeInfo info;
    const auto add = [&info](const osg::Vec4f& color, float position) {
        ColorEntry entry;
        entry.color = color;
        entry.position = position;
        info.entries.push_back(entry);
    };
    add(osg::Vec4f(0, 0, 0, 1), 0);
    add(osg::Vec4f(1, 0, 0, 1), 0.5f);
    add(osg::Vec4f(1, 1, 0, 0), 1);
    info.range = osg::Vec2f(first, span);
    return info;
}

std::vector<osg::Vec4f> table(const std::vector<osg::Vec3ub>& colors)
{
    std::vector<osg::Vec4f> result;
    for (const osg::Vec3ub& color : colors)
        result.emplace_back(color.r() / 255.0f, color.g() / 255.0f, color.b() / 255.0f, 1.0f);
    return result;
}

/// A point for each value, which a field of it takes.
template <class Field>
std::vector<TestPoint> pointsWith(Field TestPoint::*field,
                                  const std::vector<std::common_type_t<Field>>& values)
{
    std::vector<TestPoint> points(values.size());
    for (size_t i = 0; i < points.size(); ++i)
        points[i].*field = values[i];
    return points;
}

std::vector<TestPoint> pointsAtHeights(const std::vector<int>& millimetres)
{
    return pointsWith(&TestPoint::z, millimetres);
}

/// Lets the background through where a point's colour is not opaque.
void blend(PointPicture& picture)
{
    picture.root->getOrCreateStateSet()->setAttributeAndModes(new osg::BlendFunc);
}

constexpr float kBase = 123.5f; ///< world z of the picture's origin

} // namespace

TEST(ColorModes, ShowStoredColoursWithoutAnyModeChosen)
{
    const Colors colors = {{255, 0, 128}, {1, 2, 3}, {254, 253, 252}, {0, 0, 0}, {1, 1, 126}};
    std::vector<TestPoint> points;
    for (const osg::Vec3ub& color : colors)
        points.push_back(coloredPoint(color));
    points.back().red = 300;    // 1.17 of 255
    points.back().green = 385;  // 1.498
    points.back().blue = 32500; // 126.46
    PointPicture picture(points);
    EXPECT_EQ(picture.draw(), colors);
    EXPECT_EQ(picture.at(0, PointPicture::kRow + 1), PointPicture::kBackground) << "points have size 1";

    ShaderHelper::originColorShader(picture.cloud);
    EXPECT_EQ(picture.draw(), colors);
}

TEST(ColorModes, ShowMarksAndOfHiddenPointsThoseMarked)
{
    std::vector<TestPoint> points(7);
    for (TestPoint& point : points)
        point.userData = 255;
    points[4].flags = points[5].flags = 4;
    PointPicture picture(points);
    const int marks[] = {0, 1, 2, 60000, 1, 0, 3};
    auto& elements = dynamic_cast<osg::IntArray&>(*picture.geometry().getVertexAttribArray(7));
    for (size_t i = 0; i < points.size(); ++i)
        elements[i] |= marks[i] << 8;
    elements.dirty();
    const Colors colors = {{50, 50, 50}, {200, 100, 0}, {0, 0, 255}, {9, 9, 9}};
    ShaderHelper::changedColorShader(picture.cloud, table(colors));
    const Colors expected = {
        colors[0], colors[1], colors[2], colors[3], {120, 60, 0}, PointPicture::kBackground, colors[3]};
    EXPECT_EQ(picture.draw(), expected);
}

TEST(ColorModes, InterpolateIntensityAndPinItAtTheEnds)
{
    PointPicture picture(pointsWith(&TestPoint::intensity, {0, 13107, 26214, 32768 + 6553, 52428, 65535}));
    ColorWithRangeInfo info = gradient(0.2f, 0.6f);
    ShaderHelper::intensityShader(picture.cloud, info);
    // 0 and 0.2 are the start; 0.4 is a third of the span, 0.6 two thirds; 0.8 and 1 are the end.
    const Colors expected = {{0, 0, 0}, {0, 0, 0}, {170, 0, 0}, {255, 85, 0}, {255, 255, 0}, {255, 255, 0}};
    EXPECT_EQ(picture.draw(), expected);
}

TEST(ColorModes, IntensityIgnoresBlendingAndBrightness)
{
    TestPoint point;
    point.intensity = 65535;
    PointPicture picture({point});
    ColorWithRangeInfo info = gradient(0, 1);
    ShaderHelper::intensityShader(picture.cloud, info);
    osg::StateSet& state = *picture.cloud->getOrCreateStateSet();
    state.addUniform(new osg::Uniform("blendIntensity", true));
    state.addUniform(new osg::Uniform("intensityPair", osg::Vec2f(1, 1)));
    state.addUniform(new osg::Uniform("isUseBCTable", true));
    state.addUniform(new osg::Uniform(osg::Uniform::FLOAT, "BrightWithContrast", 256));
    EXPECT_EQ(picture.draw(), (Colors{{255, 255, 0}}));
}

TEST(ColorModes, ColourTheHeightAboveTheWorldsZero)
{
    PointPicture picture(pointsAtHeights({-5000, 0, 2500, 5000, 7500, 10000, 20000}));
    ColorWithRangeInfo info = gradient(kBase, 10);
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    const Colors expected = {{0, 0, 0},     {0, 0, 0},     {128, 0, 0},  {255, 0, 0},
                             {255, 128, 0}, {255, 255, 0}, {255, 255, 0}};
    EXPECT_EQ(picture.draw(), expected);
}

TEST(ColorModes, ColourTheHeightInTheWorldOfATurnedCloudSeenFromAside)
{
    std::vector<TestPoint> points(15);
    for (int i = 0; i < 15; ++i)
        points[static_cast<size_t>(i)] = placed(TestPoint(), 2111 * i, 30000 - 2222 * i, 7 * i % 15 * 2000);
    PointPicture picture(PointPicture::AsGiven{points});
    for (const bool perspective : {false, true}) {
        const PointView view = PointView::oblique(perspective);
        picture.look(view);
        const double lowest = view.world(TestPoint()).z() - 20;
        constexpr double kSpan = 80;
        ColorWithRangeInfo info = gradient(static_cast<float>(lowest), kSpan);
        ShaderHelper::elevationColorShader(picture.cloud, info, false);
        picture.draw();
        int seen = 0;
        for (const TestPoint& point : points) {
            const std::optional<osg::Vec2i> pixel = view.pixelOf(point);
            if (!pixel) continue;
            const double share = (view.world(point).z() - lowest) / kSpan;
            EXPECT_NEAR(picture.at(pixel->x(), pixel->y()).r(), std::min(510 * share, 255.0), 1);
            EXPECT_NEAR(picture.at(pixel->x(), pixel->y()).g(), std::max(510 * share - 255, 0.0), 1);
            ++seen;
        }
        EXPECT_GT(seen, 7);
    }
}

TEST(ColorModes, RepeatACyclicGradientAboveAndBelowItsRange)
{
    PointPicture picture(pointsAtHeights({-17500, -7500, 2500, 12500, 22500, -5000, 15000}));
    ColorWithRangeInfo info = gradient(kBase, 10);
    info.isCircle = true;
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    const osg::Vec3ub quarter(128, 0, 0);
    const osg::Vec3ub half(255, 0, 0);
    EXPECT_EQ(picture.draw(), (Colors{quarter, quarter, quarter, quarter, quarter, half, half}));
}

TEST(ColorModes, ShowWhiteWhereACyclicGradientHasNoSegment)
{
    PointPicture picture(pointsAtHeights({1000, 6000}));
    ColorWithRangeInfo info = gradient(kBase, 10);
    info.isCircle = true;
    info.entries.erase(info.entries.begin()); // now from the middle on
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    EXPECT_EQ(picture.draw(), (Colors{{255, 255, 255}, {255, 51, 0}}));

    info.isCircle = false;
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    EXPECT_EQ(picture.draw()[0], osg::Vec3ub(255, 255, 0)) << "the last colour, where no segment holds";
}

TEST(ColorModes, SkipSegmentsOfAGradientWithoutWidth)
{
    PointPicture picture(pointsAtHeights({0, 5000, 9999, 30000}));
    ColorWithRangeInfo info = gradient(kBase, 10);
    info.entries.insert(info.entries.begin(), info.entries.front());
    info.entries[0].color = osg::Vec4f(0, 0, 1, 1);
    info.entries[1].color = osg::Vec4f(0, 1, 0, 1);
    info.entries.back().position = 0.999995f; // the value pinned inside the range does not reach the last
    info.entries.push_back(info.entries.back());
    info.entries.back().color = osg::Vec4f(0, 1, 1, 1);
    info.entries.back().position = 1;
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    EXPECT_EQ(picture.draw(), (Colors{{0, 255, 0}, {255, 0, 0}, {255, 255, 0}, {255, 255, 0}}));
}

TEST(ColorModes, AreOpaqueWhateverTheAlphaOfTheirColours)
{
    PointPicture picture(pointsAtHeights({7500}));
    blend(picture);
    ColorWithRangeInfo info = gradient(kBase, 10); // to an end without alpha
    for (const bool circle : {false, true}) {
        info.isCircle = circle;
        ShaderHelper::elevationColorShader(picture.cloud, info, false);
        EXPECT_EQ(picture.draw(), (Colors{{255, 128, 0}})) << circle;
    }
    info.intensityMin = 0;
    info.intensityMax = 65535;
    ShaderHelper::elevationColorShader(picture.cloud, info, true);
    EXPECT_EQ(picture.draw(), (Colors{kBlack}));
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    info.range.set(-0.75f, 1);
    ShaderHelper::intensityShader(picture.cloud, info);
    EXPECT_EQ(picture.draw(), (Colors{{255, 128, 0}}));
    ColorScale scale;
    scale.addColorScaleElement(-1, osg::Vec4f(1, 1, 1, 0));
    scale.addColorScaleElement(1, osg::Vec4f(0, 0, 0, 0));
    ShaderHelper::gpsTimeColorShader(picture.cloud, scale);
    EXPECT_EQ(picture.draw(), (Colors{{128, 128, 128}}));
}

TEST(ColorModes, BlendTheIntensityIntoTheHeight)
{
    std::vector<TestPoint> points = pointsWith(&TestPoint::intensity, {500, 1000, 1500, 60000});
    for (TestPoint& point : points)
        point.z = 2500;
    PointPicture picture(points);
    ColorWithRangeInfo info = gradient(kBase, 10);
    info.intensityMin = 1000;
    info.intensityMax = 2000;
    ShaderHelper::elevationColorShader(picture.cloud, info, true);
    EXPECT_EQ(picture.draw(), (Colors{{0, 0, 0}, {0, 0, 0}, {64, 0, 0}, {128, 0, 0}}));
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    EXPECT_EQ(picture.draw()[0], osg::Vec3ub(128, 0, 0));
}

TEST(ColorModes, LookUpAttributesInAColourTable)
{
    struct Case
    {
        const char* name;
        void (*apply)(osg::Node*, std::vector<osg::Vec4f>&);
        std::vector<TestPoint> points;
        std::vector<size_t> indices;
    };
    const std::vector<Case> cases = {
        {"class",
         ShaderHelper::classificationColorShader,
         pointsWith(&TestPoint::classCode, {0, 2, 128, 255}),
         {0, 2, 128, 255}},
        {"source",
         ShaderHelper::pointSourceIDColorShader,
         pointsWith(&TestPoint::sourceId, {0, 7, 255, 256, 65535}),
         {0, 7, 255, 255, 255}},
        {"flight line",
         ShaderHelper::flightLineColorShader,
         pointsWith(&TestPoint::sourceId, {0, 7, 255, 256, 1001, 65535}),
         {0, 7, 255, 0, 233, 255}},
        {"return",
         ShaderHelper::returnNumberColorShader,
         pointsWith(&TestPoint::returnNumber, {0, 1, 15}),
         {0, 1, 15}},
        {"number of returns",
         ShaderHelper::numbersReturnColorShader,
         pointsWith(&TestPoint::numberOfReturns, {0, 1, 15}),
         {0, 1, 15}},
    };
    Colors tabled(300);
    for (int i = 0; i < 300; ++i)
        tabled[static_cast<size_t>(i)] =
            osg::Vec3ub(static_cast<uint8_t>(i), 200, static_cast<uint8_t>(255 - i % 256));
    std::vector<osg::Vec4f> colors = table(tabled);
    for (const Case& mode : cases) {
        Colors expected;
        for (const size_t index : mode.indices)
            expected.push_back(tabled[index]);
        PointPicture picture(mode.points);
        mode.apply(picture.cloud, colors);
        EXPECT_EQ(picture.draw(), expected) << mode.name;
    }
}

TEST(ColorModes, HidePointsWhoseTableColourHasNoAlphaAndShowBlackBeyondAShortTable)
{
    std::vector<TestPoint> points(4);
    for (size_t i = 0; i < points.size(); ++i) {
        points[i].classCode = static_cast<uint8_t>(i);
        points[i].sourceId = static_cast<uint16_t>(i);
        points[i].returnNumber = points[i].numberOfReturns = static_cast<uint8_t>(i);
    }
    PointPicture picture(points);
    // Only an alpha of exactly 0 hides.
    std::vector<osg::Vec4f> colors = {osg::Vec4f(1, 0, 0, 1), osg::Vec4f(0, 1, 0, 0),
                                      osg::Vec4f(0, 0, 1, 0.01f)};
    const Colors expected = {{255, 0, 0}, PointPicture::kBackground, {0, 0, 255}, kBlack};
    using SetMode = void (*)(osg::Node*, std::vector<osg::Vec4f>&);
    for (const SetMode mode : std::initializer_list<SetMode>{
             ShaderHelper::classificationColorShader, ShaderHelper::pointSourceIDColorShader,
             ShaderHelper::returnNumberColorShader, ShaderHelper::numbersReturnColorShader,
             ShaderHelper::flightLineColorShader}) {
        mode(picture.cloud, colors);
        EXPECT_EQ(picture.draw(), expected);
    }
}

TEST(ColorModes, ColourGpsTimeBetweenTheStepsOfAScale)
{
    PointPicture picture(pointsWith(&TestPoint::gpsTime, {99, 100, 150, 200, 250, 300, 301}));
    ColorScale scale;
    scale.addColorScaleElement(300, osg::Vec4f(0, 1, 1, 1));
    scale.addColorScaleElement(100, osg::Vec4f(1, 0, 0, 1));
    scale.addColorScaleElement(200, osg::Vec4f(0, 0, 1, 0));
    scale.addColorScaleElement(200, osg::Vec4f(0, 0, 1, 0));
    ShaderHelper::gpsTimeColorShader(picture.cloud, scale);
    const Colors expected = {kBlack,        {255, 0, 0},   {128, 0, 128}, {0, 0, 255},
                             {0, 128, 255}, {0, 255, 255}, kBlack};
    EXPECT_EQ(picture.draw(), expected);
}

TEST(ColorModes, ColourGpsTimeBySteepScalesOfManySteps)
{
    PointPicture picture(pointsWith(&TestPoint::gpsTime, {0, 253.75, 255, 256}));
    ColorScale scale;
    for (int i = 0; i < 257; ++i) // the last is beyond the shader's table
        scale.addColorScaleElement(i, osg::Vec4f(static_cast<float>(i % 256) / 255.0f, 0, 0, 1));
    ShaderHelper::gpsTimeColorShader(picture.cloud, scale);
    EXPECT_EQ(picture.draw(), (Colors{{0, 0, 0}, {254, 0, 0}, {255, 0, 0}, kBlack}));

    scale.clear();
    for (const osg::Vec4f& color : {osg::Vec4f(1, 0, 0, 1), osg::Vec4f(0, 1, 0, 1), osg::Vec4f(0, 0, 1, 1)})
        scale.addColorScaleElement(0, color);
    const osg::Vec4f lowest = scale.getColorScaleElements(2).color;
    scale.addColorScaleElement(1000, osg::Vec4f(1, 1, 1, 1));
    ShaderHelper::gpsTimeColorShader(picture.cloud, scale);
    EXPECT_EQ(picture.draw()[0],
              osg::Vec3ub(static_cast<uint8_t>(255 * lowest.r()), static_cast<uint8_t>(255 * lowest.g()),
                          static_cast<uint8_t>(255 * lowest.b())))
        << "equal steps are no segment";
}

/// A day of absolute GPS time still shows its progress: times and steps are rounded to the same floats.
TEST(ColorModes, ShowTheProgressOfAFlightInAbsoluteGpsTime)
{
    constexpr double kTakeOff = 312345678.0;
    PointPicture picture(pointsWith(&TestPoint::gpsTime,
                                    {kTakeOff, kTakeOff + 3600, kTakeOff + 2 * 3600, kTakeOff + 3 * 3600}));
    ColorScale scale;
    scale.addColorScaleElement(kTakeOff, osg::Vec4f(0, 0, 0, 1));
    scale.addColorScaleElement(kTakeOff + 3 * 3600, osg::Vec4f(1, 1, 1, 1));
    ShaderHelper::gpsTimeColorShader(picture.cloud, scale);
    const Colors colors = picture.draw();
    EXPECT_EQ(colors.front(), kBlack);
    EXPECT_EQ(colors.back(), osg::Vec3ub(255, 255, 255));
    EXPECT_NEAR(colors[1].r(), 85, 1);
    EXPECT_NEAR(colors[2].r(), 170, 1);
}

TEST(ColorModes, KeepTheLastProgramWhenAGradientOrScaleIsTooShort)
{
    PointPicture picture(pointsAtHeights({0}));
    ShaderHelper::singleColorShader(picture.cloud, osg::Vec4f(0, 1, 0, 1));
    ColorWithRangeInfo info = gradient(0, 1);
    info.entries.resize(1);
    ColorScale scale;
    scale.addColorScaleElement(0, osg::Vec4f(1, 0, 0, 1));
    ShaderHelper::elevationColorShader(picture.cloud, info, false);
    ShaderHelper::elevationColorShaderWithLight(picture.cloud, info);
    ShaderHelper::intensityShader(picture.cloud, info);
    ShaderHelper::gpsTimeColorShader(picture.cloud, scale);
    EXPECT_EQ(picture.draw(), (Colors{{0, 255, 0}}));
}

TEST(SelectionColour, IsBroughtToAModeThatWasChosenBefore)
{
    const osg::Vec4f standard = ShaderHelper::getSelectColor();
    EXPECT_EQ(standard, osg::Vec4f(1.0f, 0.0f, 0.615f, 1.0f));
    osg::ref_ptr<osg::Group> node = new osg::Group;
    ShaderHelper::applySelectColor(nullptr);
    ShaderHelper::applySelectColor(node);
    EXPECT_EQ(node->getStateSet(), nullptr) << "nothing is created";

    ShaderHelper::originColorShader(node);
    ShaderHelper::setSelectColor(osg::Vec4f(0, 1, 0, 1));
    osg::Vec4f color;
    node->getStateSet()->getUniform("selectColor")->get(color);
    EXPECT_EQ(color, standard);
    ShaderHelper::applySelectColor(node);
    node->getStateSet()->getUniform("selectColor")->get(color);
    EXPECT_EQ(color, osg::Vec4f(0, 1, 0, 1));
    ShaderHelper::setSelectColor(standard);
}
