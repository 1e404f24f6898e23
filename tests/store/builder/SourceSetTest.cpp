#include "store/builder/SourceSet.h"

#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <random>

using namespace VelBrx;

namespace {

/// A LAZ file of several chunks with random attributes.
std::string writeLaz(const TempFolder& folder)
{
    TestLas las;
    std::mt19937 random(1);
    for (int i = 0; i < 120000; ++i) {
        std::vector<uint8_t>& record =
            las.addPoint(static_cast<int32_t>(random() % 100000), static_cast<int32_t>(random() % 100000), i);
        for (size_t byte = 14; byte < record.size(); ++byte)
            record[byte] = static_cast<uint8_t>(random());
    }
    buildStoreOf(folder.write("cloud.las", las.bytes()), folder.file("cloud.brx"));
    ExportOptions options;
    options.store = folder.file("cloud.brx");
    options.output = folder.file("cloud.laz");
    ExportReport report;
    EXPECT_TRUE(exportLas(options, report));
    return options.output;
}

/// The records of a part; empty where it cannot be read.
std::vector<uint8_t> recordsOf(const SourceSet& sources, const SourceSet::Part& part)
{
    std::vector<uint8_t> records;
    const auto append = [&](const PointBatch& batch) {
        EXPECT_EQ(batch.first * 36, part.index * 50000 * 36 + records.size());
        records.insert(records.end(), batch.records.begin(), batch.records.end());
        return Status();
    };
    return sources.readPart(part, append, RecordFields::All) ? records : std::vector<uint8_t>();
}

} // namespace

TEST(SourceSetTest, KeepsWholeRecordsOfAsManyPartsAsFit)
{
    const TempFolder folder;
    const std::string path = writeLaz(folder);
    for (const auto& [points, keptParts] : {std::pair{0, 0u}, {19999, 0u}, {70000, 2u}, {120000, 3u}}) {
        SourceSet sources;
        ASSERT_TRUE(sources.open({path}));
        ASSERT_TRUE(sources.dropUnreadable());
        const std::vector<SourceSet::Part> parts = sources.parts();
        ASSERT_EQ(parts.size(), 3u);
        ParallelRun run(1, nullptr, nullptr);
        ASSERT_TRUE(sources.scan(run, static_cast<uint64_t>(points) * 36, [](size_t, const PointBatch&) {}));
        std::filesystem::rename(path, path + ".away");
        std::vector<std::vector<uint8_t>> kept;
        for (const SourceSet::Part& part : parts)
            kept.push_back(recordsOf(sources, part));
        std::filesystem::rename(path + ".away", path);
        size_t keptCount = 0;
        for (const SourceSet::Part& part : parts) {
            sources.forget(part);
            const std::vector<uint8_t> read = recordsOf(sources, part);
            EXPECT_EQ(read.size(), std::min<size_t>(50000, 120000 - part.index * 50000) * 36);
            if (kept[part.number].empty()) continue;
            EXPECT_TRUE(kept[part.number] == read) << part.index;
            ++keptCount;
        }
        EXPECT_EQ(keptCount, keptParts) << points;
    }
}
