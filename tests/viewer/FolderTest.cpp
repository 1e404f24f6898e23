#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "viewer/scene/InputFiles.h"
#include "viewer/scene/Scene.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <osgDB/ReadFile>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int kTilesPerSide = 10;
constexpr int kTileSide = 8; ///< points along a tile's side

std::string tileName(int column, int row)
{
    return "row" + std::to_string(row) + "/tile" + std::to_string(column) + ".brx";
}

/// A survey cut into tiles, each a store in a folder of its row.
class StoreFolder : public testing::Test
{
protected:
    void build(const TestSurvey& survey, const std::string& store) const
    {
        fs::create_directories(fs::path(path(store)).parent_path());
        ASSERT_TRUE(survey.write(path("survey.las")));
        buildStoreOf(path("survey.las"), path(store));
        fs::remove(path("survey.las"));
    }

    /// Each column stands `rise` metres higher than the one before.
    void buildTiles(int columns, int rows, double rise = 0) const
    {
        TestSurvey tile;
        tile.side = kTileSide;
        for (int row = 0; row < rows; ++row) {
            for (int column = 0; column < columns; ++column) {
                tile.x = TestSurvey().x + column * kTileSide;
                tile.y = TestSurvey().y + row * kTileSide;
                tile.z = TestSurvey().z + column * rise;
                build(tile, "tiles/" + tileName(column, row));
            }
        }
    }

    /// Draws `inputs` from above with at most `descriptors` open files.
    ProgramResult draw(const std::string& picture, const std::vector<std::string>& inputs,
                       int descriptors = 1024) const
    {
        std::vector<std::string> words = {"/bin/sh", "-c", "ulimit -n $0; exec \"$@\"",
                                          std::to_string(descriptors)};
        const std::vector<std::string> command = {BRXVIEW,  "--render", path(picture), "--size", "200x200",
                                                  "--view", "top",      "--mode",      "single"};
        words.insert(words.end(), command.begin(), command.end());
        words.insert(words.end(), inputs.begin(), inputs.end());
        // A pass holds the lock of every store; thread sanitizer's check of lock orders has room for 64.
        const char* sanitizer = std::getenv("TSAN_OPTIONS");
        return runProgram(words, {"DISPLAY", std::string("TSAN_OPTIONS=") + (sanitizer ? sanitizer : "") +
                                                 ":detect_deadlocks=0"});
    }

    /// The lines of a script in a window of 200 x 200 pixels, but for the last, with `lone.brx` open.
    std::vector<json> script(const std::string& steps) const
    {
        const std::string text = R"([{"op": "window", "width": 200, "height": 200}, )" + steps + "]";
        _folder.write("script.json", {text.begin(), text.end()});
        const ProgramResult result =
            runProgram({BRXVIEW, "--script", path("script.json"), "--force", path("lone.brx")}, {"DISPLAY"});
        std::vector<json> lines;
        std::istringstream out(result.out);
        for (std::string line; std::getline(out, line);)
            lines.push_back(json::parse(line));
        EXPECT_GT(lines.size(), 1u) << result.err;
        if (lines.size() > 1) lines.pop_back();
        return lines;
    }

    static std::set<std::string> storesOf(const std::vector<json>& lines)
    {
        std::set<std::string> stores;
        for (const json& store : lines.back().value("stores", json::array()))
            stores.insert(store["store"]);
        return stores;
    }

    std::string path(const std::string& name) const { return _folder.file(name); }

    const TempFolder _folder;
};

std::string failureOf(const std::string& input)
{
    std::vector<std::string> inputs = {input};
    return expandFolders(inputs).message();
}

} // namespace

TEST_F(StoreFolder, OfAHundredTilesIsDrawnLikeTheSurveyAsOneStore)
{
    buildTiles(kTilesPerSide, kTilesPerSide);
    TestSurvey whole;
    whole.side = kTilesPerSide * kTileSide;
    build(whole, "whole.brx");

    constexpr int kDescriptors = 64; // fewer than stores
    const ProgramResult tiles = draw("tiles.png", {path("tiles")}, kDescriptors);
    EXPECT_EQ(tiles.exitStatus, 0) << tiles.err;
    EXPECT_EQ(tiles.out, "points 6400\ncells 100\n");
    EXPECT_EQ(tiles.err, "");
    const ProgramResult one = draw("whole.png", {path("whole.brx")});
    EXPECT_EQ(one.exitStatus, 0) << one.err;

    const auto drawnTiles = osgDB::readRefImageFile(path("tiles.png"));
    const auto drawnWhole = osgDB::readRefImageFile(path("whole.png"));
    ASSERT_TRUE(drawnTiles && drawnWhole);
    const osg::Vec3ub background(28, 31, 36);
    const int pixels = countOtherThan(*drawnWhole, background);
    EXPECT_GT(pixels, 200 * 200 / 2);
    EXPECT_NEAR(countOtherThan(*drawnTiles, background), pixels, pixels / 100);
}

TEST_F(StoreFolder, WithAnIndexFileOpensWhatThePictureShowsAndNoEditLeavesPointsOut)
{
    constexpr int kSide = 6;
    constexpr uint64_t kPoints = kSide * kSide * kTileSide * kTileSide;
    buildTiles(kSide, kSide, 1.0);
    TestSurvey survey;
    survey.side = 4;
    survey.x -= 20;
    build(survey, "lone.brx");
    const ProgramResult plain = draw("plain.png", {path("tiles")});
    ASSERT_EQ(runProgram({BRX, "index", path("tiles")}).exitStatus, 0);
    const ProgramResult indexed = draw("indexed.png", {path("tiles")});
    EXPECT_EQ(indexed.out, plain.out) << indexed.err;
    EXPECT_TRUE(samePixels(*osgDB::readRefImageFile(path("plain.png")),
                           *osgDB::readRefImageFile(path("indexed.png"))));

    // From low above a corner, along the diagonal: the rest is beside the picture or behind the eye.
    const auto obliqueAt = [](double x, double y) {
        const TestSurvey first;
        const auto place = [](double east, double north, double up) {
            return json({east, north, up}).dump();
        };
        return R"({"op": "mode", "mode": "elevation"}, {"op": "camera", "eye": )" +
               place(first.x + x - 10, first.y + y - 12, first.z + 25) + R"(, "center": )" +
               place(first.x + x, first.y + y, first.z) + R"(, "up": [0, 0, 1]}, )";
    };
    const std::string near = obliqueAt(4, 3);
    const std::string far = obliqueAt(44, 40);
    const std::string waiting = R"({"op": "open", "file": ")" + path("tiles") + R"(", "inView": true}, )";
    const std::string whole = R"({"op": "open", "file": ")" + path("tiles") + R"("}, )";
    const auto render = [this](const std::string& picture) {
        return R"({"op": "render", "file": ")" + path(picture) + R"("}, {"op": "report"})";
    };
    const std::set<std::string> shown = storesOf(script(waiting + near + render("in-view.png")));
    EXPECT_GT(shown.size(), 2u);
    EXPECT_LT(shown.size(), kSide * kSide / 2u);
    EXPECT_EQ(storesOf(script(whole + near + render("whole.png"))).size(), kSide * kSide + 1u);
    const auto part = osgDB::readRefImageFile(path("in-view.png"));
    EXPECT_TRUE(samePixels(*part, *osgDB::readRefImageFile(path("whole.png"))))
        << "a store is missing, or the colours are not those of the whole folder";
    EXPECT_GT(countOtherThan(*part, osg::Vec3ub(28, 31, 36)), 10000);

    const std::string everywhere = R"({"op": "classify", "points": {"everywhere": true}, "to": 7})";
    const std::string outside =
        R"({"op": "cull", "polygon": [[50, 50], [90, 50], [70, 90]], "side": "outside"})";
    for (const std::string& edit : {everywhere, outside, std::string(R"({"op": "reset"})")}) {
        const std::string error = script(waiting + near + edit).back().value("error", "");
        EXPECT_NE(error.find("not open and would be left out"), std::string::npos) << edit << error;
    }
    // Without a picture before: what the outline reaches is opened for it.
    const std::vector<json> edited =
        script(waiting + far +
               R"({"op": "classify", "polygon": [[0, 0], [200, 0], [200, 200], [0, 200]], "to": 9}, )" +
               R"({"op": "report"})");
    std::map<std::string, int> unsaved;
    int sum = 0;
    for (const json& store : edited.back()["stores"])
        if (store["unsaved"] > 0) sum += unsaved[store["store"]] = store["unsaved"];
    EXPECT_GT(unsaved.size(), 2u);
    EXPECT_EQ(edited[edited.size() - 2]["points"], sum);
    const std::vector<json> again = script(waiting + near + R"({"op": "settle"}, {"op": "report"})");
    std::set<std::string> expected = shown;
    for (const auto& [store, points] : unsaved)
        expected.insert(store);
    EXPECT_EQ(storesOf(again), expected) << "edited stores are opened wherever they are";
    const std::vector<json> all = script(waiting + near + R"({"op": "openAll"}, )" + everywhere);
    EXPECT_EQ(all.back()["points"], kPoints + 16);
}

TEST_F(StoreFolder, MixesWithFilesAndEachIsShownOnce)
{
    buildTiles(2, 2);
    TestSurvey survey;
    survey.side = 4;
    build(survey, "lone.brx");
    fs::create_directory(path("empty"));
    fs::create_hard_link(path("lone.brx"), path("tiles/Link.BRX"));
    fs::copy_file(path("lone.brx"), path("copy.brx"));

    std::vector<std::string> inputs = {path("lone.brx"), path("tiles"), path("tiles/" + tileName(0, 0)),
                                       path("tiles/../lone.brx")};
    ASSERT_TRUE(expandFolders(inputs));
    EXPECT_EQ(inputs,
              (std::vector<std::string>{path("lone.brx"), path("tiles/Link.BRX"),
                                        path("tiles/" + tileName(0, 0)), path("tiles/" + tileName(1, 0)),
                                        path("tiles/" + tileName(0, 1)), path("tiles/" + tileName(1, 1))}));

    const ProgramResult result = draw("mixed.png", {path("lone.brx"), path("copy.brx"), path("tiles")});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "points " + std::to_string(2 * 16 + 4 * kTileSide * kTileSide) + "\ncells 6\n");
    EXPECT_EQ(result.err, "brxview: " + path("tiles/Link.BRX") + ": is the same file as " + path("lone.brx") +
                              ", which is shown\n");
}

TEST_F(StoreFolder, HasOneLegendForAllItsStores)
{
    buildTiles(2, 1, 1.0);
    std::vector<std::string> inputs = {path("tiles")};
    ASSERT_TRUE(expandFolders(inputs));
    Scene scene;
    Options options;
    options.mode = ColorMode::ELEVATION;
    ASSERT_TRUE(scene.load(inputs, options));
    EXPECT_EQ(scene.legend().numbers.front(), "100.00");
    EXPECT_EQ(scene.legend().numbers.back(), "101.00");
}

TEST_F(StoreFolder, WithoutStoresIsRefusedWithALineThatHelps)
{
    EXPECT_EQ(failureOf(_folder.path()),
              _folder.path().string() + ": is a folder without stores (.brx files)");
    fs::create_directory(path("las"));
    ASSERT_TRUE(TestSurvey().write(path("las/a.las")));
    ASSERT_TRUE(TestSurvey().write(path("las/b.LAZ")));
    const std::string said = failureOf(path("las"));
    EXPECT_NE(said.find(path("las") + ": is a folder without stores"), std::string::npos) << said;
    EXPECT_NE(said.find("2 LAS and LAZ files: brx build " + path("las")), std::string::npos) << said;
}

TEST_F(StoreFolder, WithADamagedStoreIsRefusedByTheNameOfTheStore)
{
    buildTiles(2, 1);
    const std::string damaged = path("tiles/" + tileName(1, 0));
    fs::resize_file(damaged, fs::file_size(damaged) / 2);
    const ProgramResult result = draw("damaged.png", {path("tiles")});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.err.rfind("brxview: " + damaged + ": ends inside its EVLRs; restore", 0), 0u)
        << result.err;
    EXPECT_FALSE(fs::exists(path("damaged.png")));
}
