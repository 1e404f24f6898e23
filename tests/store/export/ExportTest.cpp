#include <VelBrx/Builder.h>
#include <VelBrx/ExportLas.h>
#include <VelBrx/Normals.h>
#include <VelBrx/PointVisit.h>
#include <VelBrx/SourcePoint.h>
#include <VelBrx/Verify.h>

#include "store/SourceRecords.h"
#include "store/io/ByteIo.h"
#include "store/las/ExtraFields.h"
#include "store/las/LasFile.h"
#include "store/las/LasLayout.h"
#include "store/las/RecordFormat.h"
#include "tests/support/BuildStore.h"
#include "tests/support/ReadFile.h"
#include "tests/support/ReadPoints.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"
#include "tests/support/TestStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>

using namespace VelBrx;
using namespace VelBrx::LasLayout;

namespace {

using Bytes = std::vector<uint8_t>;

/// Points of random attributes in any format.
TestLas randomLas(uint8_t pointFormat, size_t count, unsigned seed, uint16_t extraBytes = 0)
{
    TestLas las;
    las.pointFormat = pointFormat;
    las.recordLength = static_cast<uint16_t>(coreRecordLength(pointFormat) + extraBytes);
    las.versionMinor = pointFormat < 4 ? 2 : 4;
    std::mt19937 random(seed);
    const auto place = [&] { return static_cast<int32_t>(random() % 100000); };
    for (size_t i = 0; i < count; ++i) {
        Bytes& record = las.addPoint(place(), place(), place() / 50);
        for (size_t byte = 12; byte < record.size(); ++byte)
            record[byte] = static_cast<uint8_t>(random());
    }
    return las;
}

size_t recordsStart(const Bytes& las)
{
    return loadLe<uint32_t>(&las[kPointDataStart]);
}

class ExportTest : public testing::Test
{
protected:
    TempFolder folder;
    std::vector<Bytes> sources;
    BuildOptions build;
    ExportOptions options;
    ExportReport report;

    ExportTest()
    {
        build.output = options.store = folder.file("cloud.brx");
        options.output = folder.file("out.las");
        options.overwrite = true;
    }

    void addSource(const TestLas& las)
    {
        sources.push_back(las.bytes());
        build.inputs.push_back(
            folder.write("source" + std::to_string(build.inputs.size()) + ".las", sources.back()));
    }

    void buildIt()
    {
        BuildReport built;
        const Status status = buildStore(build, built);
        ASSERT_TRUE(status) << status.message();
    }

    /// Changes points of the store as an edit does: `edit` gets the record of every point and its ordinal.
    void editStore(const std::function<void(uint8_t*, uint64_t)>& edit)
    {
        FileReader reader;
        StoreHead head;
        StoreIndex index;
        SourceRecords records;
        ASSERT_TRUE(readStore(options.store, reader, head, index));
        ASSERT_TRUE(readSourceRecords(reader, head, records));
        Bytes store = readFile(options.store);
        const uint8_t* ordinal = &store[size_t(head.origin.start) + records.origin.ordinalStart];
        for (uint64_t i = 0; i < head.header.pointCount; ++i)
            edit(&store[size_t(head.header.pointDataStart) + i * kPointSize],
                 loadLe<uint32_t>(ordinal + 4 * i));
        folder.write("cloud.brx", store);
    }

    void exportIt()
    {
        const Status status = exportLas(options, report);
        ASSERT_TRUE(status) << status.message();
    }

    void expectFailure(const std::string& words)
    {
        const Status status = exportLas(options, report);
        EXPECT_FALSE(status);
        EXPECT_NE(status.message().find(words), std::string::npos) << status.message();
        EXPECT_EQ(status.message().find('\n'), std::string::npos);
    }

    /// That a visit of the part meets the points of merged records, each once, and coarse levels a few.
    void expectVisits(const Bytes& records, size_t length)
    {
        std::multiset<std::array<double, 3>> expected;
        std::multiset<std::array<double, 3>> found;
        LasFile head;
        ASSERT_TRUE(readLasFile(options.output, head));
        for (size_t at = 0; at < records.size(); at += length) {
            std::array<double, 3> place;
            for (size_t axis = 0; axis < 3; ++axis)
                place[axis] = loadLe<int32_t>(&records[at + 4 * axis]) * head.scale[axis] + head.offset[axis];
            expected.insert(place);
        }
        PointVisit wanted;
        wanted.store = options.store;
        wanted.part = options.part;
        wanted.threads = 3;
        std::mutex mutex;
        const auto visit = [&](const PointBlock& block) {
            const std::lock_guard lock(mutex);
            for (size_t i = 0; i < block.count; ++i)
                found.insert({block.coordinate(i, 0), block.coordinate(i, 1), block.coordinate(i, 2)});
            EXPECT_LE(block.level, wanted.lastLevel);
        };
        ASSERT_TRUE(visitPoints(wanted, visit));
        EXPECT_TRUE(found == expected);
        found.clear();
        wanted.lastLevel = 0;
        ASSERT_TRUE(visitPoints(wanted, visit));
        EXPECT_LE(2 * found.size(), expected.size());
        EXPECT_TRUE(std::includes(expected.begin(), expected.end(), found.begin(), found.end()));
    }

    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    Bytes output() const { return readFile(options.output); }

    /// The LAS file of a LAZ file's points, by a store of its own.
    Bytes uncompressed(const std::string& path)
    {
        EXPECT_TRUE(readPoints(path).notes.empty());
        ExportOptions plain;
        plain.store = folder.file("again.brx");
        buildStoreOf(path, plain.store);
        plain.output = folder.file("again.las");
        plain.overwrite = true;
        ExportReport plainReport;
        const Status isExported = exportLas(plain, plainReport);
        EXPECT_TRUE(isExported) << isExported.message();
        return readFile(plain.output);
    }
};

/// Whether a place is in a star with a hole, by the turns that the rings make around it.
bool isInStar(const MapPolygon& star, double x, double y)
{
    int around = 0;
    for (const auto& ring : star) {
        double turned = 0;
        for (size_t i = 0; i < ring.size(); ++i) {
            const auto& a = ring[i];
            const auto& b = ring[(i + 1) % ring.size()];
            turned +=
                std::remainder(std::atan2(b[1] - y, b[0] - x) - std::atan2(a[1] - y, a[0] - x), 2 * M_PI);
        }
        around += std::abs(turned) > M_PI;
    }
    return around % 2;
}

/// Classes of the edits of these tests, from a point's place in its source.
uint8_t newClass(uint64_t ordinal, uint8_t old)
{
    return ordinal % 7 == 0 ? static_cast<uint8_t>(ordinal % 32) : old;
}

} // namespace

TEST_F(ExportTest, GivesAnEditedSourceBackButForClassAndWithheldBit)
{
    for (uint8_t format : {1, 3, 5, 6, 7, 8, 10}) {
        SCOPED_TRACE(int(format));
        sources.clear();
        build.inputs.clear();
        build.overwrite = true;
        TestLas las = randomLas(format, 20000, format, 5);
        las.gap = {1, 2, 3};
        las.vlrs = {{"someone", 7, {1, 2, 3, 4}}};
        if (format >= 4) las.evlrs = {{"behind", 1, Bytes(70000, 3)}};
        addSource(las);
        buildIt();
        exportIt();
        EXPECT_TRUE(output() == sources[0]);
        EXPECT_EQ(report.files.at(0).changed, 0u);

        editStore([](uint8_t* record, uint64_t ordinal) {
            record[kClass] = newClass(ordinal, record[kClass]);
            if (ordinal % 3 == 0) record[kFlags] ^= 0x04;
        });
        Bytes expected = sources[0];
        uint64_t changed = 0;
        for (size_t i = 0; i < las.records.size(); ++i) {
            uint8_t* const record = &expected[las.pointDataStart() + i * las.recordLength];
            const Bytes before(record, record + las.recordLength);
            if (format <= 5) {
                record[15] = static_cast<uint8_t>((record[15] & 0xE0) | newClass(i, record[15] & 0x1F));
                if (i % 3 == 0) record[15] ^= 0x80;
            } else {
                record[16] = newClass(i, record[16]);
                if (i % 3 == 0) record[15] ^= 0x04;
            }
            changed += !std::equal(before.begin(), before.end(), record);
        }
        exportIt();
        EXPECT_TRUE(output() == expected);
        EXPECT_EQ(report.files.at(0).changed, changed);
    }
}

TEST_F(ExportTest, GivesTheSameBytesWithLittleMemoryAndAnyNumberOfThreads)
{
    addSource(randomLas(7, 150000, 1, 3));
    addSource(randomLas(2, 0, 1));
    addSource(randomLas(3, 130000, 2));
    buildIt();
    options.form = ExportForm::Split;
    options.output = folder.file("parts");
    for (unsigned threads : {1u, 4u}) {
        options.threads = threads;
        for (uint64_t memory : {uint64_t(1) << 30, uint64_t(1)}) {
            options.memory = memory;
            exportIt();
            ASSERT_EQ(report.files.size(), 3u);
            for (size_t i = 0; i < 3; ++i)
                EXPECT_TRUE(readFile(report.files[i].path) == sources[i]) << i << ", memory " << memory;
        }
    }
    EXPECT_EQ(report.files[2].path, folder.file("parts/source2.las"));

    options.form = ExportForm::Automatic;
    options.output = folder.file("out.las");
    exportIt();
    const Bytes merged = output();
    options.memory = uint64_t(1) << 30;
    exportIt();
    EXPECT_TRUE(output() == merged);
}

TEST_F(ExportTest, SplitsManySourcesOfAllKinds)
{
    build.inputs.clear();
    for (unsigned i = 0; i < 150; ++i) {
        TestLas las =
            randomLas(static_cast<uint8_t>(i % 11), i % 5 == 3 ? 0 : 100, i, static_cast<uint16_t>(i % 4));
        las.scale.fill(i % 3 == 0 ? 0.01 : 0.0025);
        las.offset.fill(i % 7 == 0 ? 0.0007 : 100.25); // not all on one grid: coordinates are kept
        las.evlrs.clear();
        addSource(las);
    }
    buildIt();
    options.form = ExportForm::Split;
    options.output = folder.file("parts");
    exportIt();
    ASSERT_EQ(report.files.size(), sources.size());
    for (size_t i = 0; i < sources.size(); ++i)
        EXPECT_TRUE(readFile(report.files[i].path) == sources[i]) << i;
}

TEST_F(ExportTest, GivesSourcesBackWhoseScaleAndOffsetDoNotGoTogether)
{
    struct Frame
    {
        double scale;
        double offset;
    };
    const std::vector<Frame> cases[] = {{{1e-310, 194000}}, {{1e-12, 5e5}}, {{1e-310, 0}},
                                        {{0.01, 2e183}},    {{1e290, 0}},   {{1e-10, 5}, {1, 0}}};
    options.form = ExportForm::Split;
    options.output = folder.file("parts");
    build.overwrite = true;
    for (const std::vector<Frame>& frames : cases) {
        SCOPED_TRACE(frames[0].scale);
        sources.clear();
        build.inputs.clear();
        for (const Frame& frame : frames) {
            TestLas las = randomLas(7, 200, 1);
            las.scale[0] = frame.scale;
            las.offset[0] = frame.offset;
            for (Bytes& record : las.records)
                if (frame.scale == 1) storeLe<int32_t>(record.data(), 5);
            addSource(las);
        }
        buildIt();
        EXPECT_EQ(verifyStore(options.store), std::vector<std::string>());
        NormalsOptions normals;
        normals.store = options.store;
        normals.overwrite = true;
        EXPECT_TRUE(writeNormals(normals));
        exportIt();
        for (size_t i = 0; i < sources.size(); ++i)
            EXPECT_TRUE(readFile(report.files.at(i).path) == sources[i]);
    }
}

TEST_F(ExportTest, NamesTheFilesOfSourcesApart)
{
    std::filesystem::create_directory(folder.file("a"));
    std::filesystem::create_directory(folder.file("b"));
    const Bytes first = randomLas(7, 10, 1).bytes();
    const Bytes second = randomLas(7, 10, 2).bytes();
    build.inputs = {folder.write("a/tile.las", first), folder.write("b/tile.las", second)};
    buildIt();
    options.form = ExportForm::Split;
    options.output = folder.file("parts");
    exportIt();
    EXPECT_TRUE(readFile(folder.file("parts/tile.las")) == first);
    EXPECT_TRUE(readFile(folder.file("parts/tile_2.las")) == second);
}

TEST_F(ExportTest, GivesCompressedSourcesBackCompressedButNotAsCopc)
{
    addSource(randomLas(6, 120000, 1, 2));
    buildIt();
    options.output = folder.file("tile.laz");
    Bytes compressed;
    for (unsigned threads : {1u, 4u}) {
        options.threads = threads;
        exportIt();
        EXPECT_TRUE(compressed.empty() || compressed == output());
        compressed = output();
    }
    EXPECT_TRUE(uncompressed(options.output) == sources[0]);
    std::filesystem::rename(options.output, folder.file("tile.copc.laz"));

    build.inputs = {folder.file("tile.copc.laz")};
    build.overwrite = true;
    buildIt();
    options.form = ExportForm::Split;
    options.output = folder.file("parts");
    exportIt();
    EXPECT_TRUE(readFile(folder.file("parts/tile.laz")) == compressed);
}

TEST_F(ExportTest, MergesSourcesIntoOneFileThatKeepsClassesFlagsColoursAndInfrared)
{
    addSource(randomLas(3, 500, 1, 2));
    addSource(randomLas(8, 500, 2, 2));
    addSource(randomLas(6, 500, 3, 2));
    buildIt();
    editStore([](uint8_t* record, uint64_t ordinal) {
        if (ordinal == 3) record[kClass] = 200; // a class that the source's format has not
        if (ordinal == 4) record[kFlags] |= 0x04;
    });
    exportIt();
    const Bytes merged = output();
    ASSERT_EQ(merged[kPointFormat], 8);
    const size_t length = loadLe<uint16_t>(&merged[kRecordLength]);
    ASSERT_EQ(length, 38u + 2);
    ASSERT_EQ(loadLe<uint64_t>(&merged[kPointCount]), 1500u);
    ASSERT_EQ(merged.size(), recordsStart(merged) + 1500 * length);
    const double offset = loadLe<double>(&merged[kOffset]);
    for (size_t i = 0; i < 1500; ++i) {
        const size_t source = i / 500;
        const Bytes& from = sources[source];
        const size_t fromLength = loadLe<uint16_t>(&from[kRecordLength]);
        const uint8_t* const was = &from[recordsStart(from) + i % 500 * fromLength];
        const uint8_t* const is = &merged[recordsStart(merged) + i * length];
        EXPECT_NEAR(loadLe<int32_t>(is) * 0.01 + offset, loadLe<int32_t>(was) * 0.01, 1e-6);
        const bool isLegacy = source == 0;
        EXPECT_EQ(is[kClass], i == 3 ? 200 : isLegacy ? was[15] & 0x1F : was[16]);
        EXPECT_EQ(is[kFlags] & 0x0F, (isLegacy ? was[15] >> 5 : was[15] & 0x0F) | (i == 4 ? kWithheld : 0));
        EXPECT_EQ(is[kUserData], was[17]);
        const Bytes infrared(is + 36, is + 38);
        EXPECT_EQ(infrared, source == 1 ? Bytes(was + 36, was + 38) : Bytes(2, 0));
        const Bytes colors(is + kRed, is + kRed + 6);
        EXPECT_EQ(colors, source == 0   ? Bytes(was + 28, was + 34)
                          : source == 1 ? Bytes(was + 30, was + 36)
                                        : Bytes(6, 0));
        EXPECT_EQ(Bytes(is + 38, is + 40), Bytes(was + fromLength - 2, was + fromLength)) << "extra bytes";
    }
    EXPECT_EQ(report.notes, std::vector<std::string>());
    const uint8_t fourth = sources[0][recordsStart(sources[0]) + 4 * 36 + 15];
    EXPECT_EQ(report.files.at(0).changed, fourth & 0x80 ? 1u : 2u);
}

/// In any order of the store's points, from sources of three formats, after edits too.
TEST_F(ExportTest, TheStoreTellsWhatEachPointHadInItsSource)
{
    addSource(randomLas(3, 300, 1, 2));
    TestLas described = randomLas(8, 500, 2, 3);
    Bytes field(192);
    field[2] = 3; // uint16
    field[3] = 8; // has a scale
    const std::string name = "amplitude";
    std::copy(name.begin(), name.end(), field.begin() + 4);
    const double scale = 0.5;
    std::memcpy(&field[112], &scale, sizeof scale);
    described.vlrs.push_back({"LASF_Spec", 4, field});
    addSource(described);
    addSource(randomLas(10, 200, 3, 1));
    buildIt();
    editStore([](uint8_t* record, uint64_t) { record[kClass] = 200; });
    const File store(options.store.c_str());
    std::set<std::pair<std::string, uint64_t>> told;
    SourcePoint found;
    for (uint64_t point = 0; point < 1000; ++point) {
        const Status read = readSourcePoint(options.store, store, point, found);
        ASSERT_TRUE(read) << read.message();
        ASSERT_TRUE(told.emplace(found.file, found.number).second);
        const size_t source = found.pointFormat == 3 ? 0 : found.pointFormat == 8 ? 1 : 2;
        EXPECT_EQ(found.file, "source" + std::to_string(source) + ".las");
        const Bytes& from = sources[source];
        const size_t length = loadLe<uint16_t>(&from[kRecordLength]);
        ASSERT_LT(found.number, source == 0 ? 300u : source == 1 ? 500u : 200u);
        const uint8_t* const was = &from[recordsStart(from) + found.number * length];
        EXPECT_EQ(found.classCode, source == 0 ? was[15] & 0x1F : was[16]);
        const int flags =
            found.isSynthetic | found.isKeyPoint << 1 | found.isWithheld << 2 | found.isOverlap << 3;
        EXPECT_EQ(flags, source == 0 ? was[15] >> 5 : was[15] & 0x0F);
        EXPECT_EQ(found.nearInfrared, source == 0 ? std::nullopt : std::optional(loadLe<uint16_t>(was + 36)));
        ASSERT_EQ(found.extraBytes.size(), source == 1 ? 2u : 1u);
        const size_t undocumented = source == 2 ? 1 : source == 1 ? 1 : 2;
        EXPECT_EQ(found.extraBytes.back().name, "undocumented");
        EXPECT_EQ(found.extraBytes.back().value, bytesText(was + length - undocumented, undocumented));
        if (source != 1) continue;
        EXPECT_EQ(found.extraBytes.front().name, name);
        EXPECT_EQ(std::stod(found.extraBytes.front().value), 0.5 * loadLe<uint16_t>(was + 38));
    }
    EXPECT_NE(readSourcePoint(options.store, store, 1000, found).message().find(options.store),
              std::string::npos);
    std::filesystem::copy_file(options.store, folder.file("another.brx"));
    EXPECT_FALSE(readSourcePoint(folder.file("another.brx"), store, 0, found)) << "not the one that is open";
}

TEST_F(ExportTest, TellsWhatAMergedFileLeavesOut)
{
    TestLas waves = randomLas(9, 20, 1, 4);
    waves.evlrs = {{"behind", 1, {1}}};
    addSource(waves);
    addSource(randomLas(6, 20, 2, 3));
    buildIt();
    exportIt();
    ASSERT_EQ(report.notes.size(), 3u);
    EXPECT_NE(report.notes[0].find("source0.las: a merged file leaves its wave packets out"),
              std::string::npos);
    EXPECT_NE(report.notes[1].find("extended variable length records"), std::string::npos);
    EXPECT_NE(report.notes[2].find("source1.las: its extra bytes are not those of source0.las"),
              std::string::npos);
    EXPECT_EQ(output()[kPointFormat], 6);
    EXPECT_EQ(loadLe<uint16_t>(&output()[kRecordLength]), 30);
}

TEST_F(ExportTest, LeavesExtraBytesOutOfAMergedFileWhoseRecordsHaveNoRoomForThem)
{
    options.form = ExportForm::Merged;
    build.overwrite = true;
    for (const int left : {0, 10}) { // bytes that a record of format 0 leaves up to 65535
        build.inputs.clear();
        addSource(randomLas(0, 20, 1, static_cast<uint16_t>(0xFFFF - 20 - left)));
        buildIt();
        exportIt();
        EXPECT_EQ(report.notes.size(), left == 0 ? 1u : 0u);
        EXPECT_EQ(loadLe<uint16_t>(&output()[kRecordLength]), left == 0 ? 30 : 0xFFFF);
    }
}

TEST_F(ExportTest, RefusesAClassThatTheSourceFormatHasNoRoomFor)
{
    addSource(randomLas(1, 100, 1));
    buildIt();
    editStore([](uint8_t* record, uint64_t ordinal) {
        record[kFlags] &= 0xF0;
        if (ordinal < 3) record[kClass] = static_cast<uint8_t>(31 + ordinal);
        if (ordinal == 2) record[kFlags] |= 0x04;
    });
    expectFailure("cloud.brx: 2 points of source0.las have a class above 31");
    EXPECT_EQ(files(), (std::vector<std::string>{"cloud.brx", "source0.las"}));
    options.part.visibleOnly = true;
    expectFailure("1 points of source0.las");
    options.part.visibleOnly = false;
    options.form = ExportForm::Merged;
    exportIt();
    EXPECT_EQ(output()[recordsStart(output()) + 2 * 30 + kClass], 33);
}

TEST_F(ExportTest, LeavesHiddenPointsOutAndTellsOfThoseThatRemain)
{
    for (uint8_t format : {1, 3, 5, 7}) {
        SCOPED_TRACE(int(format));
        sources.clear();
        build.inputs.clear();
        build.overwrite = true;
        TestLas las = randomLas(format, 150000, format);
        for (size_t i = 0; i < las.records.size(); ++i)
            if (i % 2) las.records[i][0] = las.records[i][1] = las.records[i][2] = 0xEE; // far out in x
        if (format >= 4) las.evlrs = {{"behind", 1, Bytes(5000, 3)}, {"last", 2, {1, 2}}};
        addSource(las);
        buildIt();
        editStore([](uint8_t* record, uint64_t ordinal) {
            record[kFlags] = static_cast<uint8_t>((record[kFlags] & 0xF0) | (ordinal % 2 ? 0x08 : 0));
        });
        TestLas expected = las;
        expected.records.clear();
        for (size_t i = 0; i < las.records.size(); i += 2) {
            expected.records.push_back(las.records[i]);
            expected.records.back()[15] &= static_cast<uint8_t>(format <= 5 ? ~0x80 : ~0x04);
        }
        options.part.visibleOnly = true;
        for (uint64_t memory : {uint64_t(1) << 30, uint64_t(1)}) {
            options.memory = memory;
            exportIt();
            EXPECT_TRUE(output() == expected.bytes()) << "records, counts, bounds, places";
            EXPECT_EQ(report.hiddenLeftOut, 75000u);
            options.output = folder.file("out.LAZ");
            exportIt();
            EXPECT_LT(output().size(), expected.bytes().size());
            EXPECT_TRUE(uncompressed(options.output) == expected.bytes());
            options.output = folder.file("out.las");
        }
        editStore([](uint8_t* record, uint64_t) { record[kFlags] |= 0x04; });
        exportIt();
        expected.records.clear();
        EXPECT_TRUE(output() == expected.bytes()) << "no point at all";
        options.output = folder.file("empty.laz");
        exportIt();
        LasFile empty;
        ASSERT_TRUE(readLasFile(options.output, empty));
        EXPECT_TRUE(empty.laz && empty.pointCount == 0 && empty.notes.empty());
        options.output = folder.file("out.las");
    }
}

TEST_F(ExportTest, WritesThePartThatIsAskedFor)
{
    addSource(randomLas(1, 150000, 1));
    addSource(randomLas(7, 100000, 2, 3));
    buildIt();
    editStore([](uint8_t* record, uint64_t ordinal) {
        record[kClass] = static_cast<uint8_t>(ordinal % 5);
        record[kFlags] = static_cast<uint8_t>((record[kFlags] & 0xF0) | (ordinal % 3 ? 0 : 0x08));
    });
    exportIt();
    const Bytes whole = output();
    LasFile head;
    ASSERT_TRUE(readLasFile(options.output, head));
    const size_t length = head.recordLength;
    const auto place = [&](const uint8_t* record, size_t axis) {
        return loadLe<int32_t>(record + 4 * axis) * head.scale[axis] + head.offset[axis];
    };
    const auto low = [&](size_t axis, double part) {
        return head.min[axis] + part * (head.max[axis] - head.min[axis]);
    };
    MapPolygon star(2);
    for (int i = 0; i < 10; ++i)
        for (size_t ring = 0; ring < 2; ++ring) {
            const double radius = (ring ? 0.05 : i % 2 ? 0.15 : 0.45) * (head.max[0] - head.min[0]);
            star[ring].push_back(
                {low(0, 0.5) + radius * std::cos(i * 0.6283), low(1, 0.5) + radius * std::sin(i * 0.6283)});
        }
    struct Case
    {
        const char* name;
        std::function<void(StorePart&)> ask;
        std::function<bool(const uint8_t*)> takes;
    };
    const auto isClass = [](const uint8_t* record, uint8_t code) { return record[16] == code; };
    const std::vector<Case> cases = {
        {"box",
         [&](StorePart& part) {
             part.low = {low(0, 0.2), low(1, 0.6), low(2, 0.1)};
             part.high = {low(0, 0.5), low(1, 0.7), low(2, 0.4)};
         },
         [&](const uint8_t* record) {
             return place(record, 0) >= low(0, 0.2) && place(record, 0) <= low(0, 0.5) &&
                    place(record, 1) >= low(1, 0.6) && place(record, 1) <= low(1, 0.7) &&
                    place(record, 2) >= low(2, 0.1) && place(record, 2) <= low(2, 0.4);
         }},
        {"polygon, visible points of two classes",
         [&](StorePart& part) {
             part.polygons = {star};
             part.classes = 0b10100;
             part.visibleOnly = true;
         },
         [&](const uint8_t* record) {
             return isInStar(star, place(record, 0), place(record, 1)) && !(record[15] & 0x04) &&
                    (isClass(record, 2) || isClass(record, 4));
         }},
        {"nothing", [&](StorePart& part) { part.low[0] = head.max[0] + 1; },
         [](const uint8_t*) { return false; }}};
    for (const Case& wanted : cases) {
        SCOPED_TRACE(wanted.name);
        Bytes expected;
        for (const uint8_t* record = &whole[recordsStart(whole)];
             record < whole.data() + recordsStart(whole) + 250000 * length; record += length)
            if (wanted.takes(record)) expected.insert(expected.end(), record, record + length);
        options.part = StorePart();
        wanted.ask(options.part);
        for (const uint64_t memory : {uint64_t(1) << 30, uint64_t(1)}) {
            options.memory = memory;
            options.threads = memory > 1 ? 1 : 3;
            options.output = folder.file("out.las");
            exportIt();
            const Bytes part = output();
            EXPECT_TRUE(Bytes(part.begin() + static_cast<std::ptrdiff_t>(recordsStart(part)), part.end()) ==
                        expected);
            EXPECT_EQ(report.files.at(0).points, expected.size() / length);
            EXPECT_EQ(report.leftOut, 250000 - expected.size() / length);
            EXPECT_EQ(loadLe<uint64_t>(&part[kPointCount]), expected.size() / length);
        }
        options.memory = uint64_t(1) << 30;
        options.output = folder.file("out.copc.laz");
        exportIt();
        EXPECT_EQ(readPoints(options.output).file.pointCount, expected.size() / length);
        expectVisits(expected, length);
    }
}

TEST_F(ExportTest, ThinsToThePointNextToTheMiddleOfEachCube)
{
    addSource(randomLas(7, 200000, 3));
    buildIt();
    options.part.classes = ~std::bitset<256>(0xFF);
    options.part.low[2] = 3;
    exportIt();
    const Bytes all = output();
    LasFile head;
    ASSERT_TRUE(readLasFile(options.output, head));
    const double spacing = (head.max[0] - head.min[0]) / 23.7;
    const auto nearest = [&](const Bytes& las) {
        std::map<std::array<double, 3>, std::pair<double, size_t>> cubes; // distance, points
        for (size_t at = recordsStart(las); at < las.size(); at += head.recordLength) {
            std::array<double, 3> cube;
            double distance = 0;
            for (size_t axis = 0; axis < 3; ++axis) {
                const double value =
                    (loadLe<int32_t>(&las[at + 4 * axis]) * head.scale[axis] + head.offset[axis]) / spacing;
                cube[axis] = std::floor(value);
                distance += std::pow(value - cube[axis] - 0.5, 2);
            }
            const auto [found, isNew] = cubes.try_emplace(cube, distance, 0);
            found->second.first = std::min(found->second.first, distance);
            ++found->second.second;
        }
        return cubes;
    };
    auto expected = nearest(all);
    EXPECT_GT(expected.size(), 500u);
    for (auto& [cube, found] : expected)
        found.second = 1;
    options.part.spacing = spacing;
    Bytes first;
    for (const auto& [memory, threads] :
         {std::pair(uint64_t(1) << 30, 1u), std::pair(uint64_t(4) << 20, 3u)}) {
        options.memory = memory;
        options.threads = threads;
        exportIt();
        EXPECT_TRUE(nearest(output()) == expected);
        if (!first.empty()) {
            EXPECT_TRUE(first == output());
        }
        first = output();
    }
    options.memory = 1 << 10;
    expectFailure("to thin them in the memory");
    options.part.spacing = -1;
    expectFailure("no positive number");
    options.part.spacing = 1e-15;
    expectFailure("such a small spacing");
}

TEST_F(ExportTest, LeavesNothingBehindWhenItIsCancelled)
{
    addSource(randomLas(7, 140000, 1));
    addSource(randomLas(1, 30000, 2));
    buildIt();
    const std::vector<std::string> before = files();
    std::atomic<bool> cancel{false};
    options.cancel = &cancel;
    options.memory = 1;
    const std::pair<ExportForm, const char*> forms[] = {
        {ExportForm::Split, "out"}, {ExportForm::Merged, "out"}, {ExportForm::Merged, "out.laz"}};
    for (const auto& [form, name] : forms) {
        options.form = form;
        options.output = folder.file(name);
        int cancelAt = 0; // number of a progress report; the last one comes when all is written
        for (;; ++cancelAt) {
            int reports = 0;
            uint64_t last = 0;
            options.progress = [&](const BuildProgress& progress) {
                EXPECT_GE(progress.pointsDone, last);
                EXPECT_EQ(progress.pointsTotal, 170000u);
                EXPECT_LE(progress.pointsDone, progress.pointsTotal);
                last = progress.pointsDone;
                cancel = reports++ >= cancelAt && progress.stage != std::string("done");
            };
            const Status status = exportLas(options, report);
            EXPECT_EQ(status.ok(), !cancel);
            if (!cancel) break;
            EXPECT_EQ(status.message(), options.output + ": cancelled; nothing was written");
            EXPECT_EQ(files(), before) << cancelAt;
        }
        EXPECT_GE(cancelAt, 2);
        std::filesystem::remove_all(options.output);
    }
}

TEST_F(ExportTest, ReplacesFilesOnlyWhenToldAndNeverTheStore)
{
    addSource(randomLas(7, 100, 1));
    buildIt();
    options.overwrite = false;
    exportIt();
    expectFailure("out.las: exists already");
    options.form = ExportForm::Split;
    options.output = folder.path().string();
    expectFailure("source0.las: exists already");
    options.output = folder.file("source0.las");
    expectFailure("is no folder");
    options.overwrite = true;
    options.form = ExportForm::Automatic;
    options.output = options.store;
    expectFailure("is the store that is exported");
    options.output = folder.file("no/such/folder.las");
    expectFailure("folder");
    options.store = folder.file("missing.brx");
    expectFailure("missing.brx: cannot be opened");
}

TEST_F(ExportTest, RefusesAStoreThatDoesNotHoldItsSourcesWhole)
{
    options.store = folder.write("cloud.brx", smallStore().bytes());
    expectFailure("cloud.brx: does not tell where its points come from");

    addSource(randomLas(7, 1000, 1, 4));
    build.overwrite = true;
    buildIt();
    FileReader reader;
    StoreHead head;
    StoreIndex index;
    ASSERT_TRUE(readStore(options.store, reader, head, index));
    const Bytes sound = readFile(options.store);
    for (int64_t position : {head.origin.start + 20, head.origin.start + head.origin.length / 2,
                             head.flags.start + head.flags.length - 9}) {
        Bytes damaged = sound;
        damaged[size_t(position)] ^= 1;
        folder.write("cloud.brx", damaged);
        expectFailure("does not match its checksum");
        EXPECT_FALSE(std::filesystem::exists(options.output));
    }
}
