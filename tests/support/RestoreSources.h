#pragma once

#include "tests/support/ReadFile.h"

#include <cstdint>
#include <string>
#include <vector>

/// The files that a store was built from, byte for byte, as its records tell them. Throws where the store's
/// points are not each source point once.
std::vector<std::vector<uint8_t>> restoreSources(const std::string& storePath);
