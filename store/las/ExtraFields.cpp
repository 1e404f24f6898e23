#include "store/las/ExtraFields.h"

#include "store/io/ByteIo.h"

#include <algorithm>
#include <cstdio>

namespace VelBrx {

namespace {

constexpr unsigned kTypes = 10;
constexpr size_t kSizes[kTypes] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
constexpr uint8_t kHasScale = 0x08;
constexpr uint8_t kHasOffset = 0x10;
constexpr unsigned kUint64 = 7;
constexpr unsigned kInt64 = 8;

double numberAt(const uint8_t* bytes, unsigned type)
{
    switch (type) {
    case 1:
        return bytes[0];
    case 2:
        return static_cast<int8_t>(bytes[0]);
    case 3:
        return loadLe<uint16_t>(bytes);
    case 4:
        return loadLe<int16_t>(bytes);
    case 5:
        return loadLe<uint32_t>(bytes);
    case 6:
        return loadLe<int32_t>(bytes);
    case kUint64:
        return static_cast<double>(loadLe<uint64_t>(bytes));
    case kInt64:
        return static_cast<double>(loadLe<int64_t>(bytes));
    case 9:
        return static_cast<double>(loadLe<float>(bytes));
    default:
        return loadLe<double>(bytes);
    }
}

} // namespace

size_t ExtraField::size() const
{
    return type == 0 ? count : kSizes[type - 1] * count;
}

std::string ExtraField::typeName() const
{
    static const char* const names[kTypes] = {"uint8", "int8",   "uint16", "int16", "uint32",
                                              "int32", "uint64", "int64",  "float", "double"};
    if (type == 0) return "bytes";
    const std::string one = names[type - 1];
    return count == 1 ? one : one + "[" + std::to_string(count) + "]";
}

std::string ExtraField::valueText(const uint8_t* bytes) const
{
    if (type == 0) return bytesText(bytes, count);
    std::string text;
    const bool isScaled = (options & (kHasScale | kHasOffset)) != 0;
    for (unsigned i = 0; i < count; ++i, bytes += kSizes[type - 1]) {
        if (i > 0) text += ' ';
        if (!isScaled && type == kUint64) {
            text += std::to_string(loadLe<uint64_t>(bytes));
        } else if (!isScaled && type == kInt64) {
            text += std::to_string(loadLe<int64_t>(bytes));
        } else {
            const double value = numberAt(bytes, type) * (options & kHasScale ? scale[i] : 1) +
                                 (options & kHasOffset ? offset[i] : 0);
            char number[40];
            std::snprintf(number, sizeof number, "%.*g", type == 9 && !isScaled ? 7 : 15, value);
            text += number;
        }
    }
    return text;
}

void addExtraFields(const uint8_t* record, size_t size, std::vector<ExtraField>& fields)
{
    // 2 bytes reserved, type, options, name, 4 unused, 3 x 8 no data, smallest, largest, scale, offset, text
    constexpr size_t kSize = 192;
    constexpr size_t kName = 4;
    constexpr size_t kNameSize = 32;
    constexpr size_t kScale = 112;
    constexpr size_t kOffset = 136;
    for (size_t at = 0; at + kSize <= size; at += kSize) {
        const uint8_t* const one = record + at;
        ExtraField field;
        field.name.assign(one + kName, std::find(one + kName, one + kName + kNameSize, uint8_t(0)));
        field.options = one[3];
        const unsigned type = one[2];
        if (type == 0 || type > 3 * kTypes) {
            field.count = type == 0 ? one[3] : 0; // the options are its number of bytes
            field.options = 0;
        } else {
            field.type = (type - 1) % kTypes + 1;
            field.count = (type - 1) / kTypes + 1;
            for (size_t i = 0; i < 3; ++i) {
                field.scale[i] = loadLe<double>(one + kScale + 8 * i);
                field.offset[i] = loadLe<double>(one + kOffset + 8 * i);
            }
        }
        fields.push_back(field);
    }
}

std::string bytesText(const uint8_t* bytes, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        char byte[8];
        std::snprintf(byte, sizeof byte, i ? " %02x" : "%02x", unsigned(bytes[i]));
        text += byte;
    }
    return text;
}

} // namespace VelBrx
