#include "tests/store/laz/TestLaz.h"
#include "tests/support/ReadPoints.h"
#include "tests/support/TempFolder.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/laz/LazChunkDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace VelBrx;

namespace {

/// Hills whose heights jump now and then.
std::vector<int32_t> heights(size_t count, int32_t base)
{
    std::vector<int32_t> values;
    for (size_t k = 0; k < count; ++k)
        values.push_back(base + static_cast<int32_t>(300 * std::sin(k * 0.1)) +
                         (k % 17 == 0 ? 1 << k % 31 : 0));
    return values;
}

TestLaz fixedChunks()
{
    return {{heights(40, 0), heights(40, 5000), heights(40, -7), heights(11, 80)}};
}

TestLaz variableChunks()
{
    TestLaz laz{{heights(3, 0), heights(60, 5000), heights(1, -7), heights(25, 80)}};
    laz.variableChunks = true;
    return laz;
}

class LazFile : public testing::Test
{
protected:
    ReadPoints read(const std::vector<uint8_t>& bytes) const { return readPoints(_folder, bytes); }

    void expectWhole(const TestLaz& laz) const
    {
        const ReadPoints points = read(laz.bytes());
        EXPECT_TRUE(points.status) << points.status.message();
        EXPECT_TRUE(points.records == laz.records());
        EXPECT_TRUE(points.notes.empty()) << points.notes.front();
    }

    void expectFailure(const std::vector<uint8_t>& bytes, const std::string& word) const
    {
        const ReadPoints points = read(bytes);
        EXPECT_FALSE(points.status) << word;
        EXPECT_NE(std::string::npos, points.status.message().find(word)) << points.status.message();
        EXPECT_NE(std::string::npos, points.status.message().find("test.laz")) << points.status.message();
        EXPECT_EQ(std::string::npos, points.status.message().find('\n'));
    }

    /// Whatever was done to a file: its points fail, or some of them are read, no more than it could hold.
    void expectBounded(const std::vector<uint8_t>& bytes) const
    {
        const ReadPoints points = read(bytes);
        if (points.status)
            EXPECT_LE(points.records.size(), bytes.size() * kMaxLazPointsPerByte * TestLaz::kRecordLength);
        else
            EXPECT_FALSE(points.status.message().empty());
    }

    TempFolder _folder;
};

std::vector<uint8_t> changed(std::vector<uint8_t> bytes, size_t position, uint32_t value)
{
    storeLe(bytes.data() + position, value);
    return bytes;
}

} // namespace

TEST_F(LazFile, IsReadByItsChunkTable)
{
    expectWhole(fixedChunks());
    expectWhole(variableChunks());
    for (TestLaz laz : {fixedChunks(), variableChunks()}) {
        laz.tellsTableAtEnd = true;
        expectWhole(laz);
    }
}

TEST_F(LazFile, IsReadWithoutItsTableWhereChunksTellTheirEnds)
{
    const TestLaz laz = fixedChunks();
    TestLaz cut = laz;
    cut.hasTable = false;
    const std::vector<uint8_t> whole = laz.bytes();
    for (const std::vector<uint8_t>& bytes :
         {cut.bytes(), changed(whole, TestLaz::pointDataStart(), 7), changed(whole, laz.table(), 1),
          changed(whole, laz.table() + 4, 3), changed(whole, laz.table() + 4, 0xFFFFFFFF),
          changed(whole, laz.table() + 8, 0xA5A5A5A5)}) {
        const ReadPoints points = read(bytes);
        EXPECT_TRUE(points.status) << points.status.message();
        EXPECT_TRUE(points.records == laz.records());
        EXPECT_EQ(1u, points.notes.size());
    }
    TestLaz variable = variableChunks();
    variable.hasTable = false;
    expectFailure(variable.bytes(), "chunk table");
}

TEST_F(LazFile, CutOffAnywhereGivesItsWholeChunksOrFails)
{
    const TestLaz laz = fixedChunks();
    const std::vector<uint8_t> whole = laz.bytes();
    const std::vector<uint8_t> records = laz.records();
    size_t read40 = 0;
    for (size_t size = 0; size < whole.size(); ++size) {
        const ReadPoints points = read({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)});
        if (!points.status) {
            EXPECT_TRUE(points.records.empty());
            continue;
        }
        EXPECT_EQ(1u, points.notes.size());
        ASSERT_LE(points.records.size(), records.size());
        EXPECT_TRUE(std::equal(points.records.begin(), points.records.end(), records.begin()));
        EXPECT_TRUE(points.records.size() % (40 * TestLaz::kRecordLength) == 0 ||
                    points.records.size() == records.size());
        read40 += points.records.size() == 40 * TestLaz::kRecordLength;
    }
    EXPECT_GT(read40, 20u) << "the first chunk is found while the second is not whole";
}

TEST_F(LazFile, WithAnyBitFlippedIsReadOrFails)
{
    for (const TestLaz& laz : {fixedChunks(), variableChunks()}) {
        const std::vector<uint8_t> whole = laz.bytes();
        for (size_t bit = 8 * LasLayout::kHeaderSizeField; bit < 8 * whole.size(); bit += 3) {
            std::vector<uint8_t> bytes = whole;
            bytes[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
            expectBounded(bytes);
        }
    }
}

TEST_F(LazFile, WithACountThatItCannotHoldFails)
{
    for (const TestLaz& laz : {fixedChunks(), variableChunks()})
        for (uint32_t count : {0xFFFFFFFFu, 1'000'000u}) {
            const ReadPoints points = read(changed(laz.bytes(), LasLayout::kLegacyPointCount, count));
            EXPECT_EQ(points.status ? 1u : 0u, points.notes.size());
            EXPECT_TRUE(points.records.empty() || points.records == laz.records() ||
                        points.records.size() == 120 * TestLaz::kRecordLength);
        }
    // Compressed in one piece, all the file is one chunk.
    std::vector<uint8_t> bytes = fixedChunks().bytes();
    bytes[TestLaz::lazRecord()] = 1;
    expectFailure(changed(bytes, LasLayout::kLegacyPointCount, 0xFFFFFFFF), "more points than it can hold");
    expectFailure(bytes, "");
}

TEST_F(LazFile, DamagedInsideAChunkIsToldOf)
{
    const TestLaz laz = variableChunks();
    unsigned told = 0, tried = 0;
    for (size_t at = TestLaz::pointDataStart() + 8 + 60; at < laz.table(); at += 3) {
        std::vector<uint8_t> bytes = laz.bytes();
        bytes[at] ^= 0x55;
        const ReadPoints points = read(bytes);
        if (points.status && points.records == laz.records()) continue;
        ++tried;
        told += !points.status || !points.notes.empty();
    }
    EXPECT_GT(tried, 10u);
    EXPECT_GT(told, tried / 2) << "a stream that goes wrong seldom ends where it should";
}

TEST_F(LazFile, WithAnUnknownCompressionFails)
{
    const std::vector<uint8_t> whole = fixedChunks().bytes();
    const size_t at = TestLaz::lazRecord();
    expectFailure(changed(whole, at, 4), "compressor");
    expectFailure(changed(whole, at, 0), "compressor");
    expectFailure(changed(whole, at, 2 | 1 << 16), "coder");
    std::vector<uint8_t> bytes = whole;
    bytes[LasLayout::kPointFormat] |= kLazPreReleaseBit;
    expectFailure(bytes, "trial version");
    bytes = whole;
    bytes[at - LasLayout::kVlrHeaderSize + LasLayout::kVlrUserId] = 'x';
    expectFailure(bytes, "record that tells how");
    bytes = whole;
    storeLe<uint16_t>(bytes.data() + LasLayout::kRecordLength, 21);
    expectFailure(bytes, "21");
}

TEST(LazItems, AreTakenOnlyInTheirKnownForms)
{
    const auto parse = [](uint16_t compressor, uint16_t length,
                          const std::vector<std::vector<uint16_t>>& list) {
        const std::vector<uint8_t> payload = lazRecord(compressor, 50000, list);
        LazItems items;
        return parseLazItems(payload.data(), payload.size(), length, items);
    };
    EXPECT_TRUE(parse(2, 20, {{6, 20, 2}}));
    EXPECT_TRUE(parse(1, 66, {{6, 20, 1}, {7, 8, 1}, {8, 6, 1}, {9, 29, 1}, {0, 3, 1}}));
    EXPECT_TRUE(parse(3, 70, {{10, 30, 3}, {12, 8, 3}, {13, 29, 3}, {14, 3, 3}}));
    EXPECT_TRUE(parse(3, 36, {{10, 30, 4}, {11, 6, 4}}));
    EXPECT_FALSE(parse(2, 20, {})) << "no items";
    EXPECT_FALSE(parse(2, 28, {{7, 8, 2}, {6, 20, 2}})) << "not in the order of a record";
    EXPECT_FALSE(parse(2, 40, {{6, 20, 2}, {6, 20, 2}})) << "two points";
    EXPECT_FALSE(parse(2, 8, {{7, 8, 2}})) << "no point";
    EXPECT_FALSE(parse(2, 20, {{6, 20, 3}})) << "version";
    EXPECT_FALSE(parse(3, 30, {{10, 30, 5}})) << "version";
    EXPECT_FALSE(parse(2, 28, {{6, 20, 2}, {7, 8, 1}})) << "versions mixed";
    EXPECT_FALSE(parse(3, 20, {{6, 20, 2}})) << "of the other compressor";
    EXPECT_FALSE(parse(2, 21, {{6, 21, 2}})) << "size";
    EXPECT_FALSE(parse(2, 20, {{6, 20, 2}, {0, 0, 2}})) << "size";
    EXPECT_FALSE(parse(2, 27, {{6, 20, 2}, {7, 8, 2}})) << "sum";

    const std::vector<uint8_t> payload = lazRecord(2, 50000, {{6, 20, 2}});
    for (size_t size = 0; size < payload.size(); ++size) {
        LazItems items;
        EXPECT_FALSE(parseLazItems(payload.data(), size, 20, items)) << size;
    }
}

TEST(LazChunkDecoder, GivesAChunkInPiecesOfAnySizeAndNoMore)
{
    const TestLaz laz{{heights(1000, 0)}};
    const std::vector<uint8_t> bytes = laz.bytes();
    const std::vector<uint8_t> records = laz.records();
    const size_t start = TestLaz::pointDataStart() + 8;
    const std::vector<uint8_t> payload = lazRecord(2, 1000, {{6, 20, 2}});
    LazItems items;
    ASSERT_TRUE(parseLazItems(payload.data(), payload.size(), TestLaz::kRecordLength, items));
    LazChunkDecoder decoder(items);
    for (uint64_t piece : {1, 7, 400, 1000}) {
        ASSERT_TRUE(decoder.start(bytes.data() + start, laz.table() - start, 1000));
        std::vector<uint8_t> read(records.size());
        for (uint64_t done = 0; done < 1000; done += piece)
            ASSERT_TRUE(
                decoder.read(read.data() + done * TestLaz::kRecordLength, std::min(piece, 1000 - done)));
        EXPECT_TRUE(read == records);
        EXPECT_TRUE(decoder.endsExactly());
        EXPECT_FALSE(decoder.read(read.data(), 1));
    }
    EXPECT_FALSE(decoder.start(bytes.data() + start, 19, 1000));
    std::vector<uint8_t> tooMany(2000 * TestLaz::kRecordLength);
    EXPECT_FALSE(decoder.decode(bytes.data() + start, laz.table() - start, 2000, tooMany.data()));
}
