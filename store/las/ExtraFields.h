#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// A field of the extra bytes of point records, as a record `LASF_Spec` 4 describes it.
struct ExtraField
{
    std::string name;
    unsigned type = 0;  ///< of one number, 1 to 10 as LAS counts them; 0: bytes without a meaning
    unsigned count = 0; ///< numbers, or bytes
    uint8_t options = 0;
    double scale[3] = {1, 1, 1};
    double offset[3] = {0, 0, 0};

    /// Bytes of the field in a point record.
    size_t size() const;

    /// Such as "uint16" or "double[3]"; "bytes" of those without a meaning.
    std::string typeName() const;

    /// The value in a record, with scale and offset where it has these.
    std::string valueText(const uint8_t* bytes) const;
};

/// Adds the fields that such a record describes.
void addExtraFields(const uint8_t* record, size_t size, std::vector<ExtraField>& fields);

/// Bytes in hexadecimal.
std::string bytesText(const uint8_t* bytes, size_t size);

} // namespace VelBrx
