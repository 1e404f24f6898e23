#include "viewer/scene/StoreCache.h"

#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/PointCounts.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class StoreCache : public testing::Test
{
protected:
    StoreCache()
    {
        fs::create_directories(_folder.path() / "data");
        TestSurvey survey;
        survey.side = 10;
        EXPECT_TRUE(survey.write(_source));
    }
    ~StoreCache() override { fs::permissions(_folder.path() / "data", fs::perms::owner_all); }

    /// The store of the source; fails the test where there is none.
    std::string find(bool rebuild = false)
    {
        std::string store;
        const VelBrx::Status status = findOrBuildStore(_source, rebuild, store);
        EXPECT_TRUE(status) << status.message();
        return store;
    }

    const TempFolder _folder;
    const std::string _source = _folder.file("data/grid.las");
};

} // namespace

TEST_F(StoreCache, ALasFileIsBuiltBesideItselfOnceAndThenUsedAgain)
{
    const std::string store = find();
    EXPECT_EQ(store, fs::canonical(_source).string() + ".brx");
    const auto built = fs::last_write_time(store);
    EXPECT_EQ(find(), store);
    EXPECT_EQ(fs::last_write_time(store), built);

    std::string itself;
    EXPECT_TRUE(findOrBuildStore(store, false, itself));
    EXPECT_EQ(itself, store);
}

TEST_F(StoreCache, AStoreOlderThanItsSourceIsKeptUntilForced)
{
    const std::string store = find();
    std::vector<uint8_t> bytes = readFile(store);
    bytes[bytes[96] + 256u * bytes[97] + 15] |= 4; // a hidden point
    _folder.write("data/grid.las.brx", bytes);
    fs::last_write_time(store, fs::last_write_time(_source) - 1h);
    const auto old = fs::last_write_time(store);
    std::string unused;
    const VelBrx::Status status = findOrBuildStore(_source, false, unused);
    EXPECT_FALSE(status);
    EXPECT_NE(status.message().find(store), std::string::npos) << status.message();
    EXPECT_EQ(fs::last_write_time(store), old);

    EXPECT_EQ(find(true), store);
    EXPECT_GT(fs::last_write_time(store), old);
    std::atomic<bool> cancel{false};
    VelBrx::PointCounts counts;
    EXPECT_TRUE(VelBrx::countClassesAndHidden(store, cancel, counts));
    EXPECT_EQ(counts.hidden, 1u) << "edits are kept";
}

TEST_F(StoreCache, AStoreThatIsNamedForAnotherFileIsRefused)
{
    const std::string store = find();
    std::string found;
    EXPECT_TRUE(findOrBuildStore(_source, false, found, store));
    const std::string other = _folder.file("data/other.las");
    fs::copy(_source, other);
    for (const bool rebuild : {false, true}) {
        const auto before = fs::last_write_time(store);
        const VelBrx::Status status = findOrBuildStore(other, rebuild, found, store);
        EXPECT_NE(status.message().find(store + ": is the store of grid.las, not of other.las"),
                  std::string::npos)
            << status.message();
        EXPECT_EQ(fs::last_write_time(store), before);
    }
}

TEST_F(StoreCache, WhereTheFolderCannotBeWrittenTheStoreGoesToTheCache)
{
    const fs::path cache = _folder.path() / "cache";
    fs::permissions(_folder.path() / "data", fs::perms::owner_read | fs::perms::owner_exec |
                                                 fs::perms::others_read | fs::perms::others_exec);
    std::vector<std::string> command = {BRXVIEW, "--size", "64x64", _source, "--render"};
    for (const std::string name : {"first.png", "second.png"}) {
        command.push_back(_folder.file(name));
        const ProgramResult result = runProgram(command, {"DISPLAY", "XDG_CACHE_HOME=" + cache.string()});
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        EXPECT_EQ(result.err.find("building") == std::string::npos, name == "second.png") << result.err;
        EXPECT_EQ(result.err.find("cache alone"), std::string::npos) << "a picture edits nothing";
        command.pop_back();
    }
    EXPECT_FALSE(fs::exists(_source + ".brx"));
    EXPECT_EQ(std::distance(fs::directory_iterator(cache / "brxview"), {}), 1);

    const std::string script = _folder.write("empty.json", {'[', ']'});
    const std::string own = _folder.file("own.brx");
    for (const auto& words : {std::vector<std::string>{_source}, {_source, "--store", own}}) {
        std::vector<std::string> edit = {BRXVIEW, "--script", script};
        edit.insert(edit.end(), words.begin(), words.end());
        const ProgramResult result = runProgram(edit, {"DISPLAY", "XDG_CACHE_HOME=" + cache.string()});
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        const bool warned = result.err.find("edits are kept in the cache alone, in " + cache.string() +
                                            "/brxview/grid-") != std::string::npos;
        EXPECT_EQ(warned, words.size() == 1) << result.err;
    }
    EXPECT_TRUE(fs::exists(own));
}
