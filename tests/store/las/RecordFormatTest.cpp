#include "store/las/RecordFormat.h"

#include "store/io/ByteIo.h"

#include <gtest/gtest.h>

#include <vector>

using namespace VelBrx;

namespace {

struct Decoded
{
    std::vector<uint8_t> record = std::vector<uint8_t>(LasLayout::kPointSize, 0xEE);
    uint8_t flags = 0xEE;
    std::vector<uint8_t> rest;
};

Decoded decodeOne(const RecordFormat& format, const std::vector<uint8_t>& source)
{
    Decoded decoded;
    decoded.rest.resize(format.restLength());
    format.decode(source.data(), 1, decoded.record.data(), &decoded.flags, decoded.rest.data(),
                  decoded.rest.size());
    return decoded;
}

} // namespace

TEST(RecordFormat, PutsLegacyAttributesWhereFormat7HasThem)
{
    std::vector<uint8_t> source(34, 0);
    source[14] = 0b10'011'010;                // edge, return 2 of 3
    source[15] = 0b011'01100;                 // key-point and synthetic, class 12
    source[16] = static_cast<uint8_t>(-15);   // degrees
    source[17] = 200;                         // user data
    storeLe<uint16_t>(&source[18], 4711);     // point source
    storeLe<double>(&source[20], 123456.789); // GPS time
    storeLe<uint16_t>(&source[28], 1000);
    storeLe<uint16_t>(&source[30], 2000);
    storeLe<uint16_t>(&source[32], 3000);
    const Decoded decoded = decodeOne(RecordFormat(3, 34), source);
    const uint8_t* record = decoded.record.data();
    EXPECT_EQ(record[LasLayout::kReturns], 0x32);
    EXPECT_EQ(record[LasLayout::kFlags], 0x80) << "edge of flight line, nothing hidden";
    EXPECT_EQ(record[LasLayout::kClass], 12);
    EXPECT_EQ(decoded.flags, kSynthetic | kKeyPoint);
    EXPECT_EQ(record[LasLayout::kUserData], 200);
    EXPECT_EQ(loadLe<int16_t>(record + LasLayout::kScanAngle), -2500);
    EXPECT_EQ(loadLe<uint16_t>(record + LasLayout::kPointSource), 4711);
    EXPECT_EQ(loadLe<double>(record + LasLayout::kGpsTime), 123456.789);
    EXPECT_EQ(loadLe<uint16_t>(record + LasLayout::kBlue), 3000);
}

TEST(RecordFormat, HidesWithheldPointsAndNoOthers)
{
    for (uint8_t flags = 0; flags < 16; ++flags) {
        std::vector<uint8_t> source(30, 0);
        source[15] = static_cast<uint8_t>(0xF0 | flags);
        const Decoded decoded = decodeOne(RecordFormat(6, 30), source);
        const auto word = loadLe<uint16_t>(&decoded.record[14]);
        EXPECT_EQ(word & 0x0F00, flags & 4 ? 0x0400 : 0);
        EXPECT_EQ(word & 0xF000, 0xF000) << "channel, direction and edge stay";
        EXPECT_EQ(decoded.flags, flags);
    }
}

TEST(RecordFormat, LeavesMissingTimesAndColorsZero)
{
    const std::vector<uint8_t> source(20, 0xFF);
    const Decoded decoded = decodeOne(RecordFormat(0, 20), source);
    for (size_t i = LasLayout::kGpsTime; i < LasLayout::kPointSize; ++i)
        EXPECT_EQ(decoded.record[i], 0);
}
