#include <VelBrx/Builder.h>
#include <VelBrx/ExportLas.h>
#include <VelBrx/Verify.h>

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "tests/support/ReadFile.h"
#include "tests/support/ReadPoints.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <set>

using namespace VelBrx;

namespace {

#ifdef __SANITIZE_THREAD__
constexpr uintmax_t kLargestFile = 500000; ///< bytes; more points show no other thread, and take minutes
#else
constexpr uintmax_t kLargestFile = std::numeric_limits<uintmax_t>::max();
#endif

/// The LAS or LAZ files in the folder of real files; empty where there is none.
std::set<std::filesystem::path> realFiles(const std::string& wantedExtension)
{
    std::set<std::filesystem::path> files;
    const char* const folder = std::getenv("VELBRX_TEST_DATA");
    if (!folder) return files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        std::string extension = entry.path().extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
        if (extension == wantedExtension && entry.file_size() <= kLargestFile) files.insert(entry.path());
    }
    return files;
}

/// Builds the store cloud.brx of a file; it must be sound. False where the file has no points or is kept for
/// its damage.
bool build(const TempFolder& folder, const std::string& path)
{
    BuildOptions options;
    options.inputs = {path};
    options.output = folder.file("cloud.brx");
    options.overwrite = true;
    BuildReport built;
    if (const Status status = buildStore(options, built); !status) {
        const std::string empty = path + ": has no points, so there is nothing to build a store of";
        const bool isDamaged = path.find("/bad/") != std::string::npos;
        EXPECT_TRUE(status.message() == empty || isDamaged) << status.message();
        return false;
    }
    EXPECT_EQ(verifyStore(options.output), std::vector<std::string>());
    return true;
}

/// Exports cloud.brx to `out`.
ExportReport exportTo(const TempFolder& folder, const std::string& out)
{
    ExportOptions options;
    options.store = folder.file("cloud.brx");
    options.output = out;
    options.overwrite = true;
    ExportReport report;
    const Status status = exportLas(options, report);
    EXPECT_TRUE(status) << status.message();
    return report;
}

using Vlrs = std::vector<std::pair<std::string, std::vector<uint8_t>>>;

/// The VLRs that an exported file keeps, whole.
Vlrs keptVlrs(const std::vector<LasVlr>& vlrs)
{
    Vlrs kept;
    for (const LasVlr& vlr : vlrs)
        if (vlr.userId != "laszip encoded" && vlr.userId != "copc")
            kept.push_back({std::string(vlr.head.begin(), vlr.head.end()), vlr.data});
    return kept;
}

} // namespace

TEST(ExportRealFiles, GivesBackEveryByteOfEveryLasFile)
{
    const std::set<std::filesystem::path> files = realFiles(".las");
    if (files.empty()) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of LAS files";
    const TempFolder folder;
    size_t exported = 0;
    for (const std::filesystem::path& path : files) {
        SCOPED_TRACE(path.filename());
        if (!build(folder, path.string())) continue;
        const ExportReport report = exportTo(folder, folder.file("out.las"));
        EXPECT_TRUE(readFile(folder.file("out.las")) == readFile(path.string()));
        EXPECT_EQ(report.files.at(0).changed, 0u);
        ++exported;
    }
    EXPECT_GE(exported, files.size() * 9 / 10);
}

TEST(ExportRealFiles, GivesTheRecordsOfEveryLazFileBack)
{
    const std::set<std::filesystem::path> files = realFiles(".laz");
    if (files.empty()) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of LAZ files";
    const TempFolder folder;
    size_t exported = 0;
    for (const std::filesystem::path& path : files) {
        SCOPED_TRACE(path.filename());
        if (!build(folder, path.string())) continue;
        const ReadPoints before = readPoints(path.string());
        EXPECT_TRUE(before.status) << before.status.message();
        for (const bool compressed : {false, true}) {
            const std::string out = folder.file(compressed ? "out.laz" : "out.las");
            exportTo(folder, out);
            const ReadPoints after = readPoints(out);
            EXPECT_TRUE(after.status) << after.status.message();
            EXPECT_TRUE(after.records == before.records);
            EXPECT_EQ(after.file.laz.has_value(), compressed);
            EXPECT_LE(after.file.notes.size(), before.file.notes.size());
            EXPECT_EQ(after.file.pointFormat, before.file.pointFormat);
            EXPECT_TRUE(keptVlrs(after.file.vlrs) == keptVlrs(before.file.vlrs));
            EXPECT_TRUE(keptVlrs(after.file.evlrs) == keptVlrs(before.file.evlrs));
            EXPECT_EQ(readFile(out).size(), after.file.fileSize);
        }
        ++exported;
    }
    EXPECT_GE(exported, files.size() * 8 / 10);
}

/// Of files that another writer compressed: the same head, except for the words and versions by which it
/// tells of itself and for the number of points in a chunk.
TEST(ExportRealFiles, CompressedFilesHaveTheHeadsThatOthersGiveThem)
{
    const std::set<std::filesystem::path> files = realFiles(".las");
    if (files.empty()) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of LAS files";
    const TempFolder folder;
    const auto headOf = [](const std::string& path) {
        std::vector<uint8_t> head = readFile(path);
        head.resize(loadLe<uint32_t>(&head[LasLayout::kPointDataStart]));
        const std::string id = kLazUserId;
        const auto vlr = std::search(head.begin(), head.end(), id.begin(), id.end()) - LasLayout::kVlrUserId;
        std::fill_n(vlr, 2, uint8_t{0}); // reserved
        std::fill_n(vlr + LasLayout::kVlrDescription, LasLayout::kDescriptionSize, uint8_t{0});
        std::fill_n(vlr + LasLayout::kVlrHeaderSize + 4, 12, uint8_t{0}); // version, options, chunk size
        return head;
    };
    size_t compared = 0;
    for (const std::filesystem::path& path : files) {
        if (path.parent_path().filename() != "laz-pairs") continue;
        const std::string stem = path.string().substr(0, path.string().size() - 4);
        for (const char* version : {"_v2.laz", "_v3.laz"}) {
            if (!std::filesystem::exists(stem + version)) continue;
            SCOPED_TRACE(stem + version);
            const std::string out = folder.file("out.laz");
            ASSERT_TRUE(build(folder, path.string()));
            exportTo(folder, out);
            EXPECT_TRUE(headOf(out) == headOf(stem + version));
            ++compared;
        }
    }
    EXPECT_GE(compared, 15u);
}
