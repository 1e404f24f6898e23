#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/RunBrx.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace {

class BuildSampleTest : public testing::Test
{
protected:
    TempFolder folder;
    const std::string las = folder.file("sample.las");
    const std::string store = folder.file("sample.brx");

    ProgramResult sample() const { return brx({"sample", las, "--points", "50000", "--seed", "3"}); }

    void expectOneLine(const ProgramResult& result, const std::string& file) const
    {
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("brx: " + file + ": ", 0), 0u) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
};

} // namespace

TEST_F(BuildSampleTest, ReplacesFilesOnlyWhenForced)
{
    sample();
    const ProgramResult built = brx({"build", las, "-o", store});
    ASSERT_EQ(built.exitStatus, 0);
    EXPECT_NE(built.err.find("\n100 %: writing"), std::string::npos) << built.err;
    const std::vector<uint8_t> there = readFile(store);
    expectOneLine(sample(), las);
    expectOneLine(brx({"build", las, "-o", store}), store);
    EXPECT_TRUE(readFile(store) == there);
    const ProgramResult quiet = brx({"build", las, "-o", store, "--force", "--quiet"});
    EXPECT_EQ(quiet.exitStatus, 0);
    EXPECT_EQ(quiet.err + quiet.out, "");
    EXPECT_EQ(brx({"sample", las, "--points", "10", "--force"}).exitStatus, 0);
}

TEST_F(BuildSampleTest, EndsInOneLineForInputThatCannotBeUsed)
{
    expectOneLine(brx({"build", las, "-o", store}), las);
    expectOneLine(brx({"build", folder.write("text.las", {'h', 'e', 'l', 'l', 'o'}), "-o", store}),
                  folder.file("text.las"));
    expectOneLine(brx({"sample", folder.file("none/sample.las"), "--points", "5"}),
                  folder.file("none/sample.las"));
    sample();
    for (const char* code : {"EPSG:999999", "+init=epsg:25832"})
        expectOneLine(brx({"build", las, "-o", store, "--crs", code}), std::string("--crs: ") + code);
    EXPECT_FALSE(std::filesystem::exists(store));

    ASSERT_EQ(brx({"build", las, "-o", store, "--crs", "EPSG:2992+6360", "--quiet"}).exitStatus, 0);
    const auto told = nlohmann::json::parse(brx({"info", store, "--json"}).out).at("crs");
    EXPECT_EQ(told.at("code"), "EPSG:2992+6360");
    EXPECT_EQ(told.at("horizontalUnit").at("metres"), 0.3048);
    EXPECT_NE(brx({"info", store}).out.find("(EPSG:2992+6360), foot, heights in US survey foot\n"),
              std::string::npos);
}

TEST_F(BuildSampleTest, KeepsWithinAGivenMemory)
{
    constexpr long kMegabyte = 1 << 20;
    const std::string tiles = folder.file("tiles");
    std::filesystem::create_directory(tiles);
    ASSERT_EQ(brx({"sample", tiles + "/0.las", "--points", "500000"}).exitStatus, 0);
    for (int i = 1; i < 8; ++i) // together 144 MB
        std::filesystem::create_hard_link(tiles + "/0.las", tiles + "/" + std::to_string(i) + ".las");
    const ProgramResult built = // so many threads want twice the memory
        brx({"build", tiles, "-o", store, "--memory", "128M", "--threads", "8", "--json"});
    ASSERT_EQ(built.exitStatus, 0) << built.err;
    EXPECT_EQ(nlohmann::json::parse(built.out)["points"], 4000000);
    std::istringstream lines(built.err);
    nlohmann::json event;
    for (std::string line; std::getline(lines, line);) {
        event = nlohmann::json::parse(line);
        EXPECT_EQ(event["total"], 4000000) << line;
    }
    EXPECT_EQ(event["points"], 4000000) << "progress goes to the end";
    const ProgramResult exported =
        brx({"export", store, folder.file("split"), "--split", "--memory", "48M", "--threads", "2"});
    ASSERT_EQ(exported.exitStatus, 0) << exported.err;
    if (!VELBRX_WITH_SANITIZER) { // which takes memory of its own
        EXPECT_LT(built.peakMemory, 128 * kMegabyte);
        EXPECT_LT(exported.peakMemory, 48 * kMegabyte);
    }

    expectOneLine(brx({"build", tiles, "-o", folder.file("b.brx"), "--memory", "64M"}), folder.file("b.brx"));
    EXPECT_EQ(brx({"build", las, "-o", store, "--memory", "much"}).exitStatus, 2);
}
