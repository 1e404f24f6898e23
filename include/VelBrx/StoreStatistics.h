#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace VelBrx {

/// Spread of one attribute over all points of a store.
struct AttributeRange
{
    double min = 0;
    double max = 0;
    double low = 0;  ///< 2nd percentile
    double high = 0; ///< 98th percentile
};

/// Statistics gathered when a store was built, kept in its index. Later edits do not change them.
struct StoreStatistics
{
    AttributeRange elevation; ///< file units, offset included
    AttributeRange intensity; ///< 0 to 65535
    AttributeRange gpsTime;   ///< as stored, over the times that are finite; zeros where there is none
    uint16_t maxColor = 0;    ///< largest red, green or blue value; 0: the store has no colours
    std::array<uint64_t, 256> pointsByClass{};
    std::array<uint64_t, 16> pointsByReturn{};          ///< by return number, 0 included
    std::array<uint64_t, 16> pointsByNumberOfReturns{}; ///< 0 included
    std::vector<uint16_t> pointSources;                 ///< the point source ids that occur, ascending
};

} // namespace VelBrx
