#pragma once

#include "viewer/edit/SceneEditing.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Lines that tell people what an operation did, the points of each class before and after included.
std::vector<std::string> describe(const VelOsgDBBrx::EditOutcome& outcome);

/// A line for each step of a list, the time in UTC: "2026-11-22 12:33  anna  hide, 1 520 points  (undone)".
std::vector<std::string> describe(const std::vector<VelOsgDBBrx::EditStep>& steps);

/// The points of all stores.
uint64_t totalOf(const std::map<std::string, uint64_t>& pointsByStore);

/// Lines that tell which stores have points with unsaved classes; none when there are none.
std::vector<std::string> describeUnsaved(const std::map<std::string, uint64_t>& unsaved);

/// Tells of points whose unsaved classes no journal keeps.
std::string describeLost(uint64_t points);

/// Tells how many points of these stores, of `all` on show, are hidden; empty where no store is named.
std::string describeHidden(uint64_t hidden, const std::vector<std::string>& stores, size_t all);

/// As many of these lines as fit beside the picture, and how many more standard error has.
std::vector<std::string> firstOf(std::vector<std::string> lines);

/// The first few of some files, and the number of the others.
std::string namesOf(const std::vector<std::string>& files);
