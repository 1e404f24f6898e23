#include "viewer/display/PointCount.h"

#include <charconv>
#include <cmath>

bool parsePointCount(const std::string& text, uint64_t& count)
{
    static const std::string kSuffixes = "kMG";
    const size_t suffix = text.empty() ? std::string::npos : kSuffixes.find(text.back());
    const bool scaled = suffix != std::string::npos;
    const char* const end = text.data() + text.size() - (scaled ? 1 : 0);
    double number = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return false;
    const double points = scaled ? number * std::pow(1000.0, static_cast<double>(suffix + 1)) : number;
    if (!(points >= 1 && points <= 1e15)) return false;
    count = static_cast<uint64_t>(points);
    return true;
}
