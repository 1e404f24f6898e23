#include <VelBrx/PointRecord.h>
#include <VelBrx/PreviewStore.h>
#include <VelBrx/StoreInfo.h>

#include "store/io/ByteIo.h"
#include "tests/store/laz/TestLaz.h"
#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

using namespace VelBrx;

namespace {

constexpr uint16_t kRecordLengths[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

/// Points in a row, whose intensities go with their places.
TestLas rowOfPoints(int count, uint8_t format)
{
    TestLas las;
    las.pointFormat = format;
    las.versionMinor = format > 5 ? 4 : 3;
    las.recordLength = kRecordLengths[format];
    las.offset = {400000, 5600000, 0};
    las.vlrs.push_back(wktVlr("LOCAL_CS[\"yard\"]"));
    las.globalEncoding = 0x0010;
    for (int32_t i = 0; i < count; ++i) {
        std::vector<uint8_t>& record = las.addPoint(i, i % 100, i / 100);
        storeLe<uint16_t>(record.data() + 12, static_cast<uint16_t>(i));
    }
    return las;
}

/// Writes a LAS file as LAZ.
void compress(const std::string& las, const std::string& laz)
{
    const TempFolder folder;
    ExportOptions options;
    options.store = folder.file("all.brx");
    options.output = laz;
    options.overwrite = true;
    buildStoreOf(las, options.store);
    ExportReport report;
    const Status written = exportLas(options, report);
    ASSERT_TRUE(written) << written.message();
}

class PreviewStoreTest : public testing::Test
{
protected:
    PreviewStoreTest()
    {
        options.points = 2000;
        options.seconds = 60;
        options.threads = 2;
        options.folder = folder.file("temporary");
        std::filesystem::create_directory(options.folder);
    }

    /// The records of a preview that is gone already.
    std::vector<uint8_t> records()
    {
        StoreInfo info;
        std::unique_ptr<File> file;
        {
            PreviewStore preview;
            const Status built = buildPreview(options, preview);
            EXPECT_TRUE(built) << built.message();
            EXPECT_TRUE(std::filesystem::is_empty(options.folder)) << "it has a name";
            surveyPoints = preview.surveyPoints();
            if (!openStore(preview.path(), info, file)) return {};
            EXPECT_EQ(info.header.pointCount, preview.points());
        }
        system = info.header.projection.wkt;
        west = info.header.offset[0];
        const auto size = static_cast<int64_t>(info.header.pointCount * PointRecord::kPointSize);
        const auto* const first = static_cast<const uint8_t*>(file->map(info.header.pointDataStart, size));
        return first ? std::vector<uint8_t>(first, first + size) : std::vector<uint8_t>();
    }

    /// Numbers of the points in their file, ascending, where these go with a field of the records.
    template <typename Number>
    std::vector<int> numbers(size_t field, double shift = 0)
    {
        const std::vector<uint8_t> bytes = records();
        std::vector<int> found;
        for (size_t at = 0; at < bytes.size(); at += PointRecord::kPointSize)
            found.push_back(static_cast<int>(loadLe<Number>(&bytes[at + field]) + shift));
        std::sort(found.begin(), found.end());
        return found;
    }

    const TempFolder folder;
    PreviewOptions options;
    uint64_t surveyPoints = 0;
    std::string system;
    double west = 0; ///< of the store's coordinates
};

/// Of `count` points each twentieth part has about as many.
void expectEven(const std::vector<int>& found, int count)
{
    std::vector<double> inPart(20);
    for (const int number : found)
        ++inPart.at(static_cast<size_t>(int64_t{number} * 20 / count));
    const auto [fewest, most] = std::minmax_element(inPart.begin(), inPart.end());
    EXPECT_GT(*fewest, 0.8 * static_cast<double>(found.size()) / 20);
    EXPECT_LT(*most, 1.2 * static_cast<double>(found.size()) / 20);
}

} // namespace

TEST_F(PreviewStoreTest, HasPointsOfAllPartsOfAFileOfEachFormatInTheirPlaces)
{
    constexpr int kPoints = 60000;
    for (uint8_t format = 0; format < 11; ++format)
        for (const std::string ending : {"las", "laz"}) {
            SCOPED_TRACE(std::to_string(format) + " " + ending);
            const std::string las = folder.write("row.las", rowOfPoints(kPoints, format).bytes());
            options.input = folder.file("row." + ending);
            if (ending == "laz") compress(las, options.input);
            const std::vector<int> found = numbers<uint16_t>(PointRecord::kIntensity);
            EXPECT_NEAR(static_cast<double>(found.size()), 2000, 200);
            expectEven(found, kPoints);
            EXPECT_EQ(surveyPoints, uint64_t{kPoints});
            EXPECT_NE(system.find("yard"), std::string::npos);
            EXPECT_EQ(numbers<int32_t>(PointRecord::kX, 100 * (west - 400000)), found);
        }
}

TEST_F(PreviewStoreTest, IsAsEvenWhereTimeIsShort)
{
    TestLaz laz;
    laz.chunks.assign(400, std::vector<int32_t>(100));
    for (size_t i = 0; i < laz.chunks.size(); ++i)
        std::fill(laz.chunks[i].begin(), laz.chunks[i].end(), static_cast<int32_t>(i));
    options.input = folder.write("many.laz", laz.bytes());
    options.seconds = 0.002; // a part of each chunk, and perhaps not of all
    const std::vector<int> chunks = numbers<int32_t>(PointRecord::kZ);
    ASSERT_FALSE(chunks.empty());
    std::vector<int> seen = chunks;
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    const auto mean = 400 / static_cast<double>(seen.size());
    for (size_t i = 1; i < seen.size(); ++i)
        EXPECT_LT(seen[i] - seen[i - 1], 3 * mean + 1) << "of " << seen.size();

    laz.chunks.assign(2, std::vector<int32_t>(30000));
    options.input = folder.write("few.laz", laz.bytes());
    PreviewStore preview;
    const Status few = buildPreview(options, preview);
    EXPECT_EQ(few.message(),
              options.input + ": its points are compressed in 2 pieces, too few for a sample in short time");
}

TEST_F(PreviewStoreTest, IsNotMadeOfASmallOrDamagedFileNorWhenCancelled)
{
    PreviewStore preview;
    options.input = folder.write("row.las", rowOfPoints(1000, 6).bytes());
    options.leastPoints = 1001;
    EXPECT_TRUE(buildPreview(options, preview));
    EXPECT_EQ(preview.points(), 0u);
    options.leastPoints = 1000;
    const std::atomic<bool> cancel{true};
    options.cancel = &cancel;
    EXPECT_EQ(buildPreview(options, preview).kind(), Status::Kind::CANCELLED);
    options.cancel = nullptr;

    TestLaz laz;
    laz.chunks.assign(3, std::vector<int32_t>(5000));
    for (std::vector<int32_t>& chunk : laz.chunks)
        std::iota(chunk.begin(), chunk.end(), 0);
    std::vector<uint8_t> bytes = laz.bytes();
    for (size_t at = TestLaz::pointDataStart() + 8; at < laz.table(); ++at)
        bytes[at] = 0xFF;
    options.input = folder.write("damaged.laz", bytes);
    const Status damaged = buildPreview(options, preview);
    EXPECT_EQ(damaged.message().find(options.input + ": its points"), 0u) << damaged.message();
    options.input = folder.file("row.las");
    options.folder = folder.file("none");
    EXPECT_FALSE(buildPreview(options, preview));
    EXPECT_EQ(preview.points(), 0u);
    EXPECT_EQ(preview.path(), "");
}
