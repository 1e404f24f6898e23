#include "viewer/scene/Histogram.h"

#include "viewer/scene/CoarsePoints.h"

#include <VelBrx/PointRecord.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

template <class T>
double read(const uint8_t* field)
{
    T value;
    std::memcpy(&value, field, sizeof value);
    return static_cast<double>(value);
}

double valueOf(ColorMode mode, const uint8_t* record, const OctreeInfo& octree)
{
    using namespace VelBrx::PointRecord;
    if (mode == ColorMode::INTENSITY) return read<uint16_t>(record + kIntensity);
    if (mode == ColorMode::GPS_TIME) return read<double>(record + kGpsTime);
    return read<int32_t>(record + kZ) * octree.scale.z() + octree.offset.z();
}

} // namespace

Histogram::Histogram(std::vector<osg::ref_ptr<VelOsgDBBrx::IPointCloud>> clouds, ColorMode mode,
                     const ColorSpan& span)
    : _clouds(std::move(clouds)), _mode(mode), _span(span), _thread([this] { count(); })
{
}

Histogram::~Histogram()
{
    _cancel = true;
    _thread.join();
}

void Histogram::count()
{
    constexpr int64_t kEnough = 20000; ///< points of a cloud
    const double binsPerUnit = _span.high > _span.low ? kBins / (_span.high - _span.low) : 0;
    for (const auto& cloud : _clouds) {
        const OctreeInfo& octree = *cloud->getOctree();
        readCoarsePoints(octree, kEnough, [&](const uint8_t* record, int64_t points) {
            for (int64_t i = 0; i < points; ++i, record += VelBrx::PointRecord::kPointSize) {
                const double bin = (valueOf(_mode, record, octree) - _span.low) * binsPerUnit;
                if (bin >= 0 && bin < kBins) ++_bins[static_cast<size_t>(bin)];
            }
            return !_cancel;
        });
    }
    const float fullest = *std::max_element(_bins.begin(), _bins.end());
    for (float& bin : _bins)
        bin /= std::max(fullest, 1.0f);
    _counted = true;
}
