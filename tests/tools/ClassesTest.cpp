#include "terminal/ClassesFile.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"
#include "tests/tools/RunBrx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

constexpr char kCustom[] = R"({"classes": [{"code": 64, "name": "Fence"}, {"code": 2, "color": "#0000fF"}]})";

void write(const std::filesystem::path& path, const std::string& text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

} // namespace

TEST(Classes, TheNearestFileNamesThemAndABrokenOneIsTold)
{
    const TempFolder folder;
    TestStore store = smallStore();
    store.points[0].classCode = 64;
    const std::string path = folder.write("small.brx", store.bytes());
    const std::filesystem::path home = std::filesystem::path(path).parent_path() / "home";
    const std::filesystem::path beside = std::filesystem::path(path).parent_path() / "classes.json";
    const std::string chosen = (home / "chosen.json").string();
    const auto info = [&](const std::vector<std::string>& more = {}) {
        std::vector<std::string> words = {VELBRX_BRX, "info", path};
        words.insert(words.end(), more.begin(), more.end());
        return runProgram(words, {"XDG_CONFIG_HOME=" + home.string()});
    };
    const auto names = [](const ProgramResult& result, const std::string& name) {
        return result.exitStatus == 0 && result.out.find(name) != std::string::npos;
    };
    EXPECT_FALSE(names(info(), "Fence"));
    write(home / "velbrx/classes.json", R"({"classes": [{"code": 64, "name": "User's"}]})");
    EXPECT_TRUE(names(info(), "User's"));
    write(beside, kCustom);
    EXPECT_TRUE(names(info(), "Fence"));
    EXPECT_FALSE(names(info(), "User's"));
    write(chosen, R"({"classes": [{"code": 64, "name": "Chosen"}]})");
    EXPECT_TRUE(names(info({"--classes-file", chosen}), "Chosen"));

    write(beside, "{");
    EXPECT_TRUE(names(info(), "64"));
    EXPECT_NE(info().err.find(beside.string() + ": is no JSON: parse error at line 1"), std::string::npos);
    const ProgramResult refused = info({"--classes-file", beside.string()});
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
}

TEST(Classes, AFileSaysWhatItSaysAndNamesThePlaceOfAFault)
{
    const TempFolder folder;
    const std::string file =
        (std::filesystem::path(folder.write("x", {})).parent_path() / "classes.json").string();
    VelBrx::ClassTable table;
    write(file, kCustom);
    ASSERT_TRUE(readClasses(file, table));
    EXPECT_EQ(table.text(2), VelBrx::ClassTable().text(2)); // what it does not say is the standard's
    EXPECT_EQ(table.color(2), 0x0000ffu);
    ASSERT_TRUE(writeClasses(file, table));
    VelBrx::ClassTable again;
    ASSERT_TRUE(readClasses(file, again));
    EXPECT_EQ(again.own(), std::bitset<256>().set(2).set(64));
    EXPECT_EQ(again.text(64), "64 Fence");
    EXPECT_EQ(again.color(2), table.color(2));

    const std::pair<const char*, const char*> faults[] = {
        {"[]", "the array \"classes\""},
        {R"({"classes": [{"code": 1}, {"name": "x"}]})", "item 2 of \"classes\": \"code\" is missing"},
        {R"({"classes": [{"code": 256}]})", "from 0 to 255"},
        {R"({"classes": [{"code": 1}, {"code": 1}]})", "item 2 of \"classes\": class 1 stands there twice"},
        {R"({"classes": [{"code": 1, "color": "#12345"}]})", "\"color\": expected #rrggbb"},
        {R"({"classes": [{"code": 1, "colour": "#123456"}]})", "\"colour\" is no member"},
        {R"({"classes": [{"code": 1, "name": "a\nb"}]})", "\"name\": expected"}};
    for (const auto& [text, said] : faults) {
        write(file, text);
        const VelBrx::Status read = readClasses(file, again);
        EXPECT_EQ(read.message().find(file + ": "), 0u) << text;
        EXPECT_NE(read.message().find(said), std::string::npos) << read.message();
    }
    EXPECT_EQ(again.text(64), "64 Fence") << "a broken file changes nothing";
}
