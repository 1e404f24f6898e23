#include "terminal/ShownName.h"
#include "terminal/Text.h"
#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/RunBrx.h"

#include <VelBrx/Version.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <utility>

using namespace std::string_literals;

namespace {

/// Checks for one line that starts as every message of brx does.
void expectOneLine(const std::string& text)
{
    EXPECT_EQ(text.rfind("brx: ", 0), 0u) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

} // namespace

TEST(Brx, TellsItsVersionAndItsCommandsOnStandardOutput)
{
    const ProgramResult version = brx({"--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(version.out.rfind("brx " VEL_BRX_VERSION, 0), 0u) << version.out;
    EXPECT_EQ(version.err, "");

    const ProgramResult help = brx({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.err, "");
    for (const std::string command : {"build", "export", "history", "info", "verify"}) {
        EXPECT_NE(help.out.find("\n  " + command + " "), std::string::npos) << command;
        const ProgramResult own = brx({command, "--help"});
        EXPECT_EQ(own.exitStatus, 0);
        EXPECT_NE(own.out.find("--json"), std::string::npos) << command;
        EXPECT_EQ(own.err, "");
    }
}

TEST(Brx, EndsInOneLineWhenItIsCalledWrongly)
{
    const std::pair<std::vector<std::string>, std::string> calls[] = {
        {{}, "a command is missing; see 'brx --help'"},
        {{"frobnicate"}, "frobnicate: unknown command; see 'brx --help'"},
        {{"--frobnicate"}, "--frobnicate: unknown option; see 'brx --help'"},
        {{"info"}, "see 'brx info --help'"},
        {{"verify"}, "see 'brx verify --help'"},
        {{"info", "a.brx", "b.brx"}, "b.brx; see 'brx info --help'"},
        {{"build"}, "see 'brx build --help'"},
        {{"normals", "a.brx", "--k", "2"}, "see 'brx normals --help'"},
        {{"revert", "a.brx"}, "see 'brx revert --help'"},
        {{"export", "a.brx", "--frobnicate"}, "see 'brx export --help'"}};
    for (const auto& [call, said] : calls) {
        const ProgramResult result = brx(call);
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(result.out, "");
        expectOneLine(result.err);
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
    }
}

TEST(Brx, FailsWhenItsOutputCannotBeWritten)
{
    const ProgramResult result =
        runProgram({"/bin/sh", "-c", VELBRX_BRX " --help > /dev/full; echo status $?"});
    EXPECT_EQ(result.out, "status 1\n");
    expectOneLine(result.err);
}

/// Names, authors and texts of files come from anybody.
TEST(Brx, PrintsNoTextThatSteersATerminal)
{
    EXPECT_EQ(printable("a\x1b[31mred\r\n\t\x7f\0z"s), "a?[31mred?????z");
    EXPECT_EQ(printable("\xc2\x9b"
                        "2J \xe2\x80\xae"
                        "gnp.exe \xe2\x81\xa6 \xe2\x80\xa8"),
              "?2J ?gnp.exe ? ?");
    EXPECT_EQ(printable("Höhe 1 m² — 点 😀"), "Höhe 1 m² — 点 😀");
    // No UTF-8: alone, cut, overlong, a surrogate, too large.
    EXPECT_EQ(printable("\xff|\xc3|\xe2\x82|\xc0\xaf|\xe0\x80\xaf|\xed\xa0\x80|\xf4\x90\x80\x80"),
              "?|?|??|??|???|???|????");
    EXPECT_EQ(printable(std::string(1 << 20, 'x')).size(), 4003u);
    EXPECT_EQ(shownName("anna"), "anna");
    EXPECT_EQ(shownName(std::string(59, 'x') + "öö"), std::string(59, 'x') + "...");
}

TEST(Brx, ExportsPartsAndSumsFoldersUp)
{
    const TempFolder folder;
    const std::string store = folder.file("stores/a.brx");
    std::filesystem::create_directory(folder.file("stores"));
    ASSERT_EQ(brx({"sample", folder.file("a.las"), "--points", "20000", "--seed", "5"}).exitStatus, 0);
    buildStoreOf(folder.file("a.las"), store);
    const auto info = nlohmann::json::parse(brx({"info", store, "--json"}).out);
    const auto low = info.at("bounds").at("min").get<std::vector<double>>();
    const auto high = info.at("bounds").at("max").get<std::vector<double>>();
    const double middle = (low[0] + high[0]) / 2;
    const auto ring = [&](double left, double right) {
        nlohmann::json vertices;
        for (const auto& [x, y] : {std::pair(left, low[1] - 1),
                                   {right, low[1] - 1},
                                   {right, high[1] + 1},
                                   {left, high[1] + 1},
                                   {left, low[1] - 1}})
            vertices.push_back({x, y});
        return nlohmann::json::array({vertices});
    };
    const auto write = [&](const std::string& name, const nlohmann::json& geometry) {
        const std::string text =
            nlohmann::json{
                {"type", "FeatureCollection"},
                {"features", {{{"type", "Feature"}, {"properties", nullptr}, {"geometry", geometry}}}}}
                .dump();
        return folder.write(name, std::vector<uint8_t>(text.begin(), text.end()));
    };
    const std::string west =
        write("west.json", {{"type", "Polygon"}, {"coordinates", ring(low[0] - 1, middle)}});
    const std::string east =
        write("east.json", {{"type", "MultiPolygon"}, {"coordinates", {ring(middle, high[0] + 1)}}});
    const auto pointsOf = [&](std::vector<std::string> part) {
        std::vector<std::string> words = {"export", "--force", "--json", store, folder.file("part.laz")};
        words.insert(words.begin() + 3, part.begin(), part.end());
        const ProgramResult result = brx(words);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return result.exitStatus
                   ? 0
                   : nlohmann::json::parse(result.out).at("files").at(0).at("points").get<int>();
    };
    const int inWest = pointsOf({"--polygon", west});
    EXPECT_GT(inWest, 0);
    EXPECT_EQ(inWest + pointsOf({"--polygon", east}), 20000) << "no point twice on the common edge";
    EXPECT_EQ(pointsOf({"--polygon", west, "--polygon", east}), 20000);
    EXPECT_EQ(pointsOf({"--classes", "2"}) + pointsOf({"--classes", "-2"}), 20000);
    EXPECT_LE(pointsOf({"--thin", "1000000"}), 8);
    const auto text = [](double number) { return std::to_string(number); };
    EXPECT_EQ(pointsOf({"--bounds", text(low[0] - 1) + "," + text(low[1] - 1) + "," + text(high[0] + 1) +
                                        "," + text(high[1] + 1)}),
              20000);
    for (const auto& [words, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--bounds", "1,2,3"}, "4 or 6 numbers"},
             {{"--polygon", store}, "no GeoJSON"},
             {{"--polygon", write("line.json", {{"type", "LineString"}})}, "no polygon"},
             {{"--classes", "2,300"}, "0 to 255"}}) {
        const ProgramResult result = brx({"export", store, folder.file("b.las"), words[0], words[1]});
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    }

    std::filesystem::copy_file(store, folder.file("stores/b.brx"));
    folder.write("stores/c.brx", {1, 2, 3});
    const ProgramResult sum = brx({"info", folder.file("stores"), "--json"});
    EXPECT_EQ(sum.exitStatus, 1);
    EXPECT_NE(sum.err.find("1 store cannot be read"), std::string::npos) << sum.err;
    const auto told = nlohmann::json::parse(sum.out);
    EXPECT_EQ(told.at("stores"), 2);
    EXPECT_EQ(told.at("points"), 40000);
    EXPECT_EQ(told.at("bounds"), info.at("bounds"));

    const ProgramResult indexed = brx({"index", folder.file("stores")});
    EXPECT_EQ(indexed.exitStatus, 1) << "a store cannot be read";
    EXPECT_NE(indexed.out.find("stores.brxindex: 2 stores, 3 of them read"), std::string::npos)
        << indexed.out;
    const ProgramResult again = brx({"info", folder.file("stores"), "--json"});
    EXPECT_EQ(again.out, sum.out);
    std::filesystem::resize_file(folder.file("stores/stores.brxindex"), 100);
    const ProgramResult damaged = brx({"info", folder.file("stores"), "--json"});
    EXPECT_EQ(damaged.out, sum.out);
    EXPECT_NE(damaged.err.find("stores.brxindex: is damaged"), std::string::npos) << damaged.err;
    expectOneLine(brx({"index", store}).err);
}
