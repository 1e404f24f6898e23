#include "tests/store/laz/LazEncoder.h"

#include "store/las/laz/IntegerDecoder.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

using namespace VelBrx::Laz;

namespace {

void start(ArithmeticDecoder& decoder, const std::vector<uint8_t>& bytes)
{
    decoder.start(bytes.data(), bytes.data() + bytes.size());
}

/// Symbols of which some are far more frequent than others, and which drift, so that models age.
template <unsigned kSymbols>
void expectSymbolsBack()
{
    std::mt19937 random(kSymbols);
    std::vector<uint32_t> symbols(60000);
    for (size_t k = 0; k < symbols.size(); ++k)
        symbols[k] = random() % 8 ? (k / 20000) % kSymbols : random() % kSymbols;

    LazEncoder encoder;
    EncodedModel encoded(kSymbols);
    for (uint32_t symbol : symbols)
        encoder.symbol(encoded, symbol);
    const std::vector<uint8_t> bytes = encoder.finish();

    for (const bool even : {false, true}) {
        ArithmeticDecoder decoder;
        start(decoder, bytes);
        auto model = std::make_unique<SymbolModel<kSymbols>>(kFreshModel<kSymbols>);
        for (size_t k = 0; k < symbols.size(); ++k)
            ASSERT_EQ(symbols[k], even ? decoder.evenSymbol(*model) : decoder.symbol(*model))
                << kSymbols << " " << k;
        EXPECT_TRUE(decoder.atEnd());
        EXPECT_FALSE(decoder.overrun() || decoder.corrupt());
    }
}

template <unsigned kBits>
void expectIntegersBack(const std::vector<std::pair<uint32_t, uint32_t>>& predictionsAndValues)
{
    constexpr uint32_t kMask = kBits == 32 ? 0xFFFFFFFFu : (1u << kBits % 32) - 1;
    LazEncoder encoder;
    IntegerEncoder integers(kBits, 3);
    unsigned context = 0;
    for (const auto& [prediction, value] : predictionsAndValues)
        integers.encode(encoder, prediction & kMask, value & kMask, context++ % 3);
    const std::vector<uint8_t> bytes = encoder.finish();

    ArithmeticDecoder decoder;
    start(decoder, bytes);
    auto decoded = std::make_unique<IntegerDecoder<kBits, 3>>();
    decoded->reset();
    context = 0;
    for (const auto& [prediction, value] : predictionsAndValues)
        ASSERT_EQ(value & kMask, decoded->decode(decoder, prediction & kMask, context++ % 3));
    EXPECT_TRUE(decoder.atEnd());
    EXPECT_FALSE(decoder.overrun() || decoder.corrupt());
}

} // namespace

TEST(ArithmeticDecoder, GivesBackSymbolsOfEveryKindOfModel)
{
    expectSymbolsBack<3>();
    expectSymbolsBack<16>();
    expectSymbolsBack<17>();
    expectSymbolsBack<33>();
    expectSymbolsBack<64>();
    expectSymbolsBack<128>();
    expectSymbolsBack<256>();
    expectSymbolsBack<515>();
}

TEST(ArithmeticDecoder, GivesBackBitsOfEveryNumber)
{
    std::mt19937 random(1);
    LazEncoder encoder;
    EncodedBitModel encodedBit;
    std::vector<uint32_t> values;
    for (unsigned round = 0; round < 200; ++round)
        for (unsigned n = 1; n <= 32; ++n) {
            values.push_back(static_cast<uint32_t>(random() >> (32 - n)));
            encoder.bits(n, values.back());
            encoder.bit(encodedBit, values.back() % 16 == 0);
        }
    const std::vector<uint8_t> bytes = encoder.finish();
    ArithmeticDecoder decoder;
    BitModel bit;
    start(decoder, bytes);
    for (size_t k = 0; k < values.size(); ++k) {
        ASSERT_EQ(values[k], decoder.bits(k % 32 + 1));
        ASSERT_EQ(values[k] % 16 == 0, decoder.bit(bit) == 1);
    }
    EXPECT_TRUE(decoder.atEnd());
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

TEST(IntegerDecoder, GivesBackExtremesAndWrapsAround)
{
    std::mt19937 random(2);
    std::vector<std::pair<uint32_t, uint32_t>> pairs;
    for (uint32_t value :
         {0u, 1u, 2u, 0x7FFFu, 0x8000u, 0xFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xFFFFFFFFu})
        for (uint32_t prediction : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
            pairs.push_back({prediction, value});
    for (unsigned k = 0; k < 20000; ++k) {
        const uint32_t prediction = random();
        pairs.push_back({prediction, prediction + (static_cast<uint32_t>(random()) >> random() % 32) - 100});
    }
    expectIntegersBack<32>(pairs);
    expectIntegersBack<16>(pairs);
    expectIntegersBack<8>(pairs);
}
