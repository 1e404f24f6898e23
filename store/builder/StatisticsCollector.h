#pragma once

#include <VelBrx/StoreStatistics.h>

#include "store/builder/StoreGrid.h"

#include <bitset>
#include <cstdint>
#include <limits>
#include <vector>

namespace VelBrx {

/// Gathers the statistics of store records. The percentiles come from the points of lowest rank, about
/// `kSampleSize` of them, all where there are fewer; all else is exact. The result does not depend on the
/// order of points nor on how they are split among collectors.
class StatisticsCollector
{
public:
    static constexpr uint64_t kSampleSize = 200000;

    explicit StatisticsCollector(uint64_t totalPoints);

    /// Adds records whose ordinals count up from `firstOrdinal`.
    void add(const uint8_t* records, size_t count, uint64_t firstOrdinal);
    void add(const StatisticsCollector& other);

    uint64_t pointCount() const { return _pointCount; }

    StoreStatistics finish(const StoreGrid& grid);

private:
    struct Range
    {
        double min = std::numeric_limits<double>::infinity();
        double max = -std::numeric_limits<double>::infinity();
        std::vector<double> sample;

        void add(double value, bool isSampled);
        void add(const Range& other);
        AttributeRange finish();
    };

    uint64_t _sampledRanks; ///< points of a rank up to this are in the sample
    uint64_t _pointCount = 0;
    Range _z;
    Range _intensity;
    Range _gpsTime;
    StoreStatistics _counts;
    std::bitset<65536> _pointSources;
};

} // namespace VelBrx
