#include <VelBrx/Builder.h>
#include <VelBrx/SampleSurvey.h>
#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include "store/io/ByteIo.h"
#include "store/las/LasFile.h"
#include "store/las/LasLayout.h"
#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace VelBrx;

namespace {

/// Points of format 7 with random attributes, coordinates up to `spread` steps.
TestLas randomLas(size_t count, int32_t spread, unsigned seed)
{
    TestLas las;
    std::mt19937 random(seed);
    for (size_t i = 0; i < count; ++i) {
        const auto place = [&] { return static_cast<int32_t>(random() % unsigned(spread)); };
        std::vector<uint8_t>& record = las.addPoint(place(), place(), place() / 50);
        for (size_t byte = 12; byte < record.size(); ++byte)
            record[byte] = static_cast<uint8_t>(random());
    }
    return las;
}

/// So far off one point that the others, lumps among them, stand in one column of 1/2048 of the root cube.
TestLas squeezedLas(int count)
{
    constexpr int32_t kEnd = std::numeric_limits<int32_t>::max();
    TestLas las;
    std::mt19937 random(6);
    for (int i = 0; i < count; ++i) {
        const auto near = [&] { return static_cast<int32_t>(random() % (1u << (i % 8 ? 18 : 13))); };
        las.addPoint(near(), near(), near() / (i % 3 ? 64 : 1));
    }
    las.addPoint(kEnd, kEnd, kEnd);
    return las;
}

class BuilderTest : public testing::Test
{
protected:
    TempFolder folder;
    std::vector<std::vector<uint8_t>> sources;
    BuildOptions options;
    BuildReport report;

    BuilderTest()
    {
        options.output = folder.file("cloud.brx");
        options.storeId = 99;
    }

    void addSource(const std::vector<uint8_t>& bytes)
    {
        options.inputs.push_back(folder.write("source" + std::to_string(sources.size()) + ".las", bytes));
        sources.push_back(bytes);
    }

    /// Builds and checks that the store is sound and holds its sources whole, and that it was foretold.
    void expectStore()
    {
        BuildForecast forecast;
        options.forecast = [&](const BuildForecast& told) { forecast = told; };
        const Status status = buildStore(options, report);
        options.forecast = nullptr;
        ASSERT_TRUE(status) << status.message();
        EXPECT_EQ(forecast.points, report.points);
        if (report.points >= 100000) {
            const auto size = static_cast<double>(std::filesystem::file_size(options.output));
            EXPECT_NEAR(static_cast<double>(forecast.storeBytes), size, 0.03 * size);
        }
        const std::vector<std::string> problems = verifyStore(options.output);
        EXPECT_TRUE(problems.empty()) << problems[0];
        EXPECT_TRUE(sourcesOf(options.output) == sources);
    }

    /// Builds in vain; the folder holds nothing but the sources afterwards.
    void expectFailure(const std::string& word)
    {
        const Status status = buildStore(options, report);
        EXPECT_FALSE(status);
        EXPECT_NE(status.message().find(word), std::string::npos) << status.message();
        EXPECT_EQ(status.message().find('\n'), std::string::npos);
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            EXPECT_EQ(entry.path().extension(), ".las") << entry.path();
    }

    bool isNoted(const std::string& word) const
    {
        for (const std::string& note : report.notes)
            if (note.find(word) != std::string::npos) return true;
        return false;
    }

    StoreInfo info() const
    {
        StoreInfo info;
        const Status status = readStoreInfo(options.output, info);
        EXPECT_TRUE(status) << status.message();
        return info;
    }
};

} // namespace

TEST_F(BuilderTest, GivesTheSameBytesOnAnyThreadsWhateverPartsOfTheCloudAreInMemory)
{
    constexpr int32_t kEnd = std::numeric_limits<int32_t>::max();
    TestLas wide = randomLas(60000, 200000, 3);
    TestLas steep; // a tower and a far point: all others stand in a few columns
    std::mt19937 random(4);
    const auto near = [&](int32_t spread) { return static_cast<int32_t>(random() % unsigned(spread)); };
    for (int i = 0; i < 40000; ++i)
        steep.addPoint(near(1 << 25), near(1 << 25), near(1 << 27));
    steep.addPoint(kEnd, kEnd, 0);
    TestLas lumps; // the same places many times
    for (int i = 0; i < 40000; ++i)
        lumps.addPoint(near(3) << 20, near(50) << 14, near(2));
    TestLas squeezed = squeezedLas(40000);
    for (const TestLas& las : {wide, steep, lumps, squeezed}) {
        options.inputs.clear();
        sources.clear();
        addSource(las.bytes());
        std::vector<uint8_t> other = randomLas(777, 5000, 5).bytes();
        storeLe<double>(&other[179], -1e9); // its header is wrong: columns are counted anew
        addSource(other);
        options.overwrite = true;
        options.chunkPoints = 0;
        options.memory = 0;
        expectStore();
        const std::vector<uint8_t> whole = readFile(options.output);
        options.memory = 128 << 20;
        for (uint64_t chunkPoints : {20000, 1500, 40}) {
            options.chunkPoints = chunkPoints;
            options.threads = chunkPoints == 1500 ? 1 : 3;
            expectStore();
            EXPECT_TRUE(readFile(options.output) == whole) << "chunks of " << chunkPoints;
        }
    }
    const std::vector<uint8_t> last = readFile(options.output);
    options.storeId = 0;
    expectStore();
    EXPECT_FALSE(readFile(options.output) == last) << "a store draws an identity of its own";
}

TEST_F(BuilderTest, PartsPointsAsTheyAreMappedWhereAHeaderHidesThatTheyAreOffTheGrid)
{
    TestLas frame; // holds the grid, whatever the other header says
    frame.addPoint(0, 0, 0);
    frame.addPoint(2000000, 2000000, 2000000);
    TestLas las;
    las.scale[0] = 0.01 * (1 + 1e-6); // one step off at a million
    for (int32_t i = 0; i < 4000; ++i)
        las.addPoint(1000000 + 16 * i - 1, 50 * i, 0);
    addSource(frame.bytes());
    std::vector<uint8_t> lying = las.bytes();
    storeLe<double>(&lying[LasLayout::kBounds], 1); // x spans 100 steps
    storeLe<double>(&lying[LasLayout::kBounds + 8], 0);
    addSource(lying);
    options.chunkPoints = 40;
    expectStore();
}

TEST_F(BuilderTest, RefusesMoreThanItsMemoryHolds)
{
    TestLas las;
    for (int i = 0; i < 700000; ++i)
        las.addPoint(1, 2, 3);
    las.addPoint(1000000, 1000000, 0);
    addSource(las.bytes());
    options.memory = 1 << 20;
    expectFailure("128 MiB");
    options.memory = 128 << 20;
    expectFailure("allow 129 MiB of memory");
    options.memory = 129 << 20;
    expectStore();
}

TEST_F(BuilderTest, KeepsItsMemoryWhenAFarPointSqueezesAllOthers)
{
    addSource(squeezedLas(800000).bytes());
    options.memory = 128 << 20;
    expectStore();
    const std::vector<uint8_t> small = readFile(options.output);
    options.memory = 0;
    options.overwrite = true;
    expectStore();
    EXPECT_TRUE(readFile(options.output) == small);
}

TEST_F(BuilderTest, TakesFoldersOfTiles)
{
    std::filesystem::create_directories(folder.file("tiles/b.las"));
    addSource(randomLas(10, 100, 1).bytes());
    for (const char* name : {"tiles/b.las/2.LAS", "tiles/a.las", "tiles/c.laz.las"})
        folder.write(name, randomLas(100, 100, static_cast<unsigned>(name[7])).bytes());
    folder.write("tiles/notes.txt", {1, 2, 3});
    for (const char* link : {"tiles/b.las/up", "tiles/b.las/again", "tiles/round"}) // no tile twice, no end
        std::filesystem::create_directory_symlink(folder.file("tiles"), folder.file(link));
    sources.push_back(readFile(folder.file("tiles/a.las")));
    sources.push_back(readFile(folder.file("tiles/b.las/2.LAS")));
    sources.push_back(readFile(folder.file("tiles/c.laz.las")));
    options.inputs.push_back(folder.file("tiles"));
    expectStore();

    std::filesystem::create_directory(folder.file("empty"));
    options.inputs = {folder.file("empty")};
    options.overwrite = true;
    const Status status = buildStore(options, report);
    EXPECT_NE(status.message().find("empty: is a folder without"), std::string::npos) << status.message();
}

/// Files that do not open, one whose places are damaged and one whose times are: found out while points are
/// read.
TEST_F(BuilderTest, NamesEveryBadInputAndBuildsOfTheOthersWhereThatIsWanted)
{
    addSource(randomLas(5000, 100000, 1).bytes());
    const TempFolder other;
    buildStoreOf(options.inputs.front(), other.file("whole.brx"));
    ExportOptions whole;
    whole.store = other.file("whole.brx");
    whole.output = other.file("whole.laz");
    ExportReport exported;
    ASSERT_TRUE(exportLas(whole, exported));
    const std::vector<uint8_t> good = readFile(whole.output);
    LasFile file;
    ASSERT_TRUE(readLasFile(whole.output, file));
    const auto damaged = [&](const char* name, double from, double to) {
        std::vector<uint8_t> bytes = good;
        const auto at = [&](double part) {
            const auto length = static_cast<double>(file.pointDataEnd() - file.pointDataStart);
            return bytes.begin() + static_cast<std::ptrdiff_t>(double(file.pointDataStart) + part * length);
        };
        std::fill(at(from), at(to), 0xff);
        options.inputs.push_back(folder.write(name, bytes));
    };
    damaged("places.laz", 0.02, 0.1);
    damaged("times.laz", 0.6, 0.99);
    options.inputs.push_back(folder.file("missing.las"));
    options.inputs.push_back(folder.write("text.las", {'L', 'A', 'S', '?'}));

    const Status status = buildStore(options, report);
    EXPECT_NE(status.message().find("missing.las: cannot be opened"), std::string::npos);
    EXPECT_NE(status.message().find("3 more cannot be used"), std::string::npos) << status.message();
    EXPECT_FALSE(std::filesystem::exists(options.output));

    options.skipBad = true;
    expectStore();
    ASSERT_EQ(report.badInputs.size(), 4u);
    const char* const names[] = {"missing.las", "text.las", "places.laz", "times.laz"};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NE(report.badInputs[i].find(names[i]), std::string::npos) << report.badInputs[i];
}

/// Points are read twice; of these the last files do not stay in memory between.
TEST_F(BuilderTest, NamesAnInputThatIsAnotherWhenItIsReadAgain)
{
    SampleOptions sample;
    sample.points = 100000;
    const std::string paths[] = {folder.file("survey.laz"), folder.file("other.laz")};
    for (const std::string& path : paths) {
        sample.output = path;
        sample.seed = path.size();
        ASSERT_TRUE(writeSampleSurvey(sample));
    }
    const std::vector<uint8_t> survey = readFile(paths[0]);
    const std::vector<uint8_t> other = readFile(paths[1]);
    const std::string source = folder.file("source.las");
    options.inputs.assign(13, source);
    options.memory = 128 << 20;
    options.threads = 1;
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"changed while it was read", [&] { std::filesystem::resize_file(source, survey.size() - 1); }},
        {"changed while it was read", [&] { folder.write("source.las", other); }},
        {"changed while it was read",
         [&] { std::filesystem::rename(folder.write("new.las", survey), source); }},
        {"cannot be opened", [&] { std::filesystem::remove(source); }},
    };
    for (const std::string& path : paths)
        std::filesystem::remove(path);
    for (const auto& [words, change] : changes) {
        folder.write("source.las", survey);
        const auto& apply = change;
        bool isDone = false;
        options.progress = [&](const BuildProgress& progress) {
            if (isDone || progress.stage != std::string("reading")) return;
            isDone = true;
            apply();
        };
        expectFailure("source.las: " + std::string(words));
        EXPECT_TRUE(isDone);
    }
}

TEST_F(BuilderTest, TakesMoreFilesThanAProcessMayOpen)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit few = before;
    few.rlim_cur = 50;
    for (unsigned i = 0; i < 100; ++i)
        addSource(randomLas(20, 1000, i).bytes());
    setrlimit(RLIMIT_NOFILE, &few);
    const Status status = buildStore(options, report);
    setrlimit(RLIMIT_NOFILE, &before);
    ASSERT_TRUE(status) << status.message();
    EXPECT_TRUE(sourcesOf(options.output) == sources);
}

TEST_F(BuilderTest, TakesAwayWhatKilledBuildsLeft)
{
    addSource(randomLas(100, 1000, 1).bytes());
    const std::string left = folder.write("cloud.brx.123-0.part", {1, 2, 3});
    const std::string locked = folder.write("cloud.brx.124-0.part", {1, 2, 3});
    const std::string foreign = folder.write("cloud.brx.copy.part", {1, 2, 3});
    const int descriptor = open(locked.c_str(), O_RDONLY);
    ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
    expectStore();
    close(descriptor);
    EXPECT_FALSE(std::filesystem::exists(left));
    EXPECT_TRUE(std::filesystem::exists(locked)) << "another build is at work on it";
    EXPECT_TRUE(std::filesystem::exists(foreign));
}

TEST_F(BuilderTest, TellsInTheHeaderWhatThePointsAre)
{
    TestLas las;
    las.globalEncoding = 1;
    las.vlrs = {
        wktVlr("PROJCS[\"here\"]"), {"LASF_Spec", 4, std::vector<uint8_t>(192, 1)}, {"other", 5, {9, 9}}};
    for (int32_t i = 1; i <= 4; ++i)
        las.addPoint(100 * i, -100 * i, i)[14] = static_cast<uint8_t>(i | 0x40);
    std::vector<uint8_t> bytes = las.bytes();
    storeLe<double>(&bytes[179], 1e6); // its bounds and counts are wrong
    storeLe<uint64_t>(&bytes[255], 77);
    addSource(bytes);
    expectStore();
    EXPECT_TRUE(isNoted("bounds"));
    EXPECT_TRUE(isNoted("by return"));

    const BrxHeader header = info().header;
    EXPECT_EQ(header.coordinateSystem, "PROJCS[\"here\"]");
    EXPECT_DOUBLE_EQ(header.min[0], 1);
    EXPECT_DOUBLE_EQ(header.max[0], 4);
    EXPECT_DOUBLE_EQ(header.min[1], -4);
    for (size_t i = 0; i < 15; ++i)
        EXPECT_EQ(header.pointsByReturn[i], i < 4 ? 1u : 0u);
    const std::vector<uint8_t> store = readFile(options.output);
    EXPECT_EQ(loadLe<uint16_t>(&store[LasLayout::kGlobalEncoding]), 0x11) << "GPS time type kept, WKT told";
    EXPECT_EQ(loadLe<uint32_t>(&store[LasLayout::kVlrCount]), 2u) << "extra bytes are no part of the records";
}

TEST_F(BuilderTest, GathersStatistics)
{
    TestLas las;
    for (int32_t i = 0; i <= 100; ++i) {
        std::vector<uint8_t>& record = las.addPoint(i, 0, 10 * i);
        storeLe(&record[LasLayout::kIntensity], static_cast<uint16_t>(i));
        storeLe(&record[LasLayout::kGpsTime], i == 50 ? std::nan("") : 1000.0 + i);
        storeLe(&record[LasLayout::kGreen], static_cast<uint16_t>(40 * i));
        record[LasLayout::kClass] = static_cast<uint8_t>(i % 3);
        storeLe(&record[LasLayout::kPointSource], static_cast<uint16_t>(65535 - i % 2));
    }
    addSource(las.bytes());
    expectStore();
    const StoreStatistics statistics = info().statistics;
    EXPECT_NEAR(statistics.elevation.low, 0.2, 1e-9);
    EXPECT_NEAR(statistics.elevation.high, 9.8, 1e-9);
    EXPECT_NEAR(statistics.elevation.max, 10, 1e-9);
    EXPECT_EQ(statistics.intensity.high, 98);
    EXPECT_EQ(statistics.gpsTime.min, 1000);
    EXPECT_EQ(statistics.gpsTime.max, 1100);
    EXPECT_EQ(statistics.maxColor, 4000);
    EXPECT_EQ(statistics.pointsByClass[1], 34u);
    EXPECT_EQ(statistics.pointsByReturn[0], 101u);
    EXPECT_EQ(statistics.pointSources, (std::vector<uint16_t>{65534, 65535}));
}

TEST_F(BuilderTest, BringsSourcesOfTwoScalesToTheFinerOne)
{
    addSource(randomLas(999, 10000, 1).bytes());
    TestLas fine = randomLas(999, 10000, 2);
    fine.scale.fill(0.001);
    fine.offset.fill(100.25);
    addSource(fine.bytes());
    expectStore();
    EXPECT_EQ(info().header.scale[0], 0.001);
    EXPECT_FALSE(isNoted("source0.las")) << "on the grid of the other";
}

TEST_F(BuilderTest, WidensColorsOfEightBitsInAllSourcesOrNone)
{
    const auto colored = [](uint16_t red) {
        TestLas las;
        storeLe(&las.addPoint(0, 0, 0)[LasLayout::kRed], red);
        return las.bytes();
    };
    addSource(colored(255));
    addSource(colored(3));
    expectStore();
    EXPECT_EQ(info().statistics.maxColor, 65535);
    EXPECT_TRUE(isNoted("8-bit"));

    addSource(colored(256));
    options.overwrite = true;
    expectStore();
    EXPECT_EQ(info().statistics.maxColor, 256);
    EXPECT_FALSE(isNoted("8-bit"));
}

TEST_F(BuilderTest, BuildsCloudsWithoutExtent)
{
    constexpr int32_t kEnds[] = {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
    TestLas single, same, line, corners;
    single.addPoint(kEnds[1], kEnds[0], 0);
    for (int32_t i = 0; i < 70000; ++i) {
        same.addPoint(5, 6, 7);
        line.addPoint(i, 0, 0);
        corners.addPoint(kEnds[i & 1], kEnds[i >> 1 & 1], kEnds[i >> 2 & 1]);
    }
    options.overwrite = true;
    for (const TestLas& las : {single, same, line, corners}) {
        options.inputs.clear();
        sources.clear();
        addSource(las.bytes());
        expectStore();
    }
}

TEST_F(BuilderTest, RefusesSourcesOfTwoCoordinateSystems)
{
    TestLas here = randomLas(10, 100, 1);
    TestLas there = here;
    here.vlrs = {wktVlr("PROJCS[\"here\"]")};
    there.vlrs = {wktVlr("PROJCS[\"there\"]")};
    addSource(here.bytes());
    addSource(there.bytes());
    expectFailure("source1.las: its coordinate system");

    options.inputs.pop_back();
    sources.pop_back();
    there.vlrs = {wktVlr(std::string("PROJCS[\"here\"]\0\0", 16))};
    addSource(there.bytes());
    there.vlrs.clear();
    addSource(there.bytes());
    expectStore();
    EXPECT_TRUE(isNoted("tells no coordinate system"));
}

TEST_F(BuilderTest, TakesTheWordOfOthersForWhatCoordinateSystemsMean)
{
    TestLas here = randomLas(10, 100, 1);
    here.globalEncoding = 1;
    TestLas there = here;
    here.vlrs = {
        {"LASF_Projection", 34735, {1, 0, 1, 0, 0, 0, 0}}, {"liblas", 2112, {'x'}}, {"other", 5, {9}}};
    there.vlrs = {wktVlr("PROJCS[\"there\"]")};
    addSource(here.bytes());
    addSource(there.bytes());
    options.compareSystems = [](const ProjectionRecords& a, const ProjectionRecords& b) {
        EXPECT_EQ(a.geoKeys, (std::vector<uint8_t>{1, 0, 1}));
        return b.wkt + " instead";
    };
    expectFailure("source0.las: PROJCS[\"there\"] instead; ");
    options.compareSystems = [](const ProjectionRecords&, const ProjectionRecords&) { return std::string(); };
    expectStore();
    EXPECT_EQ(info().header.projection.geoKeys.size(), 3u);

    options.overwrite = true;
    options.compareSystems = nullptr;
    options.coordinateSystem = "PROJCS[\"there\"]";
    expectStore();
    EXPECT_TRUE(isNoted("1 of 2 inputs state another"));
    const BrxHeader header = info().header;
    EXPECT_EQ(header.coordinateSystem, "PROJCS[\"there\"]");
    EXPECT_TRUE(header.projection.geoKeys.empty());
    const std::vector<uint8_t> store = readFile(options.output);
    EXPECT_EQ(loadLe<uint16_t>(&store[LasLayout::kGlobalEncoding]), 0x11);
    EXPECT_EQ(loadLe<uint32_t>(&store[LasLayout::kVlrCount]), 2u) << "no record that says otherwise";
}

TEST_F(BuilderTest, LeavesNothingBehindWhenItFails)
{
    expectFailure("no input");
    addSource(TestLas().bytes());
    expectFailure("no points");
    options.inputs = {folder.file("missing.las")};
    expectFailure("missing.las: cannot be opened");
    addSource(randomLas(1000, 1000, 1).bytes());
    options.inputs = {options.inputs.back()};
    options.output = folder.file("no/such/folder.brx");
    expectFailure("folder");
    options.output = options.inputs[0];
    expectFailure("exists already");
    options.overwrite = true;
    expectFailure("is an input");
}

TEST_F(BuilderTest, LeavesNothingBehindWhenItIsCancelled)
{
    addSource(randomLas(300000, 100000, 1).bytes());
    std::atomic<bool> cancel{false};
    options.cancel = &cancel;
    options.chunkPoints = 10000;
    uint64_t total = 0;
    options.progress = [&](const BuildProgress& progress) { total = progress.pointsTotal; };
    expectStore();
    std::filesystem::remove(options.output);
    for (int part = 0; part < 10; ++part) {
        cancel = false;
        uint64_t last = 0;
        options.progress = [&](const BuildProgress& progress) {
            EXPECT_GE(progress.pointsDone, last);
            last = progress.pointsDone;
            if (progress.pointsDone * 10 >= total * uint64_t(part)) cancel = true;
        };
        expectFailure("cancelled");
    }
}

TEST_F(BuilderTest, KeepsAnOldStoreUntilTheNewOneIsComplete)
{
    addSource(randomLas(1000, 1000, 1).bytes());
    expectStore();
    const std::vector<uint8_t> old = readFile(options.output);
    EXPECT_FALSE(buildStore(options, report)) << "nothing is replaced unless asked";
    options.overwrite = true;
    const std::atomic<bool> cancel{true};
    options.cancel = &cancel;
    EXPECT_FALSE(buildStore(options, report));
    EXPECT_TRUE(readFile(options.output) == old);
}
