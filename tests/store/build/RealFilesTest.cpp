#include <VelBrx/Builder.h>
#include <VelBrx/Verify.h>

#include "tests/support/RestoreSources.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>

using namespace VelBrx;

namespace {

/// The LAS files in the folder of real files; empty where there is none.
std::set<std::filesystem::path> realFiles()
{
    std::set<std::filesystem::path> files;
    if (const char* folder = std::getenv("VELBRX_TEST_DATA"))
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.path().extension() == ".las") files.insert(entry.path());
    return files;
}

} // namespace

TEST(RealFiles, BuildIntoSoundStoresThatHoldEveryByteOrEndInOneLine)
{
    const std::set<std::filesystem::path> files = realFiles();
    if (files.empty()) GTEST_SKIP() << "VELBRX_TEST_DATA names no folder of LAS files";
    const TempFolder folder;
    const std::set<std::string> withoutPoints = {"PDAL__1.2-no-points.las", "PDAL__no-points.las",
                                                 "laz-perf__no-points-1.3.las"};
    BuildOptions options;
    options.output = folder.file("cloud.brx");
    options.overwrite = true;
    for (const std::filesystem::path& path : files) {
        SCOPED_TRACE(path.filename());
        options.inputs = {path.string()};
        BuildReport report;
        const Status status = buildStore(options, report);
        EXPECT_EQ(status.ok(), withoutPoints.count(path.filename().string()) == 0) << status.message();
        if (!status) {
            EXPECT_EQ(status.message(),
                      path.string() + ": has no points, so there is nothing to build a store of");
            continue;
        }
        const std::vector<std::string> problems = verifyStore(options.output);
        EXPECT_TRUE(problems.empty()) << problems[0];
        EXPECT_TRUE(restoreSources(options.output)[0] == readFile(path.string()))
            << "bytes of the source are lost";
    }
}

TEST(RealFiles, OfOneKindMakeOneStore)
{
    std::vector<std::string> inputs;
    for (const std::filesystem::path& path : realFiles())
        if (path.filename().string().rfind("syn_pf", 0) == 0) inputs.push_back(path.string());
    if (inputs.empty())
        GTEST_SKIP() << "VELBRX_TEST_DATA names no folder with the files of all point formats";
    const TempFolder folder;
    BuildOptions options;
    options.inputs = inputs;
    options.output = folder.file("cloud.brx");
    BuildReport report;
    const Status status = buildStore(options, report);
    ASSERT_TRUE(status) << status.message();
    EXPECT_TRUE(verifyStore(options.output).empty());
    const std::vector<std::vector<uint8_t>> restored = restoreSources(options.output);
    ASSERT_EQ(restored.size(), inputs.size());
    for (size_t i = 0; i < inputs.size(); ++i)
        EXPECT_TRUE(restored[i] == readFile(inputs[i])) << inputs[i];
}
