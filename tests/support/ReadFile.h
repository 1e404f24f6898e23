#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// All bytes of a file. Throws when it cannot be read.
std::vector<uint8_t> readFile(const std::string& path);
