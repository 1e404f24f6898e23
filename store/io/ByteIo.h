#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace VelBrx {

/// The value of type T whose little-endian bytes start at `bytes`; no alignment is needed.
template <typename T>
T loadLe(const uint8_t* bytes)
{
    static_assert(std::is_arithmetic_v<T>, "only numbers have a byte order");
    uint8_t raw[sizeof(T)];
    std::memcpy(raw, bytes, sizeof(T));
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    std::reverse(raw, raw + sizeof(T));
#endif
    T value;
    std::memcpy(&value, raw, sizeof(T));
    return value;
}

/// Writes the little-endian bytes of `value` to `bytes`.
template <typename T>
void storeLe(uint8_t* bytes, T value)
{
    static_assert(std::is_arithmetic_v<T>, "only numbers have a byte order");
    std::memcpy(bytes, &value, sizeof(T));
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    std::reverse(bytes, bytes + sizeof(T));
#endif
}

} // namespace VelBrx
