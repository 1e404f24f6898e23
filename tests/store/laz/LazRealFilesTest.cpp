#include "tests/store/laz/LazTestFile.h"
#include "tests/store/laz/Md5.h"
#include "tests/support/RestoreSources.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/Builder.h>
#include <VelBrx/Verify.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

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
    const auto sums = listedSums(_folder / "INDEX.md");
    unsigned checked = 0;
    for (const auto& entry : fs::recursive_directory_iterator(_folder)) {
        const auto sum = sums.find(entry.path().filename());
        if (!isLaz(entry.path()) || sum == sums.end()) continue;
        SCOPED_TRACE(entry.path().string());
        const std::vector<uint8_t> records = decoded(entry.path());
        EXPECT_EQ(sum->second, md5(records.data(), records.size()));
        ++checked;
    }
    EXPECT_GE(checked, 45u);
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

TEST_F(LazRealFiles, StoresHoldEveryRecordOfTheirLazFile)
{
    const TempFolder folder;
    for (const char* name :
         {"pairs/PDAL__simple.laz", "pairs/loaders.gl__pdrf10-1.4.laz",
          "pairs/laz-rs__point-version-1-point-wise.laz", "survey/silvimetric__autzen_test.copc.laz"}) {
        SCOPED_TRACE(name);
        BuildOptions options;
        options.inputs = {(_folder / name).string()};
        options.output = folder.file("store.brx");
        options.overwrite = true;
        BuildReport report;
        const Status status = buildStore(options, report);
        ASSERT_TRUE(status) << status.message();
        EXPECT_TRUE(verifyStore(options.output).empty());

        LasFile file;
        ASSERT_TRUE(readLasFile(options.inputs.front(), file));
        const std::vector<uint8_t> restored = restoreSources(options.output).front();
        const auto first = restored.begin() + static_cast<ptrdiff_t>(file.pointDataStart);
        const std::vector<uint8_t> records(
            first, first + static_cast<ptrdiff_t>(file.pointCount * file.recordLength));
        EXPECT_TRUE(records == decoded(options.inputs.front()));
        const std::vector<uint8_t> source = readFile(options.inputs.front());
        EXPECT_TRUE(std::equal(restored.begin(), first, source.begin())) << "the head is kept as it is";
        const size_t tail = restored.size() - file.pointDataStart - records.size();
        EXPECT_TRUE(std::equal(restored.end() - static_cast<ptrdiff_t>(tail), restored.end(),
                               source.end() - static_cast<ptrdiff_t>(tail)))
            << "and what follows the points";
        EXPECT_EQ(source.size() - file.pointDataEnd(), tail);
    }
}
