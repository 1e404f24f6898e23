#pragma once

#include "store/StoreIndex.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <cstdint>
#include <cstring>
#include <vector>

/// Makes the checksums of a store's header and records fit its bytes, as far as its records can be found.
inline void fitStoreChecksums(std::vector<uint8_t>& file)
{
    using namespace VelBrx;
    constexpr uint64_t kEvlrHeader = 60;
    if (file.size() < 375) return;
    uint64_t at = loadLe<uint64_t>(&file[235]);
    for (uint32_t left = loadLe<uint32_t>(&file[243]); left > 0; --left) {
        if (at > file.size() || file.size() - at < kEvlrHeader) return;
        uint8_t* const head = &file[at];
        const uint64_t length = loadLe<uint64_t>(head + 20);
        if (length > file.size() - at - kEvlrHeader) return;
        at += kEvlrHeader + length;
        if (std::strncmp(reinterpret_cast<const char*>(head + 2), kStoreUserId, 16) != 0 || length < 16)
            continue;
        uint8_t* const content = head + kEvlrHeader;
        const uint64_t points = loadLe<uint32_t>(&file[96]);
        if (loadLe<uint16_t>(head + 18) == kIndexRecordId && points <= file.size())
            storeLe(content + 12, crc32c(file.data(), points));
        storeLe(content + length - kRecordChecksumSize, crc32c(content, length - kRecordChecksumSize));
    }
}
