#include "store/builder/StatisticsCollector.h"

#include "store/builder/PointLevels.h"
#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <cmath>

namespace VelBrx {

using namespace LasLayout;

namespace {

template <size_t N>
void addCounts(std::array<uint64_t, N>& sum, const std::array<uint64_t, N>& counts)
{
    for (size_t i = 0; i < N; ++i)
        sum[i] += counts[i];
}

/// The value at `part` of the way through the sorted order.
double percentile(std::vector<double>& values, double part)
{
    const auto place = static_cast<size_t>(std::llround(part * static_cast<double>(values.size() - 1)));
    const auto value = values.begin() + static_cast<std::ptrdiff_t>(place);
    std::nth_element(values.begin(), value, values.end());
    return *value;
}

} // namespace

void StatisticsCollector::Range::add(double value, bool isSampled)
{
    value += 0.0; // one zero, whatever its sign
    min = std::min(min, value);
    max = std::max(max, value);
    if (isSampled) sample.push_back(value);
}

void StatisticsCollector::Range::add(const Range& other)
{
    min = std::min(min, other.min);
    max = std::max(max, other.max);
    sample.insert(sample.end(), other.sample.begin(), other.sample.end());
}

AttributeRange StatisticsCollector::Range::finish()
{
    if (!(min <= max)) return {};
    if (sample.empty()) return {min, max, min, max};
    return {min, max, percentile(sample, 0.02), percentile(sample, 0.98)};
}

StatisticsCollector::StatisticsCollector(uint64_t totalPoints)
    : _sampledRanks(totalPoints <= kSampleSize
                        ? std::numeric_limits<uint64_t>::max()
                        : std::numeric_limits<uint64_t>::max() / totalPoints * kSampleSize)
{
}

void StatisticsCollector::add(const uint8_t* records, size_t count, uint64_t firstOrdinal)
{
    _pointCount += count;
    for (size_t i = 0; i < count; ++i, records += kPointSize) {
        const bool isSampled = pointRank(firstOrdinal + i) <= _sampledRanks;
        _z.add(loadLe<int32_t>(records + kZ), isSampled);
        _intensity.add(loadLe<uint16_t>(records + kIntensity), isSampled);
        const double gpsTime = loadLe<double>(records + kGpsTime);
        if (std::isfinite(gpsTime)) _gpsTime.add(gpsTime, isSampled);
        for (size_t color : {kRed, kGreen, kBlue})
            _counts.maxColor = std::max(_counts.maxColor, loadLe<uint16_t>(records + color));
        ++_counts.pointsByClass[records[kClass]];
        ++_counts.pointsByReturn[records[kReturns] & 0x0F];
        ++_counts.pointsByNumberOfReturns[records[kReturns] >> 4];
        _pointSources.set(loadLe<uint16_t>(records + kPointSource));
    }
}

void StatisticsCollector::add(const StatisticsCollector& other)
{
    _pointCount += other._pointCount;
    _z.add(other._z);
    _intensity.add(other._intensity);
    _gpsTime.add(other._gpsTime);
    _counts.maxColor = std::max(_counts.maxColor, other._counts.maxColor);
    addCounts(_counts.pointsByClass, other._counts.pointsByClass);
    addCounts(_counts.pointsByReturn, other._counts.pointsByReturn);
    addCounts(_counts.pointsByNumberOfReturns, other._counts.pointsByNumberOfReturns);
    _pointSources |= other._pointSources;
}

StoreStatistics StatisticsCollector::finish(const StoreGrid& grid)
{
    StoreStatistics statistics = _counts;
    const AttributeRange z = _z.finish();
    const auto elevation = [&grid](double value) { return value * grid.scale[2] + grid.offset[2]; };
    statistics.elevation = {elevation(z.min), elevation(z.max), elevation(z.low), elevation(z.high)};
    statistics.intensity = _intensity.finish();
    statistics.gpsTime = _gpsTime.finish();
    for (size_t id = 0; id < _pointSources.size(); ++id)
        if (_pointSources[id]) statistics.pointSources.push_back(static_cast<uint16_t>(id));
    return statistics;
}

} // namespace VelBrx
