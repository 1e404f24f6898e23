#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include "store/FlagsRecord.h"
#include "store/OriginRecord.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

using namespace VelBrx;

namespace {

std::vector<std::string> problemsOf(const std::vector<uint8_t>& file)
{
    const TempFolder folder;
    return verifyStore(folder.write("checked.brx", file));
}

TestPoint pointAt(int32_t x, int32_t y, int32_t z)
{
    TestPoint point;
    point.x = x;
    point.y = y;
    point.z = z;
    return point;
}

void appendRecord(std::vector<uint8_t>& file, uint16_t id, const char* description,
                  const std::vector<uint8_t>& content)
{
    const auto header = storeRecordHeader(id, content.size(), description);
    file.insert(file.end(), header.begin(), header.end());
    file.insert(file.end(), content.begin(), content.end());
}

/// Puts the checksum at the end of a record's content in order.
void sign(uint8_t* content, size_t size)
{
    storeLe(content + size - kRecordChecksumSize, crc32c(content, size - kRecordChecksumSize));
}

std::string joined(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    return text;
}

void expectProblem(const std::vector<std::string>& problems, const std::string& part)
{
    const auto names = [&](const std::string& line) { return line.find(part) != std::string::npos; };
    EXPECT_TRUE(std::any_of(problems.begin(), problems.end(), names)) << part << "\nin:\n"
                                                                      << joined(problems);
}

/// A fault in a store, and a part of the line that names it.
struct Fault
{
    const char* line;
    std::function<void(TestStore&)> plant;
};

const Fault kFaults[] = {
    // Points start at byte 461; the cell's third point is number 7.
    {"cell 01-0000000000000007: 1 of its points lie outside it, the first is point 7 at byte 713",
     [](TestStore& store) { store.points[7].x = -2; }},
    {"cell 02-0000000000000039: 2 of its points lie outside it, the first is point 10",
     [](TestStore& store) { store.points[10].y = store.points[12].z = 402; }},
    {"lowest intensity", [](TestStore& store) { store.index.statistics.intensity.min = 0; }},
    {"latest GPS time", [](TestStore& store) { store.points[6].gpsTime = 2e8; }},
    {"largest colour value", [](TestStore& store) { store.index.statistics.maxColor = 3; }},
    {"source id 44 is in the index and in no point",
     [](TestStore& store) { store.index.statistics.pointSources.push_back(44); }},
    {"source id 8 is in the points and not in the index",
     [](TestStore& store) {
         store.index.statistics.pointSources = {7, 9};
     }},
    {"highest elevation", [](TestStore& store) { store.index.statistics.elevation.max = 410; }},
    {"do not add up", [](TestStore& store) { ++store.index.statistics.pointsByClass[1]; }}};

} // namespace

TEST(Verify, FindsNoProblemInASoundStore)
{
    EXPECT_EQ(joined(problemsOf(smallStore().bytes())), "");

    TestStore edited = smallStore(); // edits do not make a store unsound
    edited.points[2].classCode = 99;
    edited.points[3].flags |= 0x0F;
    EXPECT_EQ(joined(problemsOf(edited.bytes())), "");

    TestStore timeless = smallStore();
    for (TestPoint& point : timeless.points)
        point.gpsTime = std::numeric_limits<double>::quiet_NaN();
    timeless.points[3].gpsTime = -std::numeric_limits<double>::infinity();
    timeless.updateStatistics();
    EXPECT_EQ(joined(problemsOf(timeless.bytes())), "");
}

TEST(Verify, TakesAPointOnTheFaceBetweenTwoCellsInEither)
{
    TestStore store = smallStore();
    store.points[5].x = 0; // on the inner face of the cell at the positive corner
    store.points[3].x = 0; // and of the one at the negative corner
    store.points[4].x = 1; // one step over is within the rounding of faces
    store.updateStatistics();
    EXPECT_EQ(joined(problemsOf(store.bytes())), "");
}

TEST(Verify, NamesAFaultAndNothingElse)
{
    for (const Fault& fault : kFaults) {
        TestStore store = smallStore();
        fault.plant(store);
        const std::vector<std::string> problems = problemsOf(store.bytes());
        expectProblem(problems, fault.line);
        EXPECT_EQ(problems.size(), 1u) << joined(problems);
    }
}

TEST(Verify, NamesAHeaderThatDoesNotFitThePoints)
{
    TestStore store = smallStore();
    std::vector<uint8_t> file = store.bytes();
    storeLe(file.data() + 179, 636009.0);            // largest x
    storeLe<uint64_t>(file.data() + 255 + 8 * 4, 1); // points with return 5
    fitChecksums(file, store);
    const std::vector<std::string> problems = problemsOf(file);
    expectProblem(problems, "the LAS header's largest x is 636009");
    expectProblem(problems, "number of points with return 5 is 1, of the points it is 0");
    EXPECT_EQ(problems.size(), 2u) << joined(problems);
}

TEST(Verify, NamesEveryProblemOfAStoreWithSeveral)
{
    TestStore store = smallStore();
    store.points[7].x = -2;                    // outside its cell
    store.index.cells[3].segments[0] = {7, 3}; // overlaps cell 1-7
    store.index.cells[4].level = 3;            // parent missing
    store.index.statistics.gpsTime = {2, 1, 1, 1};
    std::vector<uint8_t> file = store.bytes();
    file[26] ^= 1; // system identifier
    const std::vector<std::string> problems = problemsOf(file);
    expectProblem(problems, "LAS header and VLRs, were changed");
    expectProblem(problems, "03-0000000000000039 has no parent");
    expectProblem(problems, "both have point 7");
    expectProblem(problems, "range of GPS time");
    expectProblem(problems, "the first is point 7 at byte");
}

TEST(Verify, NamesAtMostAHundredOfAKindAndCountsTheRest)
{
    TestStore store = smallStore();
    for (uint64_t i = 0; i < 150; ++i)
        store.index.cells.push_back({3, 0x100 + i, {{0, 1}}}); // under parents that do not exist
    const std::vector<std::string> problems = problemsOf(store.bytes());
    const auto orphans = std::count_if(problems.begin(), problems.end(), [](const std::string& line) {
        return line.find("has no parent") != std::string::npos;
    });
    EXPECT_EQ(orphans, 100);
    expectProblem(problems, "cell without parent: 50 more");
}

TEST(Verify, ChecksTheRecordsOfThePointsSource)
{
    const TestStore store = smallStore();
    std::vector<uint8_t> file = store.bytes();
    storeLe<uint32_t>(file.data() + 243, 3); // number of EVLRs
    fitChecksums(file, store);
    const size_t originStart = file.size() + 60;
    OriginRecord origin;
    origin.pointCount = store.points.size();
    origin.sources.resize(1);
    origin.sources[0].pointCount = store.points.size();
    origin.sources[0].recordLength = 20;
    std::vector<uint8_t> content = encodeOrigin(origin);
    content.resize(origin.length);
    const size_t ordinals = originStart + origin.ordinalStart;
    for (uint32_t i = 0; i < 14; ++i)
        storeLe<uint32_t>(&content[origin.ordinalStart + 4 * i], 13 - i);
    sign(content.data(), content.size());
    appendRecord(file, kOriginRecordId, kOriginDescription, content);

    const size_t flagsStart = file.size() + 60;
    FlagsRecord flags;
    flags.pointCount = store.points.size();
    flags.sources.push_back({store.points.size(), 0, 0});
    content = encodeFlags(flags);
    content.resize(flags.length);
    sign(content.data(), content.size());
    appendRecord(file, kFlagsRecordId, kFlagsDescription, content);
    ASSERT_EQ(joined(problemsOf(file)), "");

    for (size_t position : {ordinals + 1, ordinals - 1, flagsStart - 64, flagsStart + flags.flagsStart + 2,
                            flagsStart + flags.classesStart, file.size() - 1}) {
        std::vector<uint8_t> damaged = file;
        damaged[position] ^= 0x10;
        expectProblem(problemsOf(damaged), "record does not match its checksum");
    }

    const auto expectFault = [&](size_t position, uint8_t value, const std::string& line) {
        std::vector<uint8_t> damaged = file;
        damaged[position] = value;
        sign(&damaged[originStart], origin.length);
        sign(&damaged[flagsStart], flags.length);
        const std::vector<std::string> problems = problemsOf(damaged);
        expectProblem(problems, line);
        EXPECT_EQ(problems.size(), 1u) << joined(problems);
    };
    expectFault(ordinals + 4 * 3, 9, "names points of the sources twice");
    expectFault(ordinals + 4 * 3, 14,
                "point 3 comes from source point 14, which there is not (byte " +
                    std::to_string(ordinals + 12));
    expectFault(originStart, 'X', "the origin record does not begin as one");
    std::vector<uint8_t> damaged = file;
    damaged[originStart] = 'X';
    const TempFolder folder;
    std::vector<std::string> names;
    const std::string path = folder.write("damaged.brx", damaged);
    EXPECT_EQ(
        readSourceNames(path, names).message(),
        path + ": the origin record does not begin as one; restore the store from a copy or build it anew");
    expectFault(originStart - 12, 1, "the EVLR header of record 2");
    expectFault(originStart + 40 + 42, 22, "source 1 has other extra bytes in the flags record");
    expectFault(originStart + 40 + 42, 19, "source 1 has records shorter than its point format");
    expectFault(originStart + 40 + 48, 0, "source 1 has a factor or shift of coordinates that cannot be");
    expectFault(originStart + 40 + 63, 0x80, "source 1 has a factor or shift of coordinates that cannot be");
    expectFault(flagsStart + 24, 99, "the flags record");
    expectFault(flagsStart - 60, 1, "the EVLR header of record 3");
}

TEST(Verify, ReadsStoresOfManyBlocksInParallel)
{
    TestStore store;
    store.index.cubeSize = 1000;
    std::vector<TestPoint> points(100000);
    for (size_t i = 0; i < points.size(); ++i)
        points[i].x = points[i].y = points[i].z = static_cast<int>(i);
    store.addCell(0, 0, points);
    for (uint64_t octant = 0; octant < 8; ++octant) {
        const auto at = [&](unsigned axis) { return 25000 + 50000 * static_cast<int>((octant >> axis) & 1); };
        store.addCell(1, octant, std::vector<TestPoint>(20011, pointAt(at(0), at(1), at(2))));
    }
    store.updateStatistics();
    EXPECT_EQ(joined(problemsOf(store.bytes())), "");

    store.points[100000 + 20011 * 4].y = 75000;
    store.points[100000 + 20011 * 5 - 1].y = 75000;
    const std::vector<std::string> problems = problemsOf(store.bytes());
    expectProblem(problems,
                  "01-0000000000000004: 2 of its points lie outside it, the first is point 180044 ");
    EXPECT_EQ(problems.size(), 1u) << joined(problems);
}
