#include "tools/Text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <iostream>

std::string shortest(double value)
{
    char digits[32];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
    return error == std::errc() ? std::string(digits, end) : std::string("?");
}

std::string printable(std::string text)
{
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

void printJson(const nlohmann::ordered_json& json)
{
    std::cout << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}
