#include "viewer/measure/Measurements.h"

#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <map>

namespace {

const osg::Vec3d kFar(3512345.678, 5934567.891, 412.25); ///< where a float has steps of a quarter

std::map<std::string, double> figures(MeasureKind kind, std::vector<osg::Vec3d> places,
                                      const Units& units = {})
{
    for (osg::Vec3d& place : places)
        place += kFar;
    std::map<std::string, double> values;
    for (const Figure& figure : figuresOf({kind, places, std::nullopt}, units))
        values[figure.name] = figure.value;
    return values;
}

Units unitsOf(const std::string& code)
{
    std::optional<CoordinateSystem> system;
    EXPECT_TRUE(CoordinateSystem::find(code, system));
    return Units(system);
}

} // namespace

TEST(Measurement, IsExactFarFromTheOrigin)
{
    constexpr double kExact = 1e-8;
    auto line = figures(MeasureKind::DISTANCE, {{0, 0, 0}, {-3, -4, 12}});
    EXPECT_NEAR(line["length"], 13, kExact);
    EXPECT_NEAR(line["level"], 5, kExact);
    EXPECT_NEAR(line["height"], 12, kExact);
    EXPECT_NEAR(line["direction"], 180 + 36.869897645844, 1e-6) << "south-west of the first point";
    line = figures(MeasureKind::DISTANCE, {{0, 0, 0}, {3, 4, 0}, {3, 4, 5}, {0, 0, 5}});
    EXPECT_NEAR(line["length"], 15, kExact) << "along all of them";
    EXPECT_NEAR(line["level"], 10, kExact);
    EXPECT_NEAR(line["height"], 5, kExact);
    EXPECT_EQ(line.count("direction"), 0u);

    // An L of 10 by 10 without a quarter, on a slope, once around each way.
    std::vector<osg::Vec3d> outline = {{0, 0, 1}, {10, 0, 9}, {10, 5, 2}, {5, 5, 0}, {5, 10, 7}, {0, 10, 3}};
    for (int way = 0; way < 2; ++way) {
        auto area = figures(MeasureKind::AREA, outline);
        EXPECT_NEAR(area["area"], 75, 1e-6);
        EXPECT_NEAR(area["perimeter"], 40, kExact);
        std::reverse(outline.begin(), outline.end());
    }
    EXPECT_EQ(figures(MeasureKind::AREA, {{0, 0, 0}, {1, 1, 0}, {1, 0, 0}, {0, 1, 0}}).count("area"), 0u)
        << "no area of a bow tie";

    auto angle = figures(MeasureKind::ANGLE, {{1, 0, 0}, {0, 0, 0}, {1, 0, 1}});
    EXPECT_NEAR(angle["angle"], 45, 1e-6);
    EXPECT_NEAR(angle["horizontal"], 0, 1e-6);
    EXPECT_NEAR(figures(MeasureKind::ANGLE, {{0, 7, 3}, {0, 0, 0}, {-2, 0, 3}})["horizontal"], 90, 1e-6);
}

TEST(Measurement, IsInTheUnitsOfTheCoordinateSystem)
{
    // A slope of 3 feet level and 4 metres up is no 5 of anything.
    const Units mixed = unitsOf("EPSG:2992+5703");
    EXPECT_EQ(mixed.level + " " + mixed.height, "ft m");
    auto slope = figures(MeasureKind::DISTANCE, {{0, 0, 0}, {3, 0, 4 * 0.3048}}, mixed);
    EXPECT_NEAR(slope["length"], 5, 1e-8);
    EXPECT_NEAR(slope["height"], 4 * 0.3048, 1e-8);

    const Units degrees = unitsOf("EPSG:4326");
    auto step = figures(MeasureKind::DISTANCE, {{0, 0, 0}, {0.25, -0.5, 2}}, degrees);
    EXPECT_EQ(step.count("length") + step.count("level"), 0u) << "degrees are no lengths";
    EXPECT_NEAR(step["east"], 0.25, 1e-8);
    EXPECT_NEAR(step["height"], 2, 1e-8);
    EXPECT_TRUE(figures(MeasureKind::AREA, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, degrees).empty());

    Measurements list;
    list.add({MeasureKind::DISTANCE, {{0, 0, 0}, {3, 0, 4}}, std::nullopt}, unitsOf("EPSG:25832"));
    list.add({MeasureKind::HEIGHT, {{1, 2, 30.5}}, 10.25}, mixed);
    list.add({MeasureKind::HEIGHT, {{1, 2, 3}}, std::nullopt}, Units());
    EXPECT_EQ(list.text(), "1 distance: length 5.000 m, level 3.000 m, height 4.000 m, direction 90.0000°\n"
                           "2 height: height 20.250 m, ground 10.250 m\n"
                           "3 height: no ground near the point\n");

    const TempFolder folder;
    const std::string file = folder.file("measured.csv");
    ASSERT_TRUE(list.remove(1));
    EXPECT_FALSE(list.remove(1));
    ASSERT_TRUE(list.writeCsv(file, false));
    const std::vector<uint8_t> bytes = readFile(file);
    EXPECT_EQ(
        std::string(bytes.begin(), bytes.end()),
        "number,kind,length,level,height,direction,area,perimeter,angle,horizontal,ground,x,y,z,east,north,"
        "unit,height unit,coordinate system,points,remark\r\n"
        "2,height,,,20.250,,,,,,10.250,,,,,,ft,m,"
        "NAD83 / Oregon GIC Lambert (ft) + NAVD88 height (EPSG:2992+5703),1 2 30.5,\r\n"
        "3,height,,,,,,,,,,,,,,,,,,1 2 3,no ground near the point\r\n");
    list.clear();
    EXPECT_NE(list.writeCsv(file, false).message().find(file + ": exists"), std::string::npos);
    EXPECT_EQ(readFile(file), bytes);
    EXPECT_TRUE(list.writeCsv(file, true));
    EXPECT_LT(readFile(file).size(), bytes.size());
    EXPECT_EQ(list.writeCsv(folder.file("none/measured.csv"), true).message().find(folder.file("none")), 0u);
}
