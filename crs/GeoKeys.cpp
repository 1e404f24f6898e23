#include "crs/GeoKeys.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr uint16_t kDoublesRecord = 34736;
constexpr uint16_t kTextsRecord = 34737;

uint16_t wordAt(const std::vector<uint8_t>& bytes, size_t position)
{
    // Zeros at the end are not kept.
    const auto byte = [&](size_t at) { return at < bytes.size() ? unsigned(bytes[at]) : 0u; };
    return static_cast<uint16_t>(byte(position) | byte(position + 1) << 8);
}

double doubleAt(const std::vector<uint8_t>& bytes, size_t position)
{
    uint64_t bits = 0;
    for (size_t i = 0; i < 8; ++i)
        if (position + i < bytes.size()) bits |= uint64_t(bytes[position + i]) << 8 * i;
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

GeoKeys::GeoKeys(const VelBrx::ProjectionRecords& records)
{
    constexpr size_t kKeySize = 8; // key, record that holds its value (0: here), count, value or its place
    const std::vector<uint8_t>& keys = records.geoKeys;
    for (size_t at = kKeySize; at < keys.size(); at += kKeySize) {
        const uint16_t key = wordAt(keys, at);
        const uint16_t record = wordAt(keys, at + 2);
        const size_t count = wordAt(keys, at + 4);
        const size_t value = wordAt(keys, at + 6);
        if (record == 0) {
            _codes[key] = static_cast<int>(value);
        } else if (record == kDoublesRecord) {
            // A number whose bytes are all zero at the end of the record is not kept there.
            const double number = doubleAt(records.geoDoubles, 8 * value);
            if (std::isfinite(number)) _numbers[key] = number;
        } else if (record == kTextsRecord && value < records.geoTexts.size()) {
            const auto first = records.geoTexts.begin() + static_cast<std::ptrdiff_t>(value);
            const auto last =
                first + static_cast<std::ptrdiff_t>(std::min(count, records.geoTexts.size() - value));
            _texts[key] = std::string(first, std::find(first, last, uint8_t('|')));
        }
    }
}

int GeoKeys::code(uint16_t key) const
{
    const auto found = _codes.find(key);
    return found == _codes.end() || found->second == kUserDefined ? 0 : found->second;
}

std::optional<double> GeoKeys::number(uint16_t key) const
{
    const auto found = _numbers.find(key);
    return found == _numbers.end() ? std::nullopt : std::optional<double>(found->second);
}

bool GeoKeys::isUserDefined(uint16_t key) const
{
    const auto found = _codes.find(key);
    return found != _codes.end() && found->second == kUserDefined;
}

std::string GeoKeys::text(uint16_t key) const
{
    const auto found = _texts.find(key);
    return found == _texts.end() ? std::string() : found->second;
}
