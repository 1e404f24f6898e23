#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/Builder.h>
#include <VelBrx/Normals.h>
#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>

namespace fs = std::filesystem;

namespace {

const osg::Vec3ub kBackground(28, 31, 36);

/// Renders files in a folder of the test's own.
class Render : public testing::Test
{
protected:
    std::string path(const std::string& name) const { return _folder.file(name); }

    /// Draws to picture.png, with no display and with the cache in the test's folder.
    ProgramResult render(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {BRXVIEW, "--force", "--render", path("picture.png")});
        return runProgram(arguments, {"DISPLAY", "XDG_CACHE_HOME=" + path("cache")});
    }

    osg::ref_ptr<osg::Image> renderedPicture(const std::vector<std::string>& arguments) const
    {
        const ProgramResult result = render(arguments);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        osg::ref_ptr<osg::Image> picture = osgDB::readRefImageFile(path("picture.png"));
        if (!picture) {
            ADD_FAILURE() << "no picture: " << result.err;
            picture = new osg::Image;
        }
        return picture;
    }

    const TempFolder _folder;
};

double share(const osg::Image& picture)
{
    return static_cast<double>(countOtherThan(picture, kBackground)) / (picture.s() * picture.t());
}

} // namespace

TEST_F(Render, ASurveyFromAboveFillsItsSquareWithItsColour)
{
    ASSERT_TRUE(TestSurvey().write(path("grid.las")));
    const auto picture = renderedPicture({path("grid.las"), "--view", "top", "--size", "200x100"});
    ASSERT_EQ(picture->s(), 200);
    ASSERT_EQ(picture->t(), 100);
    EXPECT_EQ(pixel(*picture, 10, 50), kBackground);
    // 95 of the 100 rows are the square, drawn with points of two pixels a pixel apart.
    EXPECT_NEAR(countOf(*picture, osg::Vec3ub(255, 128, 0)), 97 * 97, 300);
    EXPECT_NEAR(countOtherThan(*picture, kBackground), 97 * 97, 300);
}

TEST_F(Render, ASurveySeenFromAfarDoesNotVanish)
{
    ASSERT_TRUE(TestSurvey().write(path("grid.las")));
    for (const std::string size : {"60x60", "16x16"}) {
        const auto picture = renderedPicture({path("grid.las"), "--view", "top", "--size", size});
        EXPECT_EQ(pixel(*picture, picture->s() / 2, picture->t() / 2), osg::Vec3ub(255, 128, 0)) << size;
    }
}

TEST_F(Render, ASurveyWithoutColoursIsColouredByElevation)
{
    TestSurvey survey;
    survey.red = survey.green = survey.blue = 0;
    survey.slope = 0.3;
    ASSERT_TRUE(survey.write(path("slope.las")));
    const auto picture = renderedPicture({path("slope.las"), "--view", "top", "--size", "100x100"});
    const osg::Vec3ub low = pixel(*picture, 6, 50);
    const osg::Vec3ub high = pixel(*picture, 94, 50);
    EXPECT_GT(low.b(), low.r());
    EXPECT_GT(high.r(), high.b());
}

TEST_F(Render, ModeColourAndPointSizeAreObeyed)
{
    TestSurvey survey;
    survey.side = 5;
    ASSERT_TRUE(survey.write(path("few.las")));
    const std::vector<std::string> common = {path("few.las"), "--view", "top",     "--size", "300x300",
                                             "--mode",        "single", "--color", "#10ff20"};
    for (const int size : {1, 7}) {
        std::vector<std::string> arguments = common;
        arguments.insert(arguments.end(), {"--point-size", std::to_string(size)});
        const auto picture = renderedPicture(arguments);
        EXPECT_EQ(countOf(*picture, osg::Vec3ub(0x10, 0xff, 0x20)), 25 * size * size);
    }
}

TEST_F(Render, EveryModeShowsItsAttributeInItsColour)
{
    // A survey of class 2, first returns of one, without intensities, sources and times.
    const std::map<std::string, osg::Vec3ub> colors = {{"rgb", osg::Vec3ub(255, 128, 0)},
                                                       {"single", osg::Vec3ub(217, 217, 204)},
                                                       {"elevation", osg::Vec3ub(50, 136, 189)},
                                                       {"intensity", osg::Vec3ub(51, 51, 51)},
                                                       {"class", osg::Vec3ub(0xb5, 0x83, 0x4a)},
                                                       {"return", osg::Vec3ub(0x1f, 0x78, 0xb4)},
                                                       {"returns", osg::Vec3ub(0x1f, 0x78, 0xb4)},
                                                       {"source", osg::Vec3ub(0x1f, 0x78, 0xb4)},
                                                       {"flightline", osg::Vec3ub(0x1f, 0x78, 0xb4)}};
    ASSERT_TRUE(TestSurvey().write(path("grid.las")));
    for (const auto& [mode, color] : colors) {
        const auto picture = renderedPicture(
            {path("grid.las"), "--view", "top", "--size", "100x100", "--no-legend", "--mode", mode});
        EXPECT_EQ(pixel(*picture, 50, 50), color) << mode;
        EXPECT_EQ(countOf(*picture, color), countOtherThan(*picture, kBackground)) << mode;
    }
    const auto picture = renderedPicture(
        {path("grid.las"), "--view", "top", "--size", "100x100", "--no-legend", "--mode", "time"});
    EXPECT_NE(pixel(*picture, 50, 50), osg::Vec3ub(0, 0, 0)) << "the only time lies outside the colour scale";
}

TEST_F(Render, TheLegendStandsInTheUpperLeftCornerInTheColoursOfThePoints)
{
    const osg::Vec3ub ground(0xb5, 0x83, 0x4a);
    ASSERT_TRUE(TestSurvey().write(path("grid.las")));
    const std::vector<std::string> arguments = {path("grid.las"), "--view", "top",  "--size",
                                                "600x200",        "--mode", "class"};
    const auto with = renderedPicture(arguments);
    std::vector<std::string> plain = arguments;
    plain.push_back("--no-legend");
    const auto without = renderedPicture(plain);
    int swatch = 0;
    for (int y = 0; y < with->t(); ++y) {
        for (int x = 0; x < with->s(); ++x) {
            const bool corner = x < 200 && y > 100;
            if (corner)
                swatch += pixel(*with, x, y) == ground;
            else
                EXPECT_EQ(pixel(*with, x, y), pixel(*without, x, y)) << x << ", " << y;
        }
    }
    EXPECT_GT(swatch, 100);
}

TEST_F(Render, EyeDomeLightingLeavesAViewFromAboveItsBrightness)
{
    TestSurvey survey;
    survey.step = 3;
    ASSERT_TRUE(survey.write(path("step.las")));
    std::vector<std::string> arguments = {path("step.las"), "--view", "top", "--size", "200x200", "--edl"};
    const auto share = [&] {
        double sum = 0;
        const auto picture = renderedPicture(arguments);
        for (int y = 0; y < 200; ++y)
            for (int x = 0; x < 200; ++x)
                if (pixel(*picture, x, y) != kBackground) sum += pixel(*picture, x, y).r();
        return sum / 255 / countOtherThan(*picture, kBackground);
    };
    const double usual = share();
    EXPECT_GT(usual, 0.9);
    EXPECT_LT(usual, 0.999) << "the step shows";
    arguments.insert(arguments.end(), {"--edl-strength", "5"});
    const double strong = share();
    EXPECT_LT(strong, usual - 0.002);
    arguments.insert(arguments.end(), {"--edl-radius", "8"});
    EXPECT_LT(share(), strong - 0.005);
}

TEST_F(Render, NormalsOfAStoreShow)
{
    TestSurvey survey;
    survey.slope = 1; // rises to the east
    ASSERT_TRUE(survey.write(path("slope.las")));
    buildStoreOf(path("slope.las"), path("slope.brx"));
    const auto red = [&](const std::vector<std::string>& light) {
        std::vector<std::string> arguments = {path("slope.brx"), "--view", "top", "--size", "100x100"};
        arguments.insert(arguments.end(), light.begin(), light.end());
        return static_cast<int>(pixel(*renderedPicture(arguments), 50, 50).r());
    };
    EXPECT_EQ(red({}), 255) << "none";
    VelBrx::NormalsOptions options;
    options.store = path("slope.brx");
    ASSERT_TRUE(VelBrx::writeNormals(options));
    const auto lit = [](double facing) { return static_cast<int>(255 * (0.3 + 0.7 * facing)); };
    EXPECT_NEAR(red({}), lit(std::sqrt(0.5)), 3) << "from the eye";
    EXPECT_NEAR(red({"--light", "270,45"}), lit(1), 2);
    EXPECT_NEAR(red({"--light", "90,45"}), lit(0), 2);
    EXPECT_EQ(red({"--light", "off"}), 255);
}

TEST_F(Render, NoiseFarBelowTheGroundDoesNotShrinkTheFirstView)
{
    ASSERT_TRUE(TestSurvey().write(path("grid.las")));
    TestSurvey noise;
    noise.side = 1;
    noise.z = -5000;
    ASSERT_TRUE(noise.write(path("noise.las")));
    VelBrx::BuildOptions options;
    options.inputs = {path("grid.las"), path("noise.las")};
    options.output = path("noisy.brx");
    VelBrx::BuildReport report;
    ASSERT_TRUE(VelBrx::buildStore(options, report));
    const auto shareOf = [&](const std::string& store, const std::string& view) {
        return share(*renderedPicture({path(store), "--view", view, "--size", "200x200"}));
    };
    const double clean = shareOf("grid.las", "iso");
    EXPECT_GT(shareOf("noisy.brx", "iso"), 0.7 * clean);
    EXPECT_LT(shareOf("noisy.brx", "all"), 0.1 * clean);
}

TEST_F(Render, ARealSurveyShowsItsColours)
{
    const char* const data = std::getenv("VELBRX_TEST_DATA");
    if (!data) GTEST_SKIP() << "VELBRX_TEST_DATA is not set";
    fs::copy(std::string(data) + "/survey/PDAL__autzen_trim_7.las", path("autzen.las"));
    const auto picture = renderedPicture({path("autzen.las"), "--view", "top", "--size", "640x400"});
    EXPECT_GT(share(*picture), 0.35);
    osg::Vec3d sum;
    for (int y = 0; y < picture->t(); ++y)
        for (int x = 0; x < picture->s(); ++x)
            if (const osg::Vec3ub color = pixel(*picture, x, y); color != kBackground)
                sum += osg::Vec3d(color.r(), color.g(), color.b());
    sum /= countOtherThan(*picture, kBackground);
    const osg::Vec3d meanOfRecords(111.4, 119.7, 99.4);
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(sum[channel], meanOfRecords[channel], 10) << channel << ": points hide others";
}

TEST_F(Render, AModeWithNothingToShowSaysSo)
{
    ASSERT_TRUE(TestSurvey().write(path("grid.las")));
    const ProgramResult result = render({path("grid.las"), "--mode", "intensity", "--size", "50x50"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_NE(result.err.find("brxview: intensity: every point has 0\n"), std::string::npos) << result.err;
}

TEST_F(Render, ASmallBudgetSettlesToo)
{
    TestSurvey survey;
    survey.side = 400;
    ASSERT_TRUE(survey.write(path("grid.las")));
    const auto full = renderedPicture({path("grid.las"), "--view", "top", "--size", "400x400"});
    const ProgramResult result =
        render({path("grid.las"), "--view", "top", "--size", "400x400", "--budget", "30k"});
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const auto thinned = osgDB::readRefImageFile(path("picture.png"));
    EXPECT_LT(share(*thinned), share(*full));
    EXPECT_GT(share(*thinned), 0.05);
    EXPECT_LT(std::atoi(result.out.c_str() + std::string("points ").size()), 30000);
}

TEST_F(Render, NormalsThatAreNotTheStoresAreToldAndRefusedWhereTheyAreNamed)
{
    const std::string survey = path("grid.las");
    ASSERT_TRUE(TestSurvey().write(survey));
    ASSERT_EQ(render({survey}).exitStatus, 0);
    const std::string store = survey + ".brx";
    const std::string reason = ": is not a normals file; brx normals writes the normals of a store";
    const ProgramResult named = render({"--normals", survey, store});
    EXPECT_EQ(named.exitStatus, 1);
    EXPECT_EQ(named.err, "brxview: " + survey + reason + "\n");

    fs::copy(survey, store + ".normals");
    const ProgramResult found = render({store});
    EXPECT_EQ(found.exitStatus, 0);
    EXPECT_EQ(found.err,
              "brxview: " + store + ".normals" + reason + "; the points are shown without normals\n");
}
