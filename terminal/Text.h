#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

/// The fewest digits that give `value` back when read again.
std::string shortest(double value);

/// A number with its thousands apart.
std::string grouped(uint64_t number);

/// A size as people read it: "23 kB", "4.7 GB"; thousands, not 1024s.
std::string bytesText(uint64_t bytes);

/// A coordinate with the decimals that one in whole steps of `scale` has, at most 12.
std::string coordinate(double value, double scale);

/// Microseconds since 1970, UTC, as "2026-11-22T12:33:10.000000Z".
std::string timeText(int64_t time);

/// `text` with its control characters replaced by '?', so that text from a file cannot steer a terminal.
std::string printable(std::string text);

/// {"value": count, ...} of the values that occur; `counts` has one for each of the `size` values from 0.
nlohmann::ordered_json histogramJson(const uint64_t* counts, size_t size);

/// Prints `json` to stdout, indented. Bytes that are not UTF-8 are replaced.
void printJson(const nlohmann::ordered_json& json);
