#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The MD5 sum (RFC 1321) of `size` bytes in hexadecimal digits.
std::string md5(const uint8_t* bytes, size_t size);
