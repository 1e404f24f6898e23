#include "tests/store/laz/LazTestFile.h"
#include "tests/store/laz/Md5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

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

    /// The records of a file that must decode.
    static std::vector<uint8_t> decoded(const fs::path& path)
    {
        std::vector<uint8_t> records;
        LazChunkTable table;
        const Status status = decodeLaz(path, records, table);
        EXPECT_TRUE(status) << status.message();
        EXPECT_EQ("", table.note);
        return records;
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
    std::ifstream lines(index);
    const std::regex row(R"(^\| (\S+) \|.*records md5 ([0-9a-f]{32}).*)");
    for (std::string line; std::getline(lines, line);)
        if (std::smatch match; std::regex_match(line, match, row)) sums[match[1]] = match[2];
    return sums;
}

} // namespace

TEST_F(LazRealFiles, PairsDecodeToTheRecordsOfTheirLasFile)
{
    unsigned pairs = 0;
    const auto compare = [&](const fs::path& laz, const fs::path& las) {
        SCOPED_TRACE(laz.string());
        EXPECT_TRUE(decoded(laz) == lasRecords(las));
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
