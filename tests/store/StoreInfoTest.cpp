#include <VelBrx/MiraLasRead.h>
#include <VelBrx/PointCounts.h>
#include <VelBrx/StoreInfo.h>

#include "store/io/ByteIo.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include <gtest/gtest.h>

using namespace VelBrx;

TEST(StoreInfo, ChangesNothingWhenTheFileIsNoStore)
{
    const TempFolder folder;
    const char* const noStore[] = {"", "/nonexistent/a.brx", "/dev/null"};
    std::vector<std::string> paths(std::begin(noStore), std::end(noStore));
    paths.push_back(folder.path().string());
    paths.push_back(folder.write("empty.brx", {}));
    paths.push_back(folder.write("text.brx", std::vector<uint8_t>(5000, 'x')));
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        std::vector<CellWithSegment> cells(3);
        BoundBoxWithOffset box{{1}, {2}, {3}};
        int64_t start = 4;
        double scale[3] = {5, 6, 7};
        MiraLasRead::getOctree(cells, box, path.c_str(), start, scale[0], scale[1], scale[2]);
        EXPECT_TRUE(cells.empty());
        EXPECT_EQ(box.min[0] + box.max[0] + box.offset[0] + static_cast<double>(start) + scale[0], 15);

        BrxHeader header;
        header.pointCount = 8;
        StoreStatistics statistics;
        statistics.maxColor = 9;
        EXPECT_FALSE(MiraLasRead::getBrxHeader(header, path.c_str()));
        EXPECT_FALSE(MiraLasRead::getStatistics(statistics, path.c_str()));
        EXPECT_EQ(header.pointCount + statistics.maxColor, 17u);

        StoreInfo info;
        EXPECT_EQ(readStoreInfo(path, info).message().rfind(path + ": ", 0), 0u);
    }
    BrxHeader header;
    EXPECT_FALSE(MiraLasRead::getBrxHeader(header, nullptr));
}

TEST(StoreInfo, NamesTheCoordinateSystemOfGeoTiffKeysByItsCode)
{
    TestStore store = smallStore();
    const auto keyBytes = [](std::vector<uint16_t> values) {
        std::string bytes(2 * values.size(), '\0');
        for (size_t i = 0; i < values.size(); ++i)
            storeLe(reinterpret_cast<uint8_t*>(bytes.data()) + 2 * i, values[i]);
        return bytes;
    };
    // Key directory: version, revision, number of keys; geographic 4326, projected 26910, user defined
    // vertical.
    store.coordinateSystem = keyBytes({1, 1, 0, 3, 2048, 0, 1, 4326, 3072, 0, 1, 26910, 4096, 0, 1, 32767});
    std::vector<uint8_t> file = store.bytes();
    storeLe<uint16_t>(file.data() + 375 + 18, 34735);
    fitChecksums(file, store);

    const TempFolder folder;
    StoreInfo info;
    const Status status = readStoreInfo(folder.write("keys.brx", file), info);
    ASSERT_TRUE(status) << status.message();
    EXPECT_EQ(info.header.coordinateSystem, "EPSG:26910");
}

TEST(PointCounts, CountTheRecordsAsTheyAreNow)
{
    TestStore store = smallStore();
    store.points[3].classCode = 255; // edits after the build: the index keeps the counts of before
    store.points[5].flags = 0x04;
    store.points[6].flags = 0x71; // hidden bit 0, channel 3, scan direction
    store.points[7].flags = 0xF0; // no hidden bit
    const TempFolder folder;
    PointCounts counts;
    const std::string path = folder.write("edited.brx", store.bytes());
    const Status status = countPoints(path, counts);
    ASSERT_TRUE(status) << status.message();
    EXPECT_EQ(counts.byClass[255], 1u);
    EXPECT_EQ(counts.hidden, 2u);
    PointCounts alone;
    std::atomic<uint64_t> done{0};
    EXPECT_TRUE(countClassesAndHidden(path, std::atomic<bool>(false), alone, &done));
    EXPECT_EQ(alone.hidden, 2u);
    EXPECT_EQ(alone.byClass, counts.byClass);
    EXPECT_EQ(done, store.points.size());
    EXPECT_FALSE(countClassesAndHidden(path, std::atomic<bool>(true), alone)) << "cancelled";
    EXPECT_EQ(counts.byReturn, store.index.statistics.pointsByReturn);
    EXPECT_EQ(counts.byNumberOfReturns, store.index.statistics.pointsByNumberOfReturns);
    uint64_t sum = 0;
    for (const uint64_t count : counts.byClass)
        sum += count;
    EXPECT_EQ(sum, 14u);
}
