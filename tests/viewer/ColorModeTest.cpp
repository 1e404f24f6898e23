#include "viewer/display/ColorMode.h"

#include "viewer/display/Palettes.h"

#include <gtest/gtest.h>
#include <osg/Group>
#include <osg/StateSet>
#include <osg/Uniform>

#include <set>

namespace {

std::vector<std::string> texts(const Legend& legend)
{
    std::vector<std::string> result;
    for (const Legend::Entry& entry : legend.entries)
        result.push_back(entry.text);
    return result;
}

/// The colour that the program of a mode has for an index of its table.
osg::Vec4f tableColor(const Coloring& coloring, ColorMode mode, unsigned index)
{
    const osg::ref_ptr<osg::Group> cloud = new osg::Group;
    coloring.apply(cloud, mode);
    osg::Vec4f color;
    EXPECT_TRUE(cloud->getOrCreateStateSet()->getUniform("colorArr")->getElement(index, color));
    return color;
}

using Texts = std::vector<std::string>;

} // namespace

TEST(Legend, NamesTheClassesThatOccurInTheirColours)
{
    VelBrx::StoreStatistics statistics;
    for (const size_t code : {0, 2, 7, 14, 18, 23, 64})
        statistics.pointsByClass[code] = 1;
    const Coloring coloring(statistics, osg::Vec4f());
    const Legend legend = coloring.legend(ColorMode::CLASSIFICATION);
    EXPECT_EQ(texts(legend), (Texts{"0 created, never classified", "2 ground", "7 low point (noise)",
                                    "14 wire - conductor (phase)", "18 high noise", "23", "64"}));
    EXPECT_EQ(legend.entries[1].color, tableColor(coloring, ColorMode::CLASSIFICATION, 2));
    EXPECT_EQ(legend.entries[6].color, tableColor(coloring, ColorMode::CLASSIFICATION, 64));
    EXPECT_EQ(tableColor(coloring, ColorMode::CLASSIFICATION, 200).a(), 1) << "also of classes yet to come";
}

TEST(Legend, NumbersARampFromTheSecondToTheNinetyEighthPercentile)
{
    VelBrx::StoreStatistics statistics;
    statistics.elevation = {-9999, 8000, 100.25, 102.25};
    statistics.intensity = {0, 65535, 10, 410};
    const Coloring coloring(statistics, osg::Vec4f());
    EXPECT_EQ(coloring.legend(ColorMode::ELEVATION).numbers,
              (Texts{"100.25", "100.75", "101.25", "101.75", "102.25"}));
    EXPECT_EQ(coloring.legend(ColorMode::INTENSITY).numbers, (Texts{"10", "110", "210", "310", "410"}));

    const osg::ref_ptr<osg::Group> cloud = new osg::Group;
    coloring.apply(cloud, ColorMode::ELEVATION);
    osg::Vec2f range;
    ASSERT_TRUE(cloud->getOrCreateStateSet()->getUniform("elevationEntry")->get(range));
    EXPECT_EQ(range, osg::Vec2f(100.25f, 2));
    coloring.apply(cloud, ColorMode::INTENSITY);
    ASSERT_TRUE(cloud->getStateSet()->getUniform("elevationEntry")->get(range));
    EXPECT_EQ(range, osg::Vec2f(10 / 65535.0f, 400 / 65535.0f));
}

TEST(Legend, WritesNumbersOfAnySizeInAFewLetters)
{
    VelBrx::StoreStatistics statistics;
    statistics.gpsTime = {-1e300, 1e300, -1e250, 1e250};
    statistics.elevation = {0, 1, 0.001, 0.002};
    const Coloring coloring(statistics, osg::Vec4f());
    for (const std::string& number : coloring.legend(ColorMode::GPS_TIME).numbers)
        EXPECT_LT(number.size(), 12u) << number;
    EXPECT_EQ(coloring.legend(ColorMode::ELEVATION).numbers,
              (Texts{"0.00100", "0.00125", "0.00150", "0.00175", "0.00200"}));
}

/// One wrong time must not take all colours from the others.
TEST(Legend, NumbersMostTimesAndKeepsTheOthersInTheColoursOfTheEnds)
{
    VelBrx::StoreStatistics statistics;
    statistics.gpsTime = {0, 4e8, 300000000, 300004000};
    const Coloring coloring(statistics, osg::Vec4f());
    EXPECT_EQ(coloring.legend(ColorMode::GPS_TIME).numbers,
              (Texts{"300000000", "300001000", "300002000", "300003000", "300004000"}));

    const osg::ref_ptr<osg::Group> cloud = new osg::Group;
    coloring.apply(cloud, ColorMode::GPS_TIME);
    osg::Uniform& steps = *cloud->getOrCreateStateSet()->getUniform("stepArr");
    const auto step = [&steps](unsigned i) {
        float value = 0;
        steps.getElement(i, value);
        return value;
    };
    const auto color = [&](unsigned i) { return tableColor(coloring, ColorMode::GPS_TIME, i); };
    EXPECT_LT(step(0), 0);
    EXPECT_EQ(step(1), 300000000);
    EXPECT_EQ(step(8), 300004000);
    EXPECT_GT(step(9), 4e8f);
    EXPECT_EQ(color(0), color(1));
    EXPECT_EQ(color(8), color(9));
    EXPECT_NE(color(1), color(2));
}

TEST(Legend, TellsWhichSourcesShareAColour)
{
    VelBrx::StoreStatistics statistics;
    statistics.pointSources = {3, 7, 259, 300};
    const Coloring coloring(statistics, osg::Vec4f());
    EXPECT_EQ(texts(coloring.legend(ColorMode::POINT_SOURCE)), (Texts{"3", "7", "255 and above: 2 ids"}));
    const Legend lines = coloring.legend(ColorMode::FLIGHT_LINE);
    EXPECT_EQ(texts(lines), (Texts{"3, 259", "7", "300"}));
    EXPECT_EQ(lines.entries[2].color, tableColor(coloring, ColorMode::FLIGHT_LINE, 300 % 256));

    for (unsigned id = 0; id < 65536; ++id)
        statistics.pointSources.push_back(static_cast<uint16_t>(id));
    statistics.pointSources.erase(statistics.pointSources.begin(), statistics.pointSources.begin() + 4);
    for (const std::string& text : texts(Coloring(statistics, osg::Vec4f()).legend(ColorMode::FLIGHT_LINE)))
        EXPECT_LT(text.size(), 40u);
    statistics.pointSources = {7329};
    EXPECT_EQ(texts(Coloring(statistics, osg::Vec4f()).legend(ColorMode::POINT_SOURCE)), (Texts{"7329"}));
}

TEST(Legend, SaysWhyAModeShowsNothing)
{
    const auto remark = [](ColorMode mode, const VelBrx::StoreStatistics& statistics) {
        return Coloring(statistics, osg::Vec4f()).legend(mode).remark;
    };
    VelBrx::StoreStatistics nothing;
    nothing.elevation = {12.5, 12.5, 12.5, 12.5};
    nothing.pointSources = {300, 301};
    EXPECT_EQ(remark(ColorMode::GPS_TIME, nothing), "every point has 0");
    EXPECT_EQ(remark(ColorMode::INTENSITY, nothing), "every point has 0");
    EXPECT_EQ(remark(ColorMode::ELEVATION, nothing), "every point has 12.500");
    EXPECT_EQ(remark(ColorMode::RGB, nothing), "no point has one");
    EXPECT_EQ(remark(ColorMode::POINT_SOURCE, nothing), "ids above 254 share a colour: see flightline");

    VelBrx::StoreStatistics something;
    something.elevation = something.intensity = something.gpsTime = {0, 2, 1, 1};
    something.maxColor = 1;
    something.pointSources = {3, 300};
    for (const ColorModeChoice& choice : colorModeChoices())
        EXPECT_EQ(remark(choice.mode, something), "") << choice.name;
}

TEST(Legend, GivesAValueTheSameColourInEveryStore)
{
    VelBrx::StoreStatistics few;
    few.pointsByReturn[1] = few.pointsByNumberOfReturns[3] = few.pointsByClass[6] = 1;
    few.pointSources = {20, 700, 40000};
    VelBrx::StoreStatistics many;
    for (unsigned value = 0; value < 16; ++value)
        many.pointsByReturn[value] = many.pointsByNumberOfReturns[value] = many.pointsByClass[value] = 1;
    for (const uint16_t id : {7, 20, 700, 40000, 40001})
        many.pointSources.push_back(id);
    const auto same = [&](ColorMode mode, unsigned index) {
        const osg::Vec4f color = tableColor(Coloring(few, osg::Vec4f()), mode, index);
        EXPECT_EQ(color, tableColor(Coloring(many, osg::Vec4f()), mode, index)) << index;
        return color;
    };
    EXPECT_EQ(same(ColorMode::RETURN_NUMBER, 1), distinctColor(0));
    same(ColorMode::NUMBER_OF_RETURNS, 3);
    same(ColorMode::CLASSIFICATION, 6);
    same(ColorMode::POINT_SOURCE, 20);
    same(ColorMode::POINT_SOURCE, 255);
    same(ColorMode::FLIGHT_LINE, 700 % 256);
    same(ColorMode::FLIGHT_LINE, 40000 % 256);
}

TEST(Palettes, GiveEachOfManyThingsAColourOfItsOwn)
{
    std::set<osg::Vec4f> colors;
    for (size_t i = 0; i < 256; ++i) {
        const osg::Vec4f color = distinctColor(i);
        colors.insert(color);
        EXPECT_EQ(color.a(), 1);
        EXPECT_GT(color.r() + color.g() + color.b(), 0.7f) << i << ": seen on a dark background";
        for (size_t near = i > 8 ? i - 8 : 0; near < i; ++near)
            EXPECT_GT((color - distinctColor(near)).length(), 0.15f) << near << " and " << i;
    }
    EXPECT_EQ(colors.size(), 256u);
}
