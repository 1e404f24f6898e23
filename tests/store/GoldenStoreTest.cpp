#include <VelBrx/File.h>
#include <VelBrx/MiraLasRead.h>
#include <VelBrx/Verify.h>

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/io/ByteIo.h"
#include "tests/support/BuildStore.h"
#include "tests/support/StatedBytes.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestPoint.h"
#include "tests/support/TestStore.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace VelBrx;

namespace {

constexpr size_t kIndexStart = 579;
constexpr size_t kIndexEnd = 3191;
constexpr size_t kOriginStart = 3251;
constexpr size_t kOriginEnd = 4266;
constexpr size_t kFlagsStart = 4326;

std::vector<int64_t> segmentsOf(const CellWithSegment& cell)
{
    std::vector<int64_t> numbers;
    for (const Segment& segment : cell.segments)
        numbers.insert(numbers.end(), {segment.first, segment.count});
    return numbers;
}

class GoldenStore : public testing::Test
{
protected:
    const TempFolder _folder;
    const std::vector<uint8_t> _bytes = statedBytes(VELBRX_GOLDEN_STORE);
    const std::string _path = _folder.write("golden.brx", _bytes);

    std::vector<uint8_t> bytesOf(size_t first, size_t last) const
    {
        return {_bytes.data() + first, _bytes.data() + last};
    }
};

} // namespace

TEST_F(GoldenStore, IsSound)
{
    ASSERT_EQ(_bytes.size(), 4419u);
    EXPECT_EQ(verifyStore(_path), std::vector<std::string>());
}

TEST_F(GoldenStore, HasTheHeaderThatItsBytesState)
{
    BrxHeader header;
    ASSERT_TRUE(MiraLasRead::getBrxHeader(header, _path.c_str()));
    EXPECT_EQ(header.formatVersion, 1u);
    EXPECT_EQ(header.storeId, 0x1122334455667788u);
    EXPECT_EQ(header.pointCount, 4u);
    EXPECT_EQ(header.cellCount, 3u);
    EXPECT_EQ(header.pointDataStart, 375);
    const double offset[3] = {1000, 2000, 100}, min[3] = {1001, 2001, 100}, max[3] = {1008, 2008, 105};
    for (size_t axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(header.scale[axis], 0.01);
        EXPECT_EQ(header.offset[axis], offset[axis]);
        EXPECT_EQ(header.min[axis], min[axis]);
        EXPECT_EQ(header.max[axis], max[axis]);
    }
    EXPECT_EQ(header.coordinateSystem, "");
    EXPECT_EQ(header.pointsByReturn[0], 3u);
    EXPECT_EQ(header.pointsByReturn[1], 1u);
    EXPECT_EQ(header.pointsByReturn[14], 0u);
}

TEST_F(GoldenStore, HasTheCellsThatItsBytesState)
{
    std::vector<CellWithSegment> cells;
    BoundBoxWithOffset box{};
    int64_t start = 0;
    double scale[3] = {};
    MiraLasRead::getOctree(cells, box, _path.c_str(), start, scale[0], scale[1], scale[2]);
    ASSERT_EQ(cells.size(), 3u);
    EXPECT_EQ(start, 375);
    EXPECT_EQ(scale[1], 0.01);
    EXPECT_EQ(box.max[2], 105);
    EXPECT_EQ(box.offset[1], 2000);

    BrxHeader header;
    ASSERT_TRUE(MiraLasRead::getBrxHeader(header, _path.c_str()));
    EXPECT_EQ(cells[0].identifier, header.fileKey + "----------0");
    EXPECT_EQ(uint64_t(cells[0].parentCode), kNoCell);
    EXPECT_EQ(double(cells[0].center[1]), 2004);
    for (size_t octant = 0; octant < 8; ++octant)
        EXPECT_EQ(uint64_t(cells[0].childCodes[octant]), octant == 5 ? octant : kNoCell);
    EXPECT_EQ(segmentsOf(cells[0]), (std::vector<int64_t>{0, 1, 3, 1}));
    EXPECT_EQ(cells[0].pointCount, 2u);

    EXPECT_EQ(cells[1].level, 1);
    EXPECT_EQ(uint64_t(cells[1].code), 5u);
    EXPECT_EQ(uint64_t(cells[1].childCodes[2]), 42u);
    EXPECT_EQ(segmentsOf(cells[1]), (std::vector<int64_t>{1, 1}));

    EXPECT_EQ(cells[2].identifier, header.fileKey + "---------0e");
    EXPECT_EQ(uint64_t(cells[2].parentCode), 5u);
    EXPECT_EQ(float(cells[2].size[1]), 2.0f);
    EXPECT_EQ(double(cells[2].center[0]), 1005);
    EXPECT_EQ(double(cells[2].center[1]), 2003);
    EXPECT_EQ(double(cells[2].center[2]), 105);
    EXPECT_NEAR(double(cells[2].resolutionLength), 0.11678 * 2 / 128, 1e-7);
    EXPECT_EQ(segmentsOf(cells[2]), (std::vector<int64_t>{2, 1}));
}

TEST_F(GoldenStore, HasTheStatisticsThatItsBytesState)
{
    StoreStatistics statistics;
    ASSERT_TRUE(MiraLasRead::getStatistics(statistics, _path.c_str()));
    EXPECT_EQ(statistics.elevation.max, 105);
    EXPECT_EQ(statistics.intensity.low, 1500);
    EXPECT_EQ(statistics.intensity.high, 60000);
    EXPECT_EQ(statistics.gpsTime.min, 10.5);
    EXPECT_EQ(statistics.maxColor, 65535);
    EXPECT_EQ(statistics.pointsByClass[5], 2u);
    EXPECT_EQ(statistics.pointsByReturn[2], 1u);
    EXPECT_EQ(statistics.pointsByNumberOfReturns[2], 2u);
    EXPECT_EQ(statistics.pointSources, (std::vector<uint16_t>{3, 9}));
}

TEST_F(GoldenStore, HasTheRecordOfAPointWhereItsIndexSays)
{
    TestPoint point;
    point.x = 800;
    point.y = 800;
    point.intensity = 65535;
    point.flags = 0xB0;
    point.classCode = 6;
    point.userData = 255;
    point.scanAngle = -30000;
    point.sourceId = 9;
    point.gpsTime = 13.5;
    point.red = 1;
    point.green = 2;
    point.blue = 3;
    uint8_t record[36];
    point.pack(record);

    File file(_path.c_str());
    const void* const found = file.map(375 + 3 * 36, 36);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(std::memcmp(found, record, sizeof record), 0);
}

TEST_F(GoldenStore, HasTheIndexBytesThatTheEncoderWrites)
{
    StoreIndex index;
    ASSERT_TRUE(decodeIndex(_bytes.data() + kIndexStart, kIndexEnd - kIndexStart, 4, index));
    EXPECT_EQ(encodeIndex(index), bytesOf(kIndexStart, kIndexEnd));
}

TEST_F(GoldenStore, HasTheOriginThatItsBytesState)
{
    OriginRecord origin;
    ASSERT_TRUE(decodeOrigin(&_bytes[kOriginStart], 992, kOriginEnd - kOriginStart, 4, origin));
    ASSERT_EQ(origin.sources.size(), 2u);
    EXPECT_EQ(origin.sources[0].name, "a.las");
    EXPECT_EQ(origin.sources[0].recordLength, 37);
    EXPECT_EQ(origin.sources[0].tailLength, 3u);
    EXPECT_EQ(origin.sources[1].axes[0].factor, 2);
    EXPECT_EQ(origin.sources[1].axes[0].shift, 100);
    EXPECT_EQ(encodeOrigin(origin), bytesOf(kOriginStart, kOriginStart + 992));
    EXPECT_EQ(origin.length, kOriginEnd - kOriginStart);
}

TEST_F(GoldenStore, HasTheSourceFlagsThatItsBytesState)
{
    FlagsRecord flags;
    ASSERT_TRUE(decodeFlags(&_bytes[kFlagsStart], 80, _bytes.size() - kFlagsStart, 4, flags));
    ASSERT_EQ(flags.sources.size(), 2u);
    EXPECT_EQ(flags.sources[0].restLength, 1u);
    EXPECT_EQ(flags.classesStart, 82u);
    EXPECT_EQ(encodeFlags(flags), bytesOf(kFlagsStart, kFlagsStart + 80));
    EXPECT_EQ(flags.length, _bytes.size() - kFlagsStart);
}

TEST_F(GoldenStore, GivesBackItsSources)
{
    const std::vector<std::vector<uint8_t>> sources = sourcesOf(_path);
    ASSERT_EQ(sources.size(), 2u);
    ASSERT_EQ(sources[0].size(), 489u);
    const uint8_t* const third = &sources[0][375 + 2 * 37];
    EXPECT_EQ(third[15], 0x08) << "overlap";
    EXPECT_EQ(std::vector<uint8_t>(third + 36, third + 40), (std::vector<uint8_t>{0xA2, 'e', 'n', 'd'}));
    ASSERT_EQ(sources[1].size(), 411u);
    EXPECT_EQ(loadLe<int32_t>(&sources[1][375]), 350);
    EXPECT_EQ(loadLe<int32_t>(&sources[1][379]), 400);
}
