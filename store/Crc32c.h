#pragma once

#include <cstddef>
#include <cstdint>

namespace VelBrx {

/// CRC-32C (Castagnoli, reflected polynomial 0x82F63B78) of `size` bytes. To continue over several pieces,
/// hand the result of the piece before as `previous`.
uint32_t crc32c(const uint8_t* data, size_t size, uint32_t previous = 0);

} // namespace VelBrx
