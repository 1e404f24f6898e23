#pragma once

#include <string>
#include <utility>
#include <vector>

/// Keys, each with what it does, under a title.
struct KeyList
{
    std::string title;
    std::vector<std::pair<std::string, std::string>> keys;
};
