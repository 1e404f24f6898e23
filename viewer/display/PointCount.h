#pragma once

#include <cstdint>
#include <string>

/// Reads a count of points such as 2000000, 500k, 20M or 1.5G; false, and `count` unchanged, for anything
/// else.
bool parsePointCount(const std::string& text, uint64_t& count);
