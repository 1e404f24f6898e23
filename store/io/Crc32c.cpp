#include "store/io/Crc32c.h"

#include "store/io/ByteIo.h"

#include <array>

namespace VelBrx {

namespace {

constexpr uint32_t kPolynomial = 0x82F63B78u; // reflected: the highest bit is x^0

/// value times x modulo the polynomial.
constexpr uint32_t timesX(uint32_t value)
{
    return (value >> 1) ^ ((value & 1) ? kPolynomial : 0u);
}

/// kTables[k][b]: what byte b contributes when k more bytes follow it.
constexpr std::array<std::array<uint32_t, 256>, 8> makeTables()
{
    std::array<std::array<uint32_t, 256>, 8> tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit)
            value = timesX(value);
        tables[0][byte] = value;
    }
    for (size_t k = 1; k < tables.size(); ++k)
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t before = tables[k - 1][byte];
            tables[k][byte] = (before >> 8) ^ tables[0][before & 0xFF];
        }
    return tables;
}

constexpr auto kTables = makeTables();

/// Product of two polynomials modulo the checksum's.
uint32_t product(uint32_t a, uint32_t b)
{
    uint32_t result = 0;
    for (; a != 0; a <<= 1, b = timesX(b))
        if (a & 0x80000000u) result ^= b;
    return result;
}

} // namespace

uint32_t crc32c(const uint8_t* data, size_t size, uint32_t previous)
{
    uint32_t crc = ~previous;
    for (; size >= 8; size -= 8, data += 8) {
        const uint64_t block = loadLe<uint64_t>(data) ^ crc;
        crc = 0;
        for (unsigned k = 0; k < 8; ++k)
            crc ^= kTables[7 - k][(block >> (8 * k)) & 0xFF];
    }
    for (; size > 0; --size, ++data)
        crc = (crc >> 8) ^ kTables[0][(crc ^ *data) & 0xFF];
    return ~crc;
}

uint32_t crc32cCombine(uint32_t first, uint32_t second, uint64_t secondLength)
{
    // The bytes behind a piece multiply its remainder by x^8 each.
    uint32_t power = 0x00800000u; // x^8
    for (; secondLength != 0; secondLength >>= 1, power = product(power, power))
        if (secondLength & 1) first = product(power, first);
    return first ^ second;
}

} // namespace VelBrx
