#include "tests/support/ReadFile.h"
#include "tests/support/ReadPoints.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include "store/io/ByteIo.h"
#include "store/las/RecordFormat.h"
#include "store/las/laz/LazChunkEncoder.h"

#include <VelBrx/Builder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

using namespace VelBrx;
namespace fs = std::filesystem;

namespace {

/// The folder of real files; tests that need it are skipped without.
class LazRealFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        const char* folder = std::getenv("VELBRX_TEST_DATA");
        if (!folder) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of real files";
        _folder = folder;
    }

    /// The records of a file that must be read without a complaint.
    static std::vector<uint8_t> decoded(const fs::path& path)
    {
        const ReadPoints points = readPoints(path);
        EXPECT_TRUE(points.status) << points.status.message();
        for (const std::string& note : points.notes)
            EXPECT_EQ(std::string::npos, note.find("chunk table")) << note;
        for (const std::string& note : points.notes)
            EXPECT_EQ(std::string::npos, note.find("damaged")) << note;
        return points.records;
    }

    static bool isLaz(const fs::path& path)
    {
        return path.extension() == ".laz" || path.extension() == ".LAZ";
    }

    fs::path _folder;
};

/// "records md5" by file name, as the index of the files lists them.
std::map<std::string, std::string> listedSums(const fs::path& index)
{
    std::map<std::string, std::string> sums;
    const std::string label = "records md5 ";
    std::ifstream lines(index);
    for (std::string line; std::getline(lines, line);) {
        const size_t sum = line.find(label);
        if (line.rfind("| ", 0) == 0 && sum != std::string::npos)
            sums[line.substr(2, line.find(" |", 2) - 2)] = line.substr(sum + label.size(), 32);
    }
    return sums;
}

} // namespace

TEST_F(LazRealFiles, PairsDecodeToTheRecordsOfTheirLasFile)
{
    unsigned pairs = 0;
    const auto compare = [&](const fs::path& laz, const fs::path& las) {
        SCOPED_TRACE(laz.string());
        EXPECT_TRUE(decoded(laz) == decoded(las));
        ++pairs;
    };
    for (const auto& entry : fs::directory_iterator(_folder / "laz-pairs")) {
        if (!isLaz(entry.path())) continue;
        const std::string name = entry.path().stem();
        compare(entry.path(), entry.path().parent_path() / (name.substr(0, name.rfind('_')) + ".las"));
    }
    for (const auto& entry : fs::directory_iterator(_folder / "pairs"))
        if (const fs::path las = fs::path(entry.path()).replace_extension(".las");
            isLaz(entry.path()) && fs::exists(las))
            compare(entry.path(), las);
    for (const auto& entry : fs::directory_iterator(_folder / "derived")) {
        const std::string name = entry.path().filename().string();
        const std::string stem = name.substr(0, name.find(".decoded.las"));
        for (const char* extension : {".laz", ".copc.laz"})
            if (const fs::path laz = _folder / "survey" / (stem + extension); fs::exists(laz))
                compare(laz, entry.path());
    }
    EXPECT_GE(pairs, 50u);
}

TEST_F(LazRealFiles, RecordsHaveTheirListedSums)
{
    const TempFolder folder;
    const auto sums = listedSums(_folder / "INDEX.md");
    unsigned checked = 0;
    for (const auto& entry : fs::recursive_directory_iterator(_folder)) {
        const auto sum = sums.find(entry.path().filename());
        if (!isLaz(entry.path()) || sum == sums.end()) continue;
        SCOPED_TRACE(entry.path().string());
        const std::string records = folder.write("records", decoded(entry.path()));
        EXPECT_EQ(sum->second, runProgram({"md5sum", records}).out.substr(0, 32));
        ++checked;
    }
    EXPECT_GE(checked, 45u);
}

/// What other writers made of the same records, chunk for chunk; then their table of chunks.
TEST_F(LazRealFiles, AreEncodedToTheBytesThatTheyHave)
{
    // Its writer stores layers of extra bytes that never change.
    const std::set<std::string> exceptions = {"patchwork__recipient_more_fields_test.laz"};
    std::set<unsigned> formats;
    unsigned files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(_folder)) {
        if (!isLaz(entry.path()) || exceptions.count(entry.path().filename())) continue;
        const ReadPoints points = readPoints(entry.path());
        if (!points.status || points.records.empty() || !points.notes.empty()) continue;
        const LazItems& items = points.file.laz->items;
        if (!items.hasChunks() || items.items.front().version == 1) continue;
        SCOPED_TRACE(entry.path().string());
        const std::vector<uint8_t> file = readFile(entry.path());
        const std::vector<LazChunk>& chunks = points.file.laz->chunks.chunks;
        LazChunkEncoder encoder(items);
        std::vector<uint8_t> encoded;
        for (const LazChunk& chunk : chunks) {
            encoder.encode(&points.records[chunk.firstPoint * items.recordLength], chunk.pointCount, encoded);
            ASSERT_TRUE(chunk.size == encoded.size() &&
                        std::equal(encoded.begin(), encoded.end(), &file[chunk.position]))
                << "from point " << chunk.firstPoint;
        }
        const std::vector<uint8_t> table = makeLazChunkTable(chunks, items.chunkSize == 0);
        ASSERT_EQ(points.file.laz->chunks.end, chunks.back().end() + table.size());
        EXPECT_TRUE(std::equal(table.begin(), table.end(), &file[chunks.back().end()]));
        formats.insert(points.file.pointFormat);
        ++files;
    }
    EXPECT_GE(files, 75u);
    EXPECT_EQ(11u, formats.size());
}

TEST_F(LazRealFiles, ScanTheSameWithoutTheFieldsThatAScanLeavesOut)
{
    unsigned spared = 0;
    for (const auto& entry : fs::recursive_directory_iterator(_folder)) {
        if (!isLaz(entry.path())) continue;
        const ReadPoints whole = readPoints(entry.path());
        if (!whole.status) continue;
        SCOPED_TRACE(entry.path().string());
        const RecordFormat format(whole.file.pointFormat, whole.file.recordLength);
        const auto scanned = [&](const ReadPoints& points) {
            RecordScan scan;
            format.scan(points.records.data(), points.records.size() / format.recordLength(), scan);
            return scan;
        };
        const RecordScan all = scanned(whole);
        for (const RecordFields fields : {RecordFields::Places, RecordFields::PlacesAndColors}) {
            const ReadPoints some = readPoints(entry.path(), fields);
            ASSERT_TRUE(some.status) << some.status.message();
            ASSERT_EQ(whole.records.size(), some.records.size());
            for (size_t at = 0; at < whole.records.size(); at += format.recordLength())
                ASSERT_TRUE(std::equal(&whole.records[at], &whole.records[at] + 12, &some.records[at])) << at;
            const RecordScan scan = scanned(some);
            EXPECT_EQ(all.pointsByReturn, scan.pointsByReturn);
            EXPECT_TRUE(fields == RecordFields::Places || all.maxColor == scan.maxColor);
            spared += some.records != whole.records;
        }
    }
    EXPECT_GE(spared, 20u) << "what is not asked for is not decoded";
}

TEST_F(LazRealFiles, BuildsFailOfDamageThatTheirScanDoesNotMeet)
{
    // Chunks of this file start with a point of 36 bytes, their number of points and the sizes of ten layers.
    const fs::path path = _folder / "survey" / "silvimetric__autzen_test.copc.laz";
    const ReadPoints whole = readPoints(path, RecordFields::Places);
    ASSERT_EQ(36u, whole.file.recordLength);
    const LazChunk& chunk = whole.file.laz->chunks.chunks.back();
    const size_t sizes = chunk.position + 36 + 4;
    std::vector<uint8_t> bytes = readFile(path);
    size_t gpsTime = sizes + 4 * 10;
    for (size_t layer = 0; layer < 8; ++layer)
        gpsTime += loadLe<uint32_t>(&bytes[sizes + 4 * layer]);
    std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(gpsTime), 100, uint8_t{0xFF});

    const TempFolder folder;
    BuildOptions options;
    options.inputs = {folder.write("damaged.laz", bytes)};
    options.output = folder.file("store.brx");
    EXPECT_TRUE(readPoints(options.inputs.front(), RecordFields::Places).status);
    BuildReport report;
    const Status status = buildStore(options, report);
    EXPECT_FALSE(status);
    EXPECT_NE(std::string::npos, status.message().find("damaged.laz: its points from number"))
        << status.message();
    EXPECT_EQ(1, std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()));
}

TEST_F(LazRealFiles, LayeredFilesWithFaultsAreReadOrFail)
{
    const TempFolder folder;
    const std::vector<uint8_t> whole = readFile(_folder / "pairs" / "laspy__1_4_w_evlr.laz");
    const std::vector<uint8_t> records = decoded(_folder / "pairs" / "laspy__1_4_w_evlr.las");
    ASSERT_FALSE(records.empty());
    for (size_t size = 375; size < whole.size(); size += 19) {
        const ReadPoints points =
            readPoints(folder, {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)});
        EXPECT_TRUE(!points.status || points.records == records || !points.notes.empty()) << size;
    }
    std::mt19937 random(3);
    for (unsigned round = 0; round < 1500; ++round) {
        std::vector<uint8_t> bytes = whole;
        for (unsigned flips = 1 + random() % 3; flips > 0; --flips)
            bytes[94 + random() % (bytes.size() - 94)] ^= static_cast<uint8_t>(1 << random() % 8);
        const ReadPoints points = readPoints(folder, bytes);
        EXPECT_TRUE(points.status || !points.status.message().empty());
    }
}
