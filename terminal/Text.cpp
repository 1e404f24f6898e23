#include "terminal/Text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>

std::string shortest(double value)
{
    char digits[32];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
    return error == std::errc() ? std::string(digits, end) : std::string("?");
}

std::string grouped(uint64_t number)
{
    std::string digits = std::to_string(number);
    for (size_t end = digits.size(); end > 3; end -= 3)
        digits.insert(end - 3, 1, ' ');
    return digits;
}

std::string bytesText(uint64_t bytes)
{
    constexpr const char* kUnits[] = {"bytes", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < std::size(kUnits); ++unit)
        value /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%.*f %s", unit > 0 && value < 9.95 ? 1 : 0, value, kUnits[unit]);
    return text;
}

std::string coordinate(double value, double scale)
{
    constexpr int kMostDecimals = 12;
    int decimals = 0;
    for (double steps = scale; decimals < kMostDecimals && std::abs(steps - std::round(steps)) > 1e-6 * steps;
         steps *= 10)
        ++decimals;
    char digits[352]; // room for the largest double
    std::snprintf(digits, sizeof digits, "%.*f", decimals, value);
    return digits;
}

std::string timeText(int64_t time)
{
    constexpr int64_t kSecond = 1000000; // microseconds
    const auto seconds = static_cast<std::time_t>(time / kSecond - (time % kSecond < 0));
    std::tm parts{};
    if (!gmtime_r(&seconds, &parts)) return "?";
    std::ostringstream text;
    text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%S") << '.' << std::setw(6) << std::setfill('0')
         << time - int64_t{seconds} * kSecond << 'Z';
    return text.str();
}

std::string printable(std::string text)
{
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

nlohmann::ordered_json histogramJson(const uint64_t* counts, size_t size)
{
    auto json = nlohmann::ordered_json::object();
    for (size_t value = 0; value < size; ++value)
        if (counts[value] > 0) json[std::to_string(value)] = counts[value];
    return json;
}

void printJson(const nlohmann::ordered_json& json)
{
    std::cout << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}
