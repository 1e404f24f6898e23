#include "store/io/Crc32c.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using VelBrx::crc32c;
using VelBrx::crc32cCombine;

namespace {

uint32_t crcOfText(const std::string& text)
{
    return crc32c(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

} // namespace

TEST(Crc32c, GivesThePublishedValues)
{
    EXPECT_EQ(crcOfText(""), 0u);
    EXPECT_EQ(crcOfText("123456789"), 0xE3069283u);
    EXPECT_EQ(crc32c(std::vector<uint8_t>(32, 0x00).data(), 32), 0x8A9136AAu); // RFC 3720, B.4
    EXPECT_EQ(crc32c(std::vector<uint8_t>(32, 0xFF).data(), 32), 0x62A8AB43u);
}

TEST(Crc32c, OfAWholeFollowsFromThoseOfItsParts)
{
    std::vector<uint8_t> data(100003);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i * i >> 3);
    const uint32_t whole = crc32c(data.data(), data.size());
    for (size_t cut : {size_t(0), size_t(1), size_t(7), size_t(65536), data.size() - 1, data.size()}) {
        const uint32_t second = crc32c(data.data() + cut, data.size() - cut);
        EXPECT_EQ(crc32cCombine(crc32c(data.data(), cut), second, data.size() - cut), whole) << cut;
    }
}
