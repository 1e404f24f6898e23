#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

/// The bytes that a golden file states: lines such as "375: 64 00 # meaning", and one "size 4419".
inline std::vector<uint8_t> statedBytes(const std::string& path)
{
    std::ifstream text(path);
    std::vector<uint8_t> bytes;
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string place;
        if (!(words >> place)) continue;
        size_t position = 0;
        if (place == "size" && words >> position)
            bytes.resize(position);
        else
            position = std::stoul(place);
        for (unsigned byte = 0; words >> std::hex >> byte;)
            bytes.at(position++) = static_cast<uint8_t>(byte);
    }
    return bytes;
}
