#include "tests/store/laz/Md5.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace {

using State = std::array<uint32_t, 4>;

std::array<uint32_t, 64> sines()
{
    std::array<uint32_t, 64> table;
    for (unsigned k = 0; k < 64; ++k)
        table[k] = static_cast<uint32_t>(std::floor(std::fabs(std::sin(k + 1.0)) * 4294967296.0));
    return table;
}

void addBlock(State& state, const uint8_t* block)
{
    static const std::array<uint32_t, 64> kSines = sines();
    static constexpr unsigned kShifts[4][4] = {
        {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    uint32_t words[16];
    std::memcpy(words, block, sizeof words);
    auto [a, b, c, d] = state;
    for (unsigned k = 0; k < 64; ++k) {
        uint32_t mixed = 0;
        unsigned word = 0;
        switch (k / 16) {
        case 0:
            mixed = (b & c) | (~b & d), word = k;
            break;
        case 1:
            mixed = (d & b) | (~d & c), word = (5 * k + 1) % 16;
            break;
        case 2:
            mixed = b ^ c ^ d, word = (3 * k + 5) % 16;
            break;
        default:
            mixed = c ^ (b | ~d), word = 7 * k % 16;
            break;
        }
        const uint32_t sum = a + mixed + kSines[k] + words[word];
        const unsigned shift = kShifts[k / 16][k % 4];
        a = d;
        d = c;
        c = b;
        b += sum << shift | sum >> (32 - shift);
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

} // namespace

std::string md5(const uint8_t* bytes, size_t size)
{
    State state = {0x67452301u, 0xefcdab89u, 0x98badcfeu, 0x10325476u};
    size_t done = 0;
    for (; size - done >= 64; done += 64)
        addBlock(state, bytes + done);
    uint8_t tail[128] = {};
    const size_t rest = size - done;
    std::copy_n(bytes + done, rest, tail);
    tail[rest] = 0x80;
    const size_t tailSize = rest < 56 ? 64 : 128;
    const uint64_t bits = uint64_t{8} * size;
    std::memcpy(tail + tailSize - 8, &bits, 8);
    for (size_t at = 0; at < tailSize; at += 64)
        addBlock(state, tail + at);

    std::string text;
    for (const uint32_t word : state)
        for (unsigned byte = 0; byte < 4; ++byte)
            for (const unsigned nibble : {4u, 0u})
                text += "0123456789abcdef"[word >> (8 * byte + nibble) & 15];
    return text;
}
