#pragma once

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace VelBrx {

/// Writes a text to a field of a LAS file, cut to its size; the rest of the field stays as it is.
inline void storeText(uint8_t* field, size_t size, const char* text)
{
    std::memcpy(field, text, std::min(size, std::strlen(text)));
}

/// A variable length record: its header, and `length` bytes of content, zero for now.
inline std::vector<uint8_t> makeVlr(const char* userId, uint16_t recordId, const char* description,
                                    size_t length)
{
    using namespace LasLayout;
    std::vector<uint8_t> bytes(kVlrHeaderSize + length);
    storeText(&bytes[kVlrUserId], kUserIdSize, userId);
    storeLe(&bytes[kVlrRecordId], recordId);
    storeLe(&bytes[kVlrLength], static_cast<uint16_t>(length));
    storeText(&bytes[kVlrDescription], kDescriptionSize, description);
    return bytes;
}

/// The header of an extended variable length record with `length` bytes of content.
inline std::vector<uint8_t> makeEvlrHeader(const char* userId, uint16_t recordId, const char* description,
                                           uint64_t length)
{
    using namespace LasLayout;
    std::vector<uint8_t> bytes(kEvlrHeaderSize);
    storeText(&bytes[kVlrUserId], kUserIdSize, userId);
    storeLe(&bytes[kVlrRecordId], recordId);
    storeLe(&bytes[kEvlrLength], length);
    storeText(&bytes[kEvlrDescription], kDescriptionSize, description);
    return bytes;
}

} // namespace VelBrx
