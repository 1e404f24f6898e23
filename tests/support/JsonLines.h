#pragma once

#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

/// What a program printed with `--json` or for the operations of a script: a JSON value on each line.
inline std::vector<nlohmann::json> jsonLines(const std::string& output)
{
    std::vector<nlohmann::json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(nlohmann::json::parse(line));
    return lines;
}
