#pragma once

#include <string>
#include <vector>

/// A whole file of text.
std::string readText(const std::string& path);

/// The blocks of code in a language that a page of Markdown shows.
std::vector<std::string> codeBlocks(const std::string& pagePath, const std::string& language);

/// The blocks of C++ of a page that do not stand in a source file; white space does not count.
std::vector<std::string> blocksNotIn(const std::string& sourcePath, const std::string& pagePath);

/// What stands in backquotes in the first column of those tables of a page that list keys, as its head says.
std::vector<std::string> keysInTables(const std::string& pagePath);
