#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/RecordFormat.h"
#include "store/las/laz/LazChunkDecoder.h"
#include "tests/support/BuildStore.h"
#include "tests/support/ReadPoints.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>

using namespace VelBrx;
using namespace VelBrx::LasLayout;

namespace {

using Bytes = std::vector<uint8_t>;
using Key = std::array<int32_t, 4>; ///< level, x, y, z

/// Points in clusters of unlike density, so that the octree is not regular. Some are on borders of its cells,
/// which begin at the first point.
TestLas survey(uint8_t pointFormat, size_t count, unsigned seed, uint16_t extraBytes)
{
    TestLas las;
    las.pointFormat = pointFormat;
    las.versionMinor = pointFormat < 6 ? 2 : 4;
    las.recordLength = static_cast<uint16_t>(coreRecordLength(pointFormat) + extraBytes);
    las.scale = {0.001, 0.002, 0.0005};
    las.offset = {512345.678, 5912345.5, 100};
    std::mt19937 random(seed);
    for (size_t i = 0; i < count; ++i) {
        const int32_t spread = i % 3 ? 4000 : 400000;
        const auto place = [&](int32_t start) {
            const auto steps = static_cast<int32_t>(random() % static_cast<unsigned>(spread));
            return start + (i == 0 ? 0 : i % 5 ? steps : steps & ~0xFFF);
        };
        const auto x = static_cast<int32_t>(seed) * 50000;
        Bytes& record = las.addPoint(place(x), place(0), i % 5 ? place(0) / 20 : place(0));
        for (size_t byte = 12; byte < record.size(); ++byte)
            record[byte] = static_cast<uint8_t>(random());
        if (pointFormat >= 6) {
            record[14] = static_cast<uint8_t>(1 + random() % 3 + 0x30);
            storeLe(&record[22], 1e8 + static_cast<double>(random() % 100000));
        } else {
            record[14] = static_cast<uint8_t>(1 + random() % 3 + 3 * 8);
            storeLe(&record[20], 1e8 + static_cast<double>(random() % 100000));
        }
    }
    return las;
}

/// A COPC file read by its own rules alone.
class CopcFile
{
public:
    explicit CopcFile(const std::string& path) : bytes(readFile(path))
    {
        const Status status = readLasFile(path, las);
        EXPECT_TRUE(status) << status.message();
    }

    template <typename T>
    T at(size_t position) const
    {
        return loadLe<T>(&bytes[position]);
    }

    void expectValidHead() const
    {
        EXPECT_EQ(bytes[kVersionMinor], 4);
        EXPECT_EQ(at<uint16_t>(kHeaderSizeField), 375);
        EXPECT_EQ(bytes[kPointFormat], 0x80 | las.pointFormat);
        EXPECT_TRUE(las.pointFormat >= 6 && las.pointFormat <= 8);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[377])), "copc");
        EXPECT_EQ(at<uint16_t>(375 + kVlrRecordId), 1);
        EXPECT_EQ(at<uint16_t>(375 + kVlrLength), 160);
        EXPECT_TRUE(std::all_of(&bytes[501], &bytes[501 + 88], [](uint8_t byte) { return byte == 0; }));
        EXPECT_EQ(las.laz->items.chunkSize, 0u);
        EXPECT_EQ(las.laz->items.items.front().version, 3);
        EXPECT_TRUE(las.notes.empty());
        ASSERT_EQ(las.evlrs.size(), 1u);
        EXPECT_EQ(las.evlrs[0].userId, "copc");
        EXPECT_EQ(las.evlrs[0].recordId, 1000);
        EXPECT_EQ(at<uint64_t>(469), at<uint64_t>(kEvlrStart) + kEvlrHeaderSize);
        EXPECT_EQ(at<uint64_t>(469) + at<uint64_t>(477), bytes.size());
    }

    /// Reads all nodes and checks where they and their points are.
    void readNodes()
    {
        std::map<Key, std::array<uint64_t, 3>> entries; // position, size, points
        for (size_t entry = at<uint64_t>(469); entry < bytes.size(); entry += 32) {
            const Key key = {at<int32_t>(entry), at<int32_t>(entry + 4), at<int32_t>(entry + 8),
                             at<int32_t>(entry + 12)};
            const auto size = static_cast<uint64_t>(at<int32_t>(entry + 24));
            const auto points = static_cast<uint64_t>(at<int32_t>(entry + 28));
            EXPECT_TRUE(entries.insert({key, {at<uint64_t>(entry + 16), size, points}}).second);
            deepest = std::max(deepest, key[0]);
        }
        std::set<uint64_t> chunkStarts;
        for (const LazChunk& chunk : las.laz->chunks.chunks)
            chunkStarts.insert(chunk.position);
        for (const auto& [key, entry] : entries) {
            if (key[0] > 0) {
                EXPECT_EQ(entries.count({key[0] - 1, key[1] / 2, key[2] / 2, key[3] / 2}), 1u);
            }
            if (entry[2] == 0) {
                EXPECT_EQ(entry[0] + entry[1], 0u);
                ++emptyNodes;
                continue;
            }
            EXPECT_EQ(chunkStarts.erase(entry[0]), 1u);
            Bytes node(entry[2] * las.recordLength);
            LazChunkDecoder decoder(las.laz->items);
            ASSERT_TRUE(decoder.decode(&bytes[entry[0]], entry[1], entry[2], node.data()));
            checkPoints(key, node);
        }
        EXPECT_TRUE(chunkStarts.empty());
        EXPECT_EQ(at<double>(485), firstTime);
        EXPECT_EQ(at<double>(493), lastTime);
    }

    const Bytes bytes;
    LasFile las;
    /// A point each, in any order.
    std::multiset<Bytes> recordsOf(const Bytes& points) const
    {
        std::multiset<Bytes> all;
        for (auto at = points.begin(); at != points.end(); at += las.recordLength)
            all.emplace(at, at + las.recordLength);
        return all;
    }

    std::multiset<Bytes> records;
    int32_t deepest = 0;
    size_t emptyNodes = 0;

private:
    void checkPoints(const Key& key, const Bytes& node)
    {
        double last = -INFINITY;
        for (size_t i = 0; i < node.size(); i += las.recordLength) {
            const auto time = loadLe<double>(&node[i + 22]);
            EXPECT_GE(time, last) << "in the order of time";
            last = time;
            firstTime = std::min(firstTime, time);
            lastTime = std::max(lastTime, time);
            for (size_t axis = 0; axis < 3; ++axis) {
                double low = at<double>(429 + 8 * axis) - at<double>(453);
                double high = at<double>(429 + 8 * axis) + at<double>(453);
                for (int digit = key[0] - 1; digit >= 0; --digit)
                    (key[axis + 1] >> digit & 1 ? low : high) = low + (high - low) / 2;
                const double value =
                    loadLe<int32_t>(&node[i + 4 * axis]) * las.scale[axis] + las.offset[axis];
                ASSERT_TRUE(low <= value && value <= high) << key[0] << " axis " << axis;
            }
        }
        records.merge(recordsOf(node));
    }

    double firstTime = INFINITY;
    double lastTime = -INFINITY;
};

} // namespace

TEST(CopcExport, MakesFilesThatKeepAllRulesAndAllPoints)
{
    const TempFolder folder;
    const std::vector<std::vector<TestLas>> inputs = {
        {survey(6, 60000, 1, 0)}, {survey(3, 40000, 2, 0), survey(8, 50000, 3, 4), survey(7, 30000, 4, 0)}};
    for (const std::vector<TestLas>& sources : inputs) {
        const std::string tiles = std::to_string(sources.size());
        std::filesystem::create_directory(folder.file(tiles));
        for (const TestLas& las : sources)
            folder.write(tiles + "/" + std::to_string(las.pointFormat) + ".las", las.bytes());
        ExportOptions options;
        options.store = folder.file("cloud.brx");
        buildStoreOf(folder.file(tiles), options.store);
        options.overwrite = true;
        options.form = ExportForm::Merged;
        Bytes first;
        for (const bool visibleOnly : {false, true})
            for (const unsigned threads : {1u, 3u}) {
                SCOPED_TRACE(std::to_string(sources.size()) + " sources, " + std::to_string(threads) +
                             " threads" + (visibleOnly ? ", visible only" : ""));
                options.part.visibleOnly = visibleOnly;
                options.threads = threads;
                options.output = folder.file("out.laz");
                ExportReport merged;
                ASSERT_TRUE(exportLas(options, merged));
                options.output = folder.file("out.COPC.laz");
                ExportReport report;
                const Status status = exportLas(options, report);
                ASSERT_TRUE(status) << status.message();
                EXPECT_EQ(report.files.at(0).points, merged.files.at(0).points);
                EXPECT_EQ(report.files[0].changed, merged.files[0].changed);
                EXPECT_EQ(report.hiddenLeftOut, merged.hiddenLeftOut);

                CopcFile copc(options.output);
                copc.expectValidHead();
                copc.readNodes();
                EXPECT_GE(copc.deepest, 3);
                EXPECT_TRUE(copc.records == copc.recordsOf(readPoints(folder.file("out.laz")).records));
                const Bytes plain = readFile(folder.file("out.laz"));
                EXPECT_TRUE(std::equal(&plain[kScale], &plain[kWaveformStart], &copc.bytes[kScale]))
                    << "scale, offset, bounds";
                EXPECT_TRUE(std::equal(&plain[kPointCount], &plain[375], &copc.bytes[kPointCount]));
                if (threads > 1) {
                    EXPECT_TRUE(copc.bytes == first) << "does not depend on threads";
                }
                first = copc.bytes;
            }
    }
}

TEST(CopcExport, RefusesNodesThatDoNotFitTheMemory)
{
    const TempFolder folder;
    ExportOptions options;
    options.store = folder.file("cloud.brx");
    buildStoreOf(folder.write("source.las", survey(7, 20000, 1, 0).bytes()), options.store);
    options.output = folder.file("out.copc.laz");
    options.memory = 1000;
    ExportReport report;
    const Status status = exportLas(options, report);
    EXPECT_FALSE(status);
    EXPECT_NE(status.message().find("out.copc.laz: a cell of the store has"), std::string::npos)
        << status.message();
    EXPECT_FALSE(std::filesystem::exists(options.output));
}
