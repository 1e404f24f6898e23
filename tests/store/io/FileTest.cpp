#include <VelBrx/File.h>

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <limits>
#include <set>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

using VelBrx::File;

namespace {

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();

} // namespace

TEST(File, MapsEveryRangeInsideTheFileAndNoOther)
{
    const TempFolder folder;
    File file(folder.write("a", {10, 11, 12, 13, 14}).c_str());
    ASSERT_TRUE(file.isOpen());
    ASSERT_TRUE(file.isValid());
    EXPECT_EQ(file.size(), 5);

    const auto* bytes = static_cast<const uint8_t*>(file.map(1, 4));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[0], 11);
    EXPECT_EQ(bytes[3], 14);
    file.unmap(const_cast<uint8_t*>(bytes));
    file.unmap(nullptr);
    EXPECT_NE(file.map(0, 5), nullptr);
    EXPECT_NE(file.map(4, 1), nullptr);

    const int64_t outside[][2] = {{0, 6},
                                  {1, 5},
                                  {5, 1},
                                  {0, 0},
                                  {0, -1},
                                  {-1, 1},
                                  {-1, 3},
                                  {kInt64Max, 1},
                                  {1, kInt64Max},
                                  {kInt64Max - 1, 2},
                                  {kInt64Max, kInt64Max},
                                  {kInt64Min, kInt64Min}};
    for (const auto& range : outside)
        EXPECT_EQ(file.map(range[0], range[1]), nullptr) << range[0] << ' ' << range[1];
}

TEST(File, IsNotValidWhenThereIsNothingToMap)
{
    const TempFolder folder;
    EXPECT_FALSE(File(nullptr).isOpen());
    EXPECT_FALSE(File("").isOpen());
    EXPECT_FALSE(File(folder.file("missing").c_str()).isOpen());
    EXPECT_FALSE(File(folder.path().c_str()).isOpen());
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path :
         {folder.path().string(), std::string("/dev/zero"), pipe, folder.write("empty", {})}) {
        File file(path.c_str());
        EXPECT_FALSE(file.isValid()) << path;
        EXPECT_EQ(file.map(0, 1), nullptr) << path;
        EXPECT_FALSE(file.sync()) << path;
    }
}

TEST(File, RefusesWhatWasCutOffSinceItWasOpened)
{
    const TempFolder folder;
    const std::string path = folder.write("a", std::vector<uint8_t>(10000, 5));
    File file(path.c_str());
    ASSERT_NE(file.map(9000, 1000), nullptr);
    std::filesystem::resize_file(path, 9500);
    EXPECT_EQ(file.size(), 9500);
    EXPECT_EQ(file.map(9000, 1000), nullptr);
    EXPECT_NE(file.map(9000, 500), nullptr);
    std::filesystem::resize_file(path, 0);
    EXPECT_EQ(file.map(0, 1), nullptr);
}

TEST(File, RefusesWhatWasAppendedSinceItWasOpened)
{
    const TempFolder folder;
    const std::string path = folder.write("a", std::vector<uint8_t>(100, 5));
    File file(path.c_str());
    std::filesystem::resize_file(path, 100000);
    EXPECT_EQ(file.map(99, 2), nullptr);
    EXPECT_EQ(file.map(50000, 10), nullptr);
    EXPECT_NE(file.map(0, 100), nullptr);
}

TEST(File, IsTheSameByAllItsNamesAndACopyIsAnother)
{
    namespace fs = std::filesystem;
    const TempFolder folder;
    const std::string path = folder.write("a", {1, 2, 3});
    const std::string copy = folder.file("copy");
    fs::copy(path, copy);
    fs::create_hard_link(path, folder.file("hard"));
    fs::create_symlink(path, folder.file("symbolic"));
    const File file(path.c_str());
    EXPECT_NE(File(copy.c_str()).identity(), file.identity());
    const std::string relative = fs::relative(path);
    for (const std::string& name : {folder.file("hard"), folder.file("symbolic"), relative})
        EXPECT_EQ(File(name.c_str()).identity(), file.identity()) << name;

    const File linked(folder.file("symbolic").c_str());
    EXPECT_TRUE(file.isStillNamed());
    EXPECT_TRUE(linked.isStillNamed());
    fs::remove(folder.file("symbolic"));
    fs::create_symlink(copy, folder.file("symbolic"));
    EXPECT_FALSE(linked.isStillNamed()) << "the link leads to another file now";
    EXPECT_TRUE(file.isStillNamed());
    fs::rename(path, folder.file("moved"));
    EXPECT_FALSE(file.isStillNamed());
    fs::rename(copy, path);
    EXPECT_FALSE(file.isStillNamed());
    fs::rename(folder.file("moved"), path);
    EXPECT_TRUE(file.isStillNamed());
    EXPECT_FALSE(File(folder.file("missing").c_str()).isStillNamed());
}

TEST(File, IsNoFileThatWasThereBefore)
{
    const TempFolder folder;
    std::set<VelBrx::FileIdentity> identities;
    for (int i = 0; i < 5; ++i) {
        const std::string path = folder.write("a", {1, 2, 3}); // it is likely to get the inode of the last
        EXPECT_TRUE(identities.insert(File(path.c_str()).identity()).second);
        std::filesystem::remove(path);
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // clocks of file systems go by ticks
    }
}

TEST(File, OutlivesItsNameAndKeepsNoDescriptor)
{
    const TempFolder folder;
    const std::string path = folder.write("a", {1, 2, 3});
    const auto countDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = countDescriptors();
    File file(path.c_str());
    EXPECT_EQ(countDescriptors(), before);
    std::filesystem::rename(folder.write("b", {9}), path);
    EXPECT_EQ(file.size(), 3);
    ASSERT_NE(file.map(0, 3), nullptr);
    std::filesystem::remove(path);
    EXPECT_EQ(static_cast<const uint8_t*>(file.map(0, 3))[2], 3);
}
