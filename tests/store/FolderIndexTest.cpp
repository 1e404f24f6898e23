#include "store/io/Crc32c.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/FolderIndex.h>
#include <VelBrx/StoreInfo.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
using namespace VelBrx;

namespace {

/// A folder of stores, all of them changed an hour ago.
class FolderIndexTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directories(folder.file("stores/west"));
        for (const char* name : {"west/a.brx", "west/b.brx", "c\xff.brx"})
            put(name, 100);
    }

    std::string path(const std::string& name) const { return folder.file("stores/" + name); }

    /// A store whose first point has a class of its own.
    void put(const std::string& name, uint8_t classCode) const
    {
        TestStore store = smallStore();
        store.points[0].classCode = classCode;
        store.updateStatistics();
        folder.write("stores/" + name, store.bytes());
        age(name, 60);
    }

    void age(const std::string& name, int minutes) const
    {
        fs::last_write_time(path(name), fs::file_time_type::clock::now() - std::chrono::minutes(minutes));
    }

    FolderIndex read()
    {
        FolderIndex index;
        const Status read = readFolder(root, index, report);
        EXPECT_TRUE(read) << read.message();
        return index;
    }

    void renew()
    {
        const Status written = writeFolderIndex(root, read());
        EXPECT_TRUE(written) << written.message();
    }

    const TempFolder folder;
    const std::string root = folder.file("stores");
    FolderReport report;
};

} // namespace

TEST_F(FolderIndexTest, KnowsWhatTheStoresAreWithoutOpeningThem)
{
    const FolderIndex asStores = read();
    EXPECT_EQ(report.opened, 3u);
    ASSERT_TRUE(writeFolderIndex(root, asStores));
    const FolderIndex known = read();
    EXPECT_EQ(report.opened, 0u);
    EXPECT_EQ(report.removed, 0u);
    EXPECT_EQ(report.remark, "");
    ASSERT_EQ(known.stores.size(), 3u);
    EXPECT_EQ(known.systems.size(), 1u);
    for (size_t i = 0; i < known.stores.size(); ++i) {
        const IndexedStore &a = asStores.stores[i], &b = known.stores[i];
        StoreInfo info;
        ASSERT_TRUE(readStoreInfo(path(b.name), info));
        EXPECT_EQ(a.name, b.name);
        EXPECT_EQ(b.points, info.header.pointCount);
        EXPECT_EQ(b.bytes, fs::file_size(path(b.name)));
        EXPECT_TRUE(std::equal(b.min.begin(), b.min.end(), info.header.min));
        EXPECT_TRUE(std::equal(b.max.begin(), b.max.end(), info.header.max));
        EXPECT_TRUE(std::equal(b.scale.begin(), b.scale.end(), info.header.scale));
        EXPECT_TRUE(std::equal(b.offset.begin(), b.offset.end(), info.header.offset));
        EXPECT_EQ(known.systems[b.system].wkt, info.header.projection.wkt);
        EXPECT_EQ(b.statistics.pointsByClass, info.statistics.pointsByClass);
        EXPECT_EQ(b.statistics.pointsByReturn, info.statistics.pointsByReturn);
        EXPECT_EQ(b.statistics.pointSources, info.statistics.pointSources);
        EXPECT_EQ(b.bulk.min, (std::array<double, 2>{info.header.min[0], info.header.min[1]}));
        EXPECT_EQ(b.bulk.max, (std::array<double, 2>{info.header.max[0], info.header.max[1]}));
        EXPECT_EQ(b.statistics.elevation.low, info.statistics.elevation.low);
        EXPECT_EQ(b.statistics.gpsTime.max, info.statistics.gpsTime.max);
    }
}

TEST_F(FolderIndexTest, SeesWhatChangedSince)
{
    renew();
    const auto classOf = [](const FolderIndex& index, const std::string& name, size_t code) {
        for (const IndexedStore& store : index.stores)
            if (store.name == name) return store.statistics.pointsByClass[code];
        return uint64_t{0};
    };
    put("west/a.brx", 101); // of the same size
    age("west/a.brx", 30);
    put("new.brx", 102);
    fs::remove(path("west/b.brx"));
    FolderIndex index = read();
    EXPECT_EQ(report.opened, 2u);
    EXPECT_EQ(report.removed, 1u);
    EXPECT_EQ(index.stores.size(), 3u);
    EXPECT_EQ(classOf(index, "west/a.brx", 101), 1u);
    EXPECT_EQ(classOf(index, "new.brx", 102), 1u);
    EXPECT_EQ(classOf(index, "west/b.brx", 100), 0u);

    // One that has just changed may change again within a step of the file system's clock.
    age("new.brx", 0);
    renew();
    read();
    EXPECT_EQ(report.opened, 1u);
    age("new.brx", 1);
    renew();
    read();
    EXPECT_EQ(report.opened, 0u);

    // A journal is a file of its own; one that is damaged makes the store one that cannot be read.
    std::ofstream(journalPath(path("new.brx"))) << "no journal";
    index = read();
    EXPECT_EQ(report.opened, 1u);
    ASSERT_EQ(report.problems.size(), 1u);
    EXPECT_NE(report.problems.front().find("new.brx"), std::string::npos);
    EXPECT_EQ(index.stores.size(), 2u);
}

TEST_F(FolderIndexTest, AFileThatIsNoneIsNotUsed)
{
    renew();
    const std::string file = folderIndexPath(root);
    std::ifstream stream(file, std::ios::binary);
    const std::string good{std::istreambuf_iterator<char>(stream), {}};
    const auto remarkOf = [&](const std::string& bytes) {
        std::ofstream(file, std::ios::binary) << bytes;
        EXPECT_EQ(read().stores.size(), 3u);
        EXPECT_EQ(report.opened, 3u);
        EXPECT_NE(report.remark.find(file), std::string::npos);
        return report.remark;
    };
    std::string flipped = good;
    flipped[good.find("points") + 6] ^= 1; // another number of points
    std::string newer = good;
    newer[8] = 9;
    EXPECT_NE(remarkOf(flipped).find("is damaged"), std::string::npos);
    EXPECT_NE(remarkOf(good.substr(0, good.size() - 9)).find("is damaged"), std::string::npos);
    EXPECT_NE(remarkOf(newer).find("version 9"), std::string::npos);
    EXPECT_NE(remarkOf("").find("no index"), std::string::npos);
    EXPECT_NE(remarkOf("brx").find("no index"), std::string::npos);
}

TEST_F(FolderIndexTest, OneThatLacksWhatOlderProgramsDidNotKeepIsCompletedFromTheStores)
{
    renew();
    const std::string file = folderIndexPath(root);
    std::ifstream stream(file, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    for (size_t at = bytes.find("bulk"); at != std::string::npos; at = bytes.find("bulk", at))
        bytes.replace(at, 4, "none");
    const uint32_t checksum = crc32c(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size() - 4);
    std::memcpy(&bytes[bytes.size() - 4], &checksum, sizeof checksum);
    std::ofstream(file, std::ios::binary) << bytes;
    const FolderIndex completed = read();
    EXPECT_EQ(report.remark, "");
    EXPECT_EQ(report.opened, 3u);
    EXPECT_GT(completed.stores.at(0).bulk.max[0], completed.stores.at(0).bulk.min[0]);
    renew();
    read();
    EXPECT_EQ(report.opened, 0u);
}

TEST_F(FolderIndexTest, SeveralWriteItAtOnce)
{
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i)
        writers.emplace_back([this] {
            for (int k = 0; k < 5; ++k) {
                FolderIndex index;
                FolderReport own;
                EXPECT_TRUE(readFolder(root, index, own));
                EXPECT_EQ(own.remark, "");
                EXPECT_TRUE(writeFolderIndex(root, index));
            }
        });
    for (std::thread& writer : writers)
        writer.join();
    read();
    EXPECT_EQ(report.opened, 0u);
    EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 3) << "nothing is left";
}
