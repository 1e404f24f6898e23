#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace VelBrx {

/// Smallest and largest integer coordinates of some records.
struct RecordExtent
{
    std::array<int32_t, 3> min{kHighest, kHighest, kHighest};
    std::array<int32_t, 3> max{kLowest, kLowest, kLowest};

    /// Takes `count` records in.
    void add(const uint8_t* records, size_t count);
    void add(const RecordExtent& other);

private:
    static constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
    static constexpr int32_t kHighest = std::numeric_limits<int32_t>::max();
};

/// Counts and ranges of the attributes of some records.
struct PointTally
{
    std::array<uint64_t, 256> byClass{};
    std::array<uint64_t, 256>
        byReturnByte{}; ///< by return number and number of returns, as the records hold them
    uint64_t hidden = 0;
    uint16_t minIntensity = 0xFFFF;
    uint16_t maxIntensity = 0;
    double minGpsTime = std::numeric_limits<double>::infinity(); ///< of times that are finite
    double maxGpsTime = -std::numeric_limits<double>::infinity();
    uint16_t maxColor = 0;
    std::bitset<65536> sources; ///< point source ids that occur

    /// Takes `count` records in.
    void add(const uint8_t* records, size_t count);
    void add(const PointTally& other);

    std::array<uint64_t, 16> byReturn() const;
    std::array<uint64_t, 16> byNumberOfReturns() const;
};

} // namespace VelBrx
