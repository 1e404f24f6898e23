#pragma once

#include <VelBrx/ProjectionRecords.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

/// The keys of a GeoTIFF key directory with their values. What lies outside the records is left out.
class GeoKeys
{
public:
    explicit GeoKeys(const VelBrx::ProjectionRecords& records);

    /// A code or a number; 0 where the key is not there, or says that no code fits (32767).
    int code(uint16_t key) const;

    /// A finite number from the record of numbers.
    std::optional<double> number(uint16_t key) const;

    /// Whether the key says that no code fits.
    bool isUserDefined(uint16_t key) const;

    /// Up to the mark "|" that ends it.
    std::string text(uint16_t key) const;

private:
    static constexpr int kUserDefined = 32767;

    std::map<uint16_t, int> _codes;
    std::map<uint16_t, double> _numbers;
    std::map<uint16_t, std::string> _texts;
};
