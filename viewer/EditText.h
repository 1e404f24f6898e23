#pragma once

#include "viewer/EditSession.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// A number with its thousands apart.
std::string grouped(uint64_t number);

/// Lines that tell people what an operation did, the points of each class before and after included.
std::vector<std::string> describe(const EditOutcome& outcome);

/// Lines that tell which stores have points with unsaved classes; none when there are none.
std::vector<std::string> describeUnsaved(const std::map<std::string, uint64_t>& unsaved);
