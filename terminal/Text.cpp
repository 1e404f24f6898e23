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

namespace {

/// Bytes of the character of UTF-8 that begins at `text[at]`, and the character; 0 where there is none.
size_t decode(const std::string& text, size_t at, uint32_t& character)
{
    const auto byte = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const unsigned first = byte(at);
    const size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    character = length < 2 ? first : first & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if (byte(at + i) >> 6 != 2) return 0;
        character = character << 6 | (byte(at + i) & 0x3F);
    }
    const bool isOverlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return isOverlong || isSurrogate || character > 0x10FFFF ? 0 : length;
}

bool steersTerminals(uint32_t character)
{
    const auto isIn = [&](uint32_t low, uint32_t high) { return character >= low && character <= high; };
    return isIn(0, 0x1F) || isIn(0x7F, 0x9F) || isIn(0x200E, 0x200F) || isIn(0x2028, 0x202E) ||
           isIn(0x2066, 0x2069);
}

} // namespace

std::string printable(std::string text)
{
    constexpr size_t kLongest = 4000; // no line of ours needs more
    std::string clean;
    for (size_t at = 0; at < text.size();) {
        uint32_t character = 0;
        const size_t length = decode(text, at, character);
        const bool isShown = length > 0 && !steersTerminals(character);
        if (clean.size() + (isShown ? length : 1) > kLongest) return clean + "...";
        if (isShown)
            clean.append(text, at, length);
        else
            clean += '?';
        at += std::max<size_t>(1, length);
    }
    return clean;
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
