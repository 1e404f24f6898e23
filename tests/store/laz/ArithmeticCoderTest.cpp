#include "store/las/laz/IntegerCoder.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

using namespace VelBrx::Laz;

namespace {

void start(ArithmeticDecoder& decoder, const std::vector<uint8_t>& bytes)
{
    decoder.start(bytes.data(), bytes.data() + bytes.size());
}

std::vector<uint8_t> bytesOf(ArithmeticEncoder& encoder)
{
    encoder.finish();
    return {encoder.data(), encoder.data() + encoder.size()};
}

/// A stream in hexadecimal digits, of what `encode` puts into it.
template <typename Encode>
std::string encoded(const Encode& encode)
{
    ArithmeticEncoder encoder;
    encoder.start();
    encode(encoder);
    std::string digits;
    for (const uint8_t byte : bytesOf(encoder)) {
        digits += "0123456789abcdef"[byte >> 4];
        digits += "0123456789abcdef"[byte & 15];
    }
    return digits;
}

template <unsigned kSymbols>
std::string encodedSymbols(const std::vector<unsigned>& symbols)
{
    SymbolModel<kSymbols> model = kFreshModel<kSymbols>;
    return encoded([&](ArithmeticEncoder& encoder) {
        for (const unsigned symbol : symbols)
            encoder.symbol(model, symbol);
    });
}

std::string encodedBits(const std::vector<unsigned>& bits)
{
    BitModel model;
    return encoded([&](ArithmeticEncoder& encoder) {
        for (const unsigned bit : bits)
            encoder.bit(model, bit);
    });
}

template <unsigned kBits>
std::string encodedIntegers(const std::vector<std::pair<uint32_t, uint32_t>>& predictionsAndValues)
{
    auto integers = std::make_unique<IntegerCoder<kBits, 1>>();
    integers->reset();
    return encoded([&](ArithmeticEncoder& encoder) {
        for (const auto& [prediction, value] : predictionsAndValues)
            integers->code(encoder, prediction, value);
    });
}

std::vector<unsigned> repeated(size_t count, unsigned value, unsigned last)
{
    std::vector<unsigned> values(count, value);
    values.push_back(last);
    return values;
}

} // namespace

/// Streams that the format's first writer made.
TEST(ArithmeticEncoder, MakesTheStreamsOfOtherEncoders)
{
    EXPECT_EQ("01000000", encoded([](ArithmeticEncoder&) {}));
    EXPECT_EQ("ab00000000", encoded([](ArithmeticEncoder& encoder) { encoder.bits(8, 0xAB); }));
    EXPECT_EQ("fff7f79c17a10000", encoded([](ArithmeticEncoder& encoder) {
                  encoder.bits(19, 0x7FFFF);
                  encoder.bits(20, 0xABCDE);
              }));
    EXPECT_EQ("5677bbbbee000000", encoded([](ArithmeticEncoder& encoder) { encoder.bits(32, 0x12345678); }));
    EXPECT_EQ("fffeffffffffffff01000000",
              encoded([](ArithmeticEncoder& encoder) { encoder.bits64(~uint64_t{0}); }));
    EXPECT_EQ("60d2000000", encodedBits({0, 1, 1, 0, 0, 0, 0, 0, 1, 1}));
    EXPECT_EQ("ff440000", encodedBits(std::vector<unsigned>(40, 1)));
    EXPECT_EQ("32188c9d0000", encodedSymbols<5>({0, 4, 4, 2, 1, 3, 0, 0, 0, 4}));
    EXPECT_EQ("fffffffe" + std::string(30, 'f') + "fe02800000", encodedSymbols<256>(repeated(20, 255, 0)))
        << "a carry runs back over many bytes";
    EXPECT_EQ("7ffd4c4f000000", encodedSymbols<3>(repeated(200, 1, 2)));
    EXPECT_EQ("000f791c977634d72dacf960d4cf000000", encodedIntegers<32>({{0, 0},
                                                                         {0, 1},
                                                                         {0, 0u - 1},
                                                                         {0, 2},
                                                                         {0, 5},
                                                                         {0, 0u - 300},
                                                                         {0, 70000},
                                                                         {0, 0x80000000u},
                                                                         {0, 0x7FFFFFFFu}}));
    EXPECT_EQ("0fb65b47831d000000",
              encodedIntegers<16>({{0, 65535}, {10, 9}, {0, 32768}, {65535, 0}, {100, 100}}));
}

TEST(ArithmeticDecoder, TellsWhenItsBytesAreUsedUp)
{
    const std::vector<uint8_t> bytes(9, 0x5A);
    ArithmeticDecoder decoder;
    start(decoder, bytes);
    for (unsigned k = 0; k < 5; ++k)
        decoder.bits(8);
    EXPECT_FALSE(decoder.overrun());
    for (unsigned k = 0; k < 5; ++k)
        decoder.bits(8);
    EXPECT_TRUE(decoder.overrun());
}

/// A value that is not below the length from the start would leave the intervals of all symbols.
TEST(ArithmeticDecoder, GivesNoSymbolThatItsModelLacks)
{
    std::mt19937 random(3);
    for (unsigned trial = 0; trial < 20000; ++trial) {
        std::vector<uint8_t> bytes(64, 0xFF);
        for (size_t k = 4; k < bytes.size(); ++k)
            bytes[k] = static_cast<uint8_t>(random() | (random() % 2) * 0xFF);
        ArithmeticDecoder decoder;
        start(decoder, bytes);
        EXPECT_TRUE(decoder.corrupt());
        SymbolModel<256> model = kFreshModel<256>;
        for (unsigned k = 0; k < 60; ++k)
            ASSERT_LT(decoder.symbol(model), 256u);
    }
}
