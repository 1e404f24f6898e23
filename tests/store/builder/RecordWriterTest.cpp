#include "store/builder/RecordWriter.h"

#include "store/LasLayout.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "tests/support/RestoreSources.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

using namespace VelBrx;

namespace {

constexpr size_t kPiece = 13;
constexpr size_t kPieces = 200;

class RecordWriterTest : public testing::Test
{
protected:
    const TempFolder folder;
    std::vector<uint8_t> content = std::vector<uint8_t>(kPiece * (kPieces + 1));
    OutputFile file;

    RecordWriterTest()
    {
        std::mt19937 random(3);
        std::generate(content.begin(), content.end(), [&] { return static_cast<uint8_t>(random()); });
        EXPECT_TRUE(file.create(folder.file("record"), false, content.size()));
    }

    std::vector<uint8_t> head() const { return {content.begin(), content.begin() + kPiece}; }

    Status writePiece(RecordWriter& writer, size_t piece)
    {
        const size_t position = kPiece * (piece + 1);
        return writer.write(position, &content[position], kPiece);
    }
};

} // namespace

TEST_F(RecordWriterTest, ChecksumsPiecesOfAnyOrder)
{
    std::vector<size_t> order(kPieces);
    std::iota(order.begin(), order.end(), size_t(0));
    std::shuffle(order.begin(), order.end(), std::mt19937(5));
    RecordWriter writer(file, 100, content.size() + 4);
    ASSERT_TRUE(writer.begin(2, "pieces", head()));
    for (size_t piece : order)
        ASSERT_TRUE(writePiece(writer, piece));
    ASSERT_TRUE(writer.finish());
    ASSERT_TRUE(file.commit());

    const std::vector<uint8_t> bytes = readFile(folder.file("record"));
    const size_t start = 100 + LasLayout::kEvlrHeaderSize;
    ASSERT_EQ(bytes.size(), start + content.size() + 4);
    EXPECT_TRUE(std::equal(content.begin(), content.end(), bytes.begin() + start));
    EXPECT_EQ(loadLe<uint32_t>(&bytes[start + content.size()]), crc32c(content.data(), content.size()));
    EXPECT_EQ(loadLe<uint64_t>(&bytes[100 + LasLayout::kEvlrLength]), content.size() + 4);
}

TEST_F(RecordWriterTest, RefusesToSignARecordWithAGap)
{
    RecordWriter writer(file, 0, content.size() + 4);
    ASSERT_TRUE(writer.begin(2, "pieces", head()));
    for (size_t piece = 0; piece < kPieces; ++piece)
        if (piece != 7) {
            ASSERT_TRUE(writePiece(writer, piece));
        }
    EXPECT_FALSE(writer.finish());
    ASSERT_TRUE(writePiece(writer, 7));
    EXPECT_TRUE(writer.finish());
}
