#include "store/Crc32c.h"

#include "store/ByteIo.h"

#include <array>

namespace VelBrx {

namespace {

/// kTables[k][b]: what byte b contributes when k more bytes follow it.
constexpr std::array<std::array<uint32_t, 256>, 8> makeTables()
{
    std::array<std::array<uint32_t, 256>, 8> tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) ? 0x82F63B78u : 0u);
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

} // namespace VelBrx
