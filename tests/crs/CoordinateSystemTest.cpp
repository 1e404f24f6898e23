#include "crs/CoordinateSystem.h"

#include <VelBrx/LasInfo.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

using VelBrx::ProjectionRecords;

namespace {

constexpr double kFoot = 0.3048;
constexpr double kSurveyFoot = 1200.0 / 3937;

std::string utm(const std::string& rest, const std::string& inside = "")
{
    return "PROJCS[\"my UTM\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS "
           "84\",6378137,298.257223563]" +
           inside +
           "],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_"
           "Mercator\"],"
           "PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",9],PARAMETER[\"scale_factor\","
           "0.9996],PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0]" +
           rest + "]";
}

ProjectionRecords wkt(const std::string& text)
{
    ProjectionRecords records;
    records.wkt = text;
    return records;
}

/// Each key is its id, the record of its value, and the value or the place of its number.
ProjectionRecords geoKeys(const std::vector<std::array<uint16_t, 3>>& keys,
                          const std::vector<double>& numbers = {})
{
    ProjectionRecords records;
    const auto add = [&](uint16_t word) {
        records.geoKeys.push_back(static_cast<uint8_t>(word));
        records.geoKeys.push_back(static_cast<uint8_t>(word >> 8));
    };
    for (const uint16_t word : {1, 1, 0, static_cast<int>(keys.size())})
        add(static_cast<uint16_t>(word));
    for (const auto& [id, place, value] : keys)
        for (const uint16_t word : {id, place, uint16_t{1}, value})
            add(word);
    records.geoDoubles.resize(8 * numbers.size());
    if (!numbers.empty()) std::memcpy(records.geoDoubles.data(), numbers.data(), records.geoDoubles.size());
    return records;
}

CoordinateSystem systemOf(const ProjectionRecords& records)
{
    std::optional<CoordinateSystem> system;
    const VelBrx::Status read = CoordinateSystem::read(records, system);
    if (!system) throw std::runtime_error("no system: " + read.message());
    return *system;
}

CoordinateSystem systemOf(const std::string& code)
{
    std::optional<CoordinateSystem> system;
    const VelBrx::Status found = CoordinateSystem::find(code, system);
    if (!system) throw std::runtime_error(found.message());
    return *system;
}

} // namespace

TEST(CoordinateSystem, IsKnownByWktKeysAndCodeAlike)
{
    const CoordinateSystem named = systemOf("EPSG:32632");
    EXPECT_EQ(named.description(), "WGS 84 / UTM zone 32N (EPSG:32632), metre");
    EXPECT_EQ(named.horizontalUnit().symbol, "m");
    EXPECT_TRUE(systemOf(wkt(named.wkt())).isSameAs(named)) << named.wkt();

    const CoordinateSystem plain = systemOf(wkt(utm(",UNIT[\"metre\",1]")));
    EXPECT_EQ(plain.code(), "EPSG:32632") << "found by what it is";
    const CoordinateSystem bound = systemOf(wkt(utm(",UNIT[\"metre\",1]", ",TOWGS84[0,0,0,0,0,0,0]")));
    const CoordinateSystem keys = systemOf(geoKeys({{1024, 0, 1}, {3072, 0, 32632}}));
    // Transverse Mercator with its five numbers on WGS 84.
    const CoordinateSystem userDefined = systemOf(geoKeys({{1024, 0, 1},
                                                           {2048, 0, 4326},
                                                           {3072, 0, 32767},
                                                           {3075, 0, 1},
                                                           {3076, 0, 9001},
                                                           {3080, 34736, 0},
                                                           {3082, 34736, 1},
                                                           {3092, 34736, 2}},
                                                          {9, 500000.00008, 0.9996}));
    for (const CoordinateSystem& same : {plain, bound, keys, userDefined})
        EXPECT_TRUE(named.isSameAs(same) && same.isSameAs(named)) << same.description();

    for (const char* other : {"EPSG:32633", "EPSG:25832", "EPSG:4326", "EPSG:32632+5773"})
        EXPECT_EQ(named.isSameAs(systemOf(other)), std::string(other) == "EPSG:32632+5773") << other;
    ProjectionRecords moved = geoKeys({{2048, 0, 4326},
                                       {3072, 0, 32767},
                                       {3075, 0, 1},
                                       {3080, 34736, 0},
                                       {3082, 34736, 1},
                                       {3092, 34736, 2}},
                                      {9, 500000.001, 0.9996});
    EXPECT_EQ(differenceOfSystems(wkt(named.wkt()), moved).find("unknown"), 0u) << "a millimetre";
}

TEST(CoordinateSystem, TellsUnitsOfPlaceAndHeight)
{
    const CoordinateSystem oregon = systemOf("EPSG:2992+6360");
    EXPECT_DOUBLE_EQ(oregon.horizontalUnit().size, kFoot);
    EXPECT_EQ(oregon.horizontalUnit().symbol, "ft");
    EXPECT_DOUBLE_EQ(oregon.verticalUnit()->size, kSurveyFoot);
    EXPECT_EQ(oregon.verticalUnit()->symbol, "US ft");
    EXPECT_FALSE(oregon.isSameAs(systemOf("EPSG:2992+8228"))) << "heights in another foot";
    EXPECT_TRUE(oregon.isSameAs(systemOf("EPSG:2992"))) << "which says nothing of heights";

    // A code of metres whose file is in survey feet, as another key says.
    const CoordinateSystem feet =
        systemOf(geoKeys({{1024, 0, 1}, {3072, 0, 26995}, {3076, 0, 9003}, {4099, 0, 9001}}));
    EXPECT_EQ(feet.code(), "EPSG:2255");
    EXPECT_NEAR(feet.horizontalUnit().size, kSurveyFoot, 1e-12);
    EXPECT_DOUBLE_EQ(feet.verticalUnit()->size, 1.0);
    EXPECT_FALSE(feet.isSameAs(systemOf("EPSG:26995")));
    EXPECT_FALSE(
        feet.isSameAs(systemOf(geoKeys({{1024, 0, 1}, {3072, 0, 26995}, {3076, 0, 9003}, {4099, 0, 9003}}))));

    const CoordinateSystem degrees = systemOf(geoKeys({{1024, 0, 2}, {2048, 0, 4326}}));
    EXPECT_TRUE(degrees.isGeographic());
    EXPECT_EQ(degrees.horizontalUnit().name, "degree");
    EXPECT_FALSE(degrees.verticalUnit()) << "a length that nobody stated";
    EXPECT_EQ(systemOf("EPSG:4979").verticalUnit()->symbol, "m");
    EXPECT_EQ(systemOf(wkt("LOCAL_CS[\"site\",UNIT[\"US survey foot\",0.304800609601219]]"))
                  .horizontalUnit()
                  .symbol,
              "US ft");
}

TEST(CoordinateSystem, ThatIsNoneIsToldAndDoesNoHarm)
{
    std::optional<CoordinateSystem> system;
    EXPECT_TRUE(CoordinateSystem::read({}, system));
    EXPECT_FALSE(system);
    for (const char* code : {"EPSG:999999", "EPSG:", "25832", "+proj=utm +zone=32", "EPSG:5773",
                             "/etc/passwd", "EPSG:32632+", "urn:ogc:def:crs:EPSG::4326", "EPSG:7030"})
        EXPECT_FALSE(CoordinateSystem::find(code, system)) << code;
    for (const std::string& text :
         {std::string("EPSG:4326"), std::string("+proj=utm +zone=32"), std::string("PROJCS[\"here\"]"),
          std::string("ELLIPSOID[\"a\",1,0]"), std::string(1 << 20, '['), utm(std::string(70000, ' ')),
          utm(",UNIT[\"none\",0]"), utm(",UNIT[\"nan\",nan]")}) {
        system.reset();
        const VelBrx::Status read = CoordinateSystem::read(wkt(text), system);
        EXPECT_TRUE(!read && !system) << text.substr(0, 60);
    }
    EXPECT_FALSE(CoordinateSystem::read(geoKeys({{3072, 0, 65535}}), system));
    EXPECT_FALSE(CoordinateSystem::read(geoKeys({{3072, 0, 32767}, {3075, 0, 27}, {2048, 0, 4326}}), system));
    EXPECT_TRUE(CoordinateSystem::read(geoKeys({{4099, 0, 9001}}), system)) << "units alone";
    EXPECT_FALSE(system);
    // Words that mean nothing are a system to themselves.
    EXPECT_NE(differenceOfSystems(wkt("PROJCS[\"here\"]"), wkt(systemOf("EPSG:32632").wkt())), "");

    // Damaged texts and keys, on two threads.
    const auto damage = [](unsigned seed) {
        std::mt19937 random(seed);
        const std::string sound = systemOf("EPSG:2992+6360").wkt();
        const ProjectionRecords soundKeys =
            geoKeys({{3072, 0, 32767}, {3075, 0, 8}, {2048, 0, 4326}}, {1, 2});
        for (int round = 0; round < 150; ++round) {
            std::string text = sound.substr(0, random() % 4 ? sound.size() : random() % sound.size());
            ProjectionRecords keys = soundKeys;
            for (int i = 0; i < 5 && !text.empty(); ++i) {
                text[random() % text.size()] = "[],\"0-e."[random() % 8];
                keys.geoKeys[random() % keys.geoKeys.size()] = static_cast<uint8_t>(random());
            }
            std::optional<CoordinateSystem> read;
            for (const ProjectionRecords& records : {wkt(text), keys})
                EXPECT_TRUE(!CoordinateSystem::read(records, read) || !read ||
                            std::isfinite(read->horizontalUnit().size));
        }
    };
    std::thread other(damage, 1);
    damage(2);
    other.join();
}

TEST(CoordinateSystem, OfRealFilesIsWhatTheirWritersMeant)
{
    const char* const folder = std::getenv("VELBRX_TEST_DATA");
    if (!folder) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of real files";
    const auto records = [&](const std::string& name) {
        VelBrx::LasInfo info;
        const VelBrx::Status read = readLasInfo(std::string(folder) + "/" + name, info);
        EXPECT_TRUE(read) << read.message();
        return info.projection;
    };
    const ProjectionRecords autzen = records("survey/PDAL__autzen_trim.las");
    EXPECT_EQ(differenceOfSystems(autzen, records("survey/PDAL__autzen_trim_7.las")), "");
    ProjectionRecords keysOfAutzen = autzen;
    keysOfAutzen.wkt.clear();
    EXPECT_EQ(differenceOfSystems(keysOfAutzen, autzen), "") << "keys and text of one file";
    EXPECT_TRUE(systemOf(autzen).isSameAs(systemOf("EPSG:2994")));
    const struct
    {
        const char* file;
        const char* description;
    } files[] = {
        {"survey/PDAL__mvk-thin.las", "NAD83 / Mississippi West (ftUS) (EPSG:2255), US survey foot"},
        {"survey/silvimetric__autzen_test.copc.laz", "NAD83 / Oregon GIC Lambert (ft) + NAVD88 height (ftUS) "
                                                     "(EPSG:2992+6360), foot, heights in US survey foot"},
        {"survey/pyfor__test.laz", "WGS 84 / UTM zone 17N (EPSG:32617), metre"},
        {"bad/PDAL__spurious.las", "WGS 84 (EPSG:4326), degree"},
        {"bad/ign-pdal-tools__crop_duplicate.laz", "RGF93 / Lambert-93 (EPSG:2154), metre"},
    };
    for (const auto& [file, description] : files)
        EXPECT_EQ(systemOf(records(file)).description(), description) << file;
    EXPECT_EQ(
        differenceOfSystems(autzen, records("survey/pyfor__test.laz")),
        "WGS 84 / UTM zone 17N (EPSG:32617), metre instead of NAD_1983_HARN_Lambert_Conformal_Conic, foot");
}
