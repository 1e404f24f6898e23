#pragma once

#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The bytes of a journal of edits, for tests that damage them.
namespace JournalBytes {

constexpr size_t kUnit = 128;

inline uint64_t lengthOfText(const uint8_t* head)
{
    return uint64_t{VelBrx::loadLe<uint32_t>(head + 28)} + VelBrx::loadLe<uint32_t>(head + 32);
}

/// Bytes of the entry in use, from its head on.
inline uint64_t lengthOfEntry(const uint8_t* head)
{
    return kUnit + lengthOfText(head) + VelBrx::loadLe<uint64_t>(head + 40);
}

/// Makes all checksums of a journal fit, wherever its lengths lead.
inline void fitChecksums(std::vector<uint8_t>& journal)
{
    if (journal.size() < kUnit) return;
    VelBrx::storeLe(&journal[12], VelBrx::crc32c(&journal[16], kUnit - 16));
    for (uint64_t start = kUnit; start + kUnit <= journal.size();) {
        uint8_t* const head = &journal[start];
        const uint64_t text = lengthOfText(head);
        const uint64_t runs = VelBrx::loadLe<uint64_t>(head + 40);
        const uint64_t left = journal.size() - start - kUnit;
        if (text <= left) VelBrx::storeLe(head + 36, VelBrx::crc32c(head + kUnit, text));
        VelBrx::storeLe(head + 4, VelBrx::crc32c(head + 8, kUnit - 8));
        if (text > left || runs > left - text) return;
        for (uint64_t block = 0; block + 32 <= runs;) {
            uint8_t* const data = head + kUnit + text + block;
            const uint64_t length = VelBrx::loadLe<uint32_t>(data) + uint64_t{32};
            if (length > runs - block) break;
            VelBrx::storeLe(data + 4, VelBrx::crc32c(data + 8, length - 8));
            block += length;
        }
        start += (kUnit + text + runs + kUnit - 1) / kUnit * kUnit;
    }
}

} // namespace JournalBytes
