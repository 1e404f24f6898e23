#include "store/las/laz/LazChunkEncoder.h"
#include "store/io/ByteIo.h"
#include "store/las/laz/LazChunkDecoder.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

using namespace VelBrx;

namespace {

constexpr uint16_t kLengths[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

/// Where the GPS time and the wave packet are in the records of a format, or 0.
struct Places
{
    size_t gpsTime;
    size_t wavePacket;
};
constexpr Places kPlaces[] = {{0, 0},  {20, 0}, {0, 0},  {20, 0},  {20, 28}, {20, 34},
                              {22, 0}, {22, 0}, {22, 0}, {22, 30}, {22, 38}};

/// Points that jump over the whole range, repeat themselves, and change single bytes, by turns of some
/// hundred, and with fields that never change at all.
std::vector<uint8_t> wildRecords(uint8_t pointFormat, uint16_t length, size_t count, std::mt19937& random)
{
    std::vector<uint8_t> records(count * length);
    for (size_t k = 0; k < count; ++k) {
        uint8_t* record = &records[k * length];
        if (k > 0) std::copy_n(record - length, length, record);
        const unsigned mood = k == 0 ? 0 : 1 + static_cast<unsigned>(k / 300) % 4;
        for (size_t at = 0; at < length; ++at)
            if (mood == 0 || (mood == 1 && random() % 4 == 0) || (mood == 2 && random() % 40 == 0))
                record[at] = static_cast<uint8_t>(random());
        if (mood == 3 && pointFormat > 5) // other channels and returns alone
            record[15] = static_cast<uint8_t>((record[15] & ~0x30u) | (random() % 4) << 4);
        record[length - 1] = 7;
    }
    return records;
}

/// GPS times that meet each case of their coder: steady steps, multiples of them, halves of both signs,
/// several sequences by turns, both zeros, values that are no numbers, steps of one and of almost 2^31.
void putHardTimes(std::vector<uint8_t>& records, uint16_t length, size_t at, std::mt19937& random)
{
    const double special[] = {0.0, -0.0, std::numeric_limits<double>::quiet_NaN(), 1e300, -1e-300};
    uint64_t sequences[6] = {0x41A0000000000000, 0x41B1234500000000, 0x3FF0000000000000, 0, 5, ~uint64_t{0}};
    const int64_t steps[] = {1000, -1000, 1, -1, 2, 0x7FFFFFFF, -0x7FFFFFFF - 1, 0x80000000};
    size_t sequence = 0;
    for (size_t k = 0; k * length < records.size(); ++k) {
        if (random() % 50 == 0) sequence = random() % 6;
        const int64_t step = steps[(k / 100) % 8];
        const int64_t multiples[] = {0, 1, 1, 1, 2, 9, 10, 499, 500, 900, -1, -9, -10, -500};
        int64_t difference = step * multiples[random() % 14];
        if (random() % 8 == 0) difference = step / 2 * (random() % 2 ? 1 : -3); // exactly between multiples
        sequences[sequence] += static_cast<uint64_t>(difference);
        storeLe(&records[k * length + at], sequences[sequence]);
        if (random() % 100 == 0) storeLe(&records[k * length + at], special[random() % 5]);
    }
}

/// Offsets of wave packets that follow on one another, step, stay or jump; packets above 2 GiB among them.
void putHardPackets(std::vector<uint8_t>& records, uint16_t length, size_t at, std::mt19937& random)
{
    uint64_t offset = 60;
    uint32_t size = 256;
    for (size_t k = 0; k * length < records.size(); ++k) {
        switch (random() % 5) {
        case 0:
            break;
        case 1:
            offset += 1000;
            break;
        case 2:
            offset += uint64_t{random()} << 8;
            break;
        case 3: // the size taken for a negative number
            offset += static_cast<uint64_t>(int64_t{static_cast<int32_t>(size)});
            break;
        default:
            offset += size;
        }
        size = random() % 4 ? 256 : 0x80000000u + random() % 1000;
        storeLe(&records[k * length + at + 1], offset);
        storeLe(&records[k * length + at + 9], size);
    }
}

} // namespace

TEST(LazChunkEncoder, WritesWhatIsReadBackOfEveryFormat)
{
    std::mt19937 random(11);
    for (uint8_t format = 0; format <= 10; ++format)
        for (const uint16_t extra : {0, 1, 5}) {
            const auto length = static_cast<uint16_t>(kLengths[format] + extra);
            const LazItems items = makeLazItems(format, length);
            LazItems parsed;
            const std::vector<uint8_t> payload = makeLazRecord(items);
            const Status known = parseLazItems(payload.data(), payload.size(), length, parsed);
            ASSERT_TRUE(known) << known.message();
            LazChunkEncoder encoder(items);
            LazChunkDecoder decoder(parsed);
            // Chunks of one object, of which the second must not know of the first.
            for (const size_t count : {3000u, 1u, 2u, 1500u}) {
                SCOPED_TRACE("format " + std::to_string(format) + ", " + std::to_string(extra) +
                             " extra bytes, " + std::to_string(count) + " points");
                std::vector<uint8_t> records = wildRecords(format, length, count, random);
                if (kPlaces[format].gpsTime) putHardTimes(records, length, kPlaces[format].gpsTime, random);
                if (kPlaces[format].wavePacket)
                    putHardPackets(records, length, kPlaces[format].wavePacket, random);
                std::vector<uint8_t> chunk;
                encoder.encode(records.data(), count, chunk);
                std::vector<uint8_t> decoded(records.size());
                const Status status = decoder.decode(chunk.data(), chunk.size(), count, decoded.data());
                ASSERT_TRUE(status) << status.message();
                EXPECT_TRUE(decoder.endsExactly());
                for (size_t at = 0; at < records.size(); ++at)
                    ASSERT_EQ(records[at], decoded[at])
                        << "point " << at / length << ", byte " << at % length;
            }
        }
}

/// Which fields have bytes when they do not change: places, and a colour of unlike channels.
TEST(LazChunkEncoder, LeavesOutTheLayersOfFieldsThatNeverChange)
{
    const auto layerSizes = [](uint16_t red, uint16_t green, uint16_t blue) {
        std::vector<uint8_t> records(3 * 36);
        for (size_t k = 0; k < 3; ++k) {
            storeLe(&records[k * 36 + 30], red);
            storeLe(&records[k * 36 + 32], green);
            storeLe(&records[k * 36 + 34], blue);
        }
        std::vector<uint8_t> chunk;
        LazChunkEncoder(makeLazItems(7, 36)).encode(records.data(), 3, chunk);
        std::vector<uint32_t> sizes;
        for (size_t layer = 0; layer < 10; ++layer)
            sizes.push_back(loadLe<uint32_t>(&chunk[36 + 4 + 4 * layer]));
        return sizes;
    };
    EXPECT_EQ((std::vector<uint32_t>{8, 5, 0, 0, 0, 0, 0, 0, 0, 5}), layerSizes(1, 2, 3));
    EXPECT_EQ((std::vector<uint32_t>{8, 5, 0, 0, 0, 0, 0, 0, 0, 0}), layerSizes(7, 7, 7));
}
