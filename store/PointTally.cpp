#include "store/PointTally.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <cmath>

namespace VelBrx {

using namespace LasLayout;

void RecordExtent::add(const uint8_t* records, size_t count)
{
    RecordExtent part = *this;
    for (const uint8_t* end = records + count * kPointSize; records != end; records += kPointSize)
        for (size_t axis = 0; axis < 3; ++axis) {
            const int32_t value = loadLe<int32_t>(records + kX + 4 * axis);
            part.min[axis] = std::min(part.min[axis], value);
            part.max[axis] = std::max(part.max[axis], value);
        }
    *this = part;
}

void RecordExtent::add(const RecordExtent& other)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        min[axis] = std::min(min[axis], other.min[axis]);
        max[axis] = std::max(max[axis], other.max[axis]);
    }
}

void PointTally::add(const uint8_t* records, size_t count)
{
    uint16_t lowIntensity = minIntensity, highIntensity = maxIntensity, highColor = maxColor;
    double lowTime = minGpsTime, highTime = maxGpsTime;
    uint64_t hiddenHere = 0;
    int lastSource = -1; // most neighbours share it, and setting a bit costs
    for (const uint8_t* end = records + count * kPointSize; records != end; records += kPointSize) {
        ++byClass[records[kClass]];
        ++byReturnByte[records[kReturns]];
        hiddenHere += (records[kFlags] & kHiddenBits) != 0;
        const uint16_t intensity = loadLe<uint16_t>(records + kIntensity);
        lowIntensity = std::min(lowIntensity, intensity);
        highIntensity = std::max(highIntensity, intensity);
        const double time = loadLe<double>(records + kGpsTime);
        if (std::isfinite(time)) {
            lowTime = std::min(lowTime, time);
            highTime = std::max(highTime, time);
        }
        for (const size_t color : {kRed, kGreen, kBlue})
            highColor = std::max(highColor, loadLe<uint16_t>(records + color));
        const int source = loadLe<uint16_t>(records + kPointSource);
        if (source != lastSource) sources.set(static_cast<size_t>(source));
        lastSource = source;
    }
    minIntensity = lowIntensity;
    maxIntensity = highIntensity;
    minGpsTime = lowTime;
    maxGpsTime = highTime;
    maxColor = highColor;
    hidden += hiddenHere;
}

void PointTally::add(const PointTally& other)
{
    for (size_t i = 0; i < 256; ++i) {
        byClass[i] += other.byClass[i];
        byReturnByte[i] += other.byReturnByte[i];
    }
    hidden += other.hidden;
    minIntensity = std::min(minIntensity, other.minIntensity);
    maxIntensity = std::max(maxIntensity, other.maxIntensity);
    minGpsTime = std::min(minGpsTime, other.minGpsTime);
    maxGpsTime = std::max(maxGpsTime, other.maxGpsTime);
    maxColor = std::max(maxColor, other.maxColor);
    sources |= other.sources;
}

std::array<uint64_t, 16> PointTally::byReturn() const
{
    std::array<uint64_t, 16> counts{};
    for (size_t byte = 0; byte < 256; ++byte)
        counts[byte & 0x0F] += byReturnByte[byte];
    return counts;
}

std::array<uint64_t, 16> PointTally::byNumberOfReturns() const
{
    std::array<uint64_t, 16> counts{};
    for (size_t byte = 0; byte < 256; ++byte)
        counts[byte >> 4] += byReturnByte[byte];
    return counts;
}

} // namespace VelBrx
