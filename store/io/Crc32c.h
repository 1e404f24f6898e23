#pragma once

#include <cstddef>
#include <cstdint>

namespace VelBrx {

/// CRC-32C (Castagnoli, reflected polynomial 0x82F63B78) of `size` bytes. To continue over several pieces,
/// hand the result of the piece before as `previous`.
uint32_t crc32c(const uint8_t* data, size_t size, uint32_t previous = 0);

/// CRC-32C of two pieces together, from the CRC of the `first` and the CRC of the `second`, which has
/// `secondLength` bytes.
uint32_t crc32cCombine(uint32_t first, uint32_t second, uint64_t secondLength);

} // namespace VelBrx
