#pragma once

#include "viewer/edit/EditSession.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Lines that tell people what an operation did, the points of each class before and after included.
std::vector<std::string> describe(const EditOutcome& outcome);

/// The points of all stores.
uint64_t totalOf(const std::map<std::string, uint64_t>& pointsByStore);

/// Lines that tell which stores have points with unsaved classes; none when there are none.
std::vector<std::string> describeUnsaved(const std::map<std::string, uint64_t>& unsaved);

/// Tells how many points of these stores, of `all` on show, are hidden; empty where no store is named.
std::string describeHidden(uint64_t hidden, const std::vector<std::string>& stores, size_t all);

/// The first few of some files, and the number of the others.
std::string namesOf(const std::vector<std::string>& files);
