#pragma once

#include <bitset>
#include <optional>
#include <string>
#include <vector>

using ClassSet = std::bitset<256>;

/// Classes as people type them: numbers of 0 to 255 with commas between; a minus in front means all but
/// these; nothing means all. Empty for anything else.
std::optional<ClassSet> parseClasses(const std::string& text);

/// The shortest text that `parseClasses` reads as `classes`; "all" and "none" where there is nothing to list.
std::string formatClasses(const ClassSet& classes);

std::vector<int> listClasses(const ClassSet& classes);
