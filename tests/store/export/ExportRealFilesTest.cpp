#include <VelBrx/ExportLas.h>
#include <VelBrx/Verify.h>

#include "store/las/PointSource.h"
#include "tests/support/RestoreSources.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>

using namespace VelBrx;

namespace {

/// The LAS or LAZ files in the folder of real files; empty where there is none.
std::set<std::filesystem::path> realFiles(const std::string& wantedExtension)
{
    std::set<std::filesystem::path> files;
    const char* const folder = std::getenv("VELBRX_TEST_DATA");
    if (!folder) return files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        std::string extension = entry.path().extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
        if (extension == wantedExtension) files.insert(entry.path());
    }
    return files;
}

/// Builds a store of a file, which must be sound, and exports it to `out`. False where the file has no points
/// or is kept for its damage.
bool roundTrip(const TempFolder& folder, const std::string& path, const std::string& out,
               ExportReport& report)
{
    BuildOptions build;
    build.inputs = {path};
    build.output = folder.file("cloud.brx");
    build.overwrite = true;
    BuildReport built;
    if (const Status status = buildStore(build, built); !status) {
        const std::string empty = path + ": has no points, so there is nothing to build a store of";
        const bool isDamaged = path.find("/bad/") != std::string::npos;
        EXPECT_TRUE(status.message() == empty || isDamaged) << status.message();
        return false;
    }
    EXPECT_EQ(verifyStore(build.output), std::vector<std::string>());
    ExportOptions options;
    options.store = build.output;
    options.output = out;
    options.overwrite = true;
    const Status status = exportLas(options, report);
    EXPECT_TRUE(status) << status.message();
    return true;
}

/// All records of a LAS or LAZ file.
std::vector<uint8_t> recordsOf(const std::string& path, LasFile& file)
{
    std::unique_ptr<PointSource> source;
    const Status status = openPointSource(path, source);
    EXPECT_TRUE(status) << status.message();
    std::vector<uint8_t> records;
    if (!status) return records;
    file = source->file();
    for (uint64_t part = 0; part < source->partCount(); ++part)
        EXPECT_TRUE(source->readPart(part, [&](const PointBatch& batch) {
            records.insert(records.end(), batch.records.begin(), batch.records.end());
            return Status();
        }));
    return records;
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
        ExportReport report;
        if (!roundTrip(folder, path.string(), folder.file("out.las"), report)) continue;
        EXPECT_TRUE(readFile(folder.file("out.las")) == readFile(path.string()));
        EXPECT_EQ(report.files.at(0).changed, 0u);
        ++exported;
    }
    EXPECT_GE(exported, files.size() * 9 / 10);
}

TEST(ExportRealFiles, GivesTheRecordsOfEveryLazFileBackUncompressed)
{
    const std::set<std::filesystem::path> files = realFiles(".laz");
    if (files.empty()) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of LAZ files";
    const TempFolder folder;
    size_t exported = 0;
    for (const std::filesystem::path& path : files) {
        SCOPED_TRACE(path.filename());
        const std::string out = folder.file("out.las");
        ExportReport report;
        if (!roundTrip(folder, path.string(), out, report)) continue;
        LasFile before;
        LasFile after;
        const std::vector<uint8_t> records = recordsOf(path.string(), before);
        EXPECT_TRUE(recordsOf(out, after) == records);
        EXPECT_FALSE(after.laz);
        EXPECT_EQ(after.pointFormat, before.pointFormat);
        EXPECT_TRUE(keptVlrs(after.vlrs) == keptVlrs(before.vlrs));
        EXPECT_TRUE(keptVlrs(after.evlrs) == keptVlrs(before.evlrs));
        EXPECT_EQ(readFile(out).size(), after.fileSize);
        ++exported;
    }
    EXPECT_GE(exported, files.size() * 8 / 10);
}
