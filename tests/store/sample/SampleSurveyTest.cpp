#include <VelBrx/SampleSurvey.h>

#include "store/io/ByteIo.h"
#include "store/las/RecordFormat.h"
#include "tests/support/ReadFile.h"
#include "tests/support/ReadPoints.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <map>

using namespace VelBrx;

namespace {

class SampleSurveyTest : public testing::Test
{
protected:
    TempFolder folder;
    SampleOptions options;

    SampleSurveyTest() { options.output = folder.file("sample.las"); }

    std::vector<uint8_t> make(uint64_t points, uint64_t seed, unsigned threads = 0)
    {
        options.points = points;
        options.seed = seed;
        options.threads = threads;
        options.overwrite = true;
        const Status status = writeSampleSurvey(options);
        EXPECT_TRUE(status) << status.message();
        return readFile(options.output);
    }
};

} // namespace

TEST_F(SampleSurveyTest, DependsOnSeedAndNumberOfPointsAlone)
{
    const std::vector<uint8_t> once = make(60000, 1, 1);
    EXPECT_TRUE(make(60000, 1, 3) == once);
    EXPECT_FALSE(make(60000, 2) == once);

    options.output = folder.file("survey.laz");
    const std::vector<uint8_t> compressed = make(60000, 1, 1);
    EXPECT_TRUE(make(60000, 1, 3) == compressed);
    const std::vector<uint8_t> records = readPoints(options.output).records;
    ASSERT_FALSE(records.empty());
    ASSERT_LT(records.size(), once.size());
    EXPECT_TRUE(std::equal(records.rbegin(), records.rend(), once.rbegin())) << "the points of the LAS file";
}

TEST_F(SampleSurveyTest, HasTheAskedNumberOfPointsAndATrueHeader)
{
    options.points = 0;
    EXPECT_FALSE(writeSampleSurvey(options));
    for (uint64_t points : {1u, 7u, 1000u, 1001u, 1002u, 1003u, 1004u, 1005u, 1006u, 1007u, 50000u}) {
        make(points, 4);
        LasFile file;
        ASSERT_TRUE(readLasFile(options.output, file));
        EXPECT_EQ(file.pointCount, points);
        EXPECT_EQ(file.pointDataEnd(), file.fileSize);
        EXPECT_TRUE(file.notes.empty());
        RecordScan scan;
        const std::vector<uint8_t> bytes = readFile(options.output);
        RecordFormat(7, 36).scan(&bytes[file.pointDataStart], points, scan);
        for (size_t axis = 0; axis < 3; ++axis) {
            EXPECT_DOUBLE_EQ(scan.min[axis] * file.scale[axis] + file.offset[axis], file.min[axis]);
            EXPECT_DOUBLE_EQ(scan.max[axis] * file.scale[axis] + file.offset[axis], file.max[axis]);
        }
        for (size_t i = 0; i < 15; ++i)
            EXPECT_EQ(file.pointsByReturn[i], scan.pointsByReturn[i + 1]);
        const uint8_t returns = *(bytes.end() - LasLayout::kPointSize + LasLayout::kReturns);
        EXPECT_EQ(returns & 0x0F, returns >> 4) << points << ": the last pulse is whole";
    }
}

TEST_F(SampleSurveyTest, LooksLikeASurvey)
{
    const std::vector<uint8_t> bytes = make(300000, 1);
    LasFile file;
    ASSERT_TRUE(readLasFile(options.output, file));
    ASSERT_EQ(file.vlrs.size(), 1u);
    EXPECT_EQ(file.globalEncoding, kGpsStandardTimeBit | kWktBit);
    for (size_t axis = 0; axis < 2; ++axis)
        EXPECT_GT(file.max[axis] - file.min[axis], 290);

    std::map<int, size_t> byClass, bySource, byReturns;
    double lastTime = 0;
    unsigned lastReturn = 0, lastReturns = 0, edges = 0;
    uint16_t darkest = 65535, brightest = 0;
    for (uint64_t i = 0; i < file.pointCount; ++i) {
        const uint8_t* record = &bytes[file.pointDataStart + i * LasLayout::kPointSize];
        const unsigned returnNumber = record[LasLayout::kReturns] & 0x0F;
        const unsigned returns = record[LasLayout::kReturns] >> 4;
        const double time = loadLe<double>(record + LasLayout::kGpsTime);
        // A pulse's returns stand together, in their order, at one time.
        ASSERT_EQ(returnNumber, lastReturn == lastReturns ? 1 : lastReturn + 1);
        ASSERT_LE(returnNumber, returns);
        if (returnNumber > 1) {
            ASSERT_EQ(returns, lastReturns);
            ASSERT_EQ(time, lastTime);
        } else {
            ASSERT_GT(time, lastTime);
        }
        lastTime = time;
        lastReturn = returnNumber;
        lastReturns = returns;
        ++byClass[record[LasLayout::kClass]];
        ++bySource[loadLe<uint16_t>(record + LasLayout::kPointSource)];
        ++byReturns[int(returns)];
        edges += record[LasLayout::kFlags] >> 7;
        EXPECT_LE(std::abs(loadLe<int16_t>(record + LasLayout::kScanAngle)) * 0.006, 25);
        darkest = std::min(darkest, loadLe<uint16_t>(record + LasLayout::kGreen));
        brightest = std::max(brightest, loadLe<uint16_t>(record + LasLayout::kGreen));
    }
    for (int pointClass : {1, 2, 3, 4, 5, 6, 9, 14})
        EXPECT_GT(byClass[pointClass], 50u) << "class " << pointClass;
    EXPECT_EQ(byClass.size(), 8u);
    EXPECT_EQ(byReturns.size(), 5u);
    EXPECT_GT(bySource[91], 0u) << "a cross line: those before it cover the land";
    EXPECT_GT(bySource.size(), 2u);
    EXPECT_GT(edges, 100u);
    EXPECT_LT(darkest, 15000);
    EXPECT_GT(brightest, 55000);
}
