#include <VelBrx/GroundSpread.h>

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace VelBrx {

namespace {

int32_t coordinateAt(const uint8_t* field)
{
    int32_t value;
    std::memcpy(&value, field, sizeof value);
    return value;
}

/// The value that `count` of them, and itself, do not exceed.
int32_t valueAfter(size_t count, std::vector<int32_t>& steps)
{
    const auto place = steps.begin() + static_cast<ptrdiff_t>(count);
    std::nth_element(steps.begin(), place, steps.end());
    return *place;
}

} // namespace

void GroundSpread::add(const uint8_t* records, int64_t count)
{
    for (int64_t i = 0; i < count; ++i, records += PointRecord::kPointSize) {
        _steps[0].push_back(coordinateAt(records + PointRecord::kX));
        _steps[1].push_back(coordinateAt(records + PointRecord::kY));
    }
}

GroundBox GroundSpread::bulk(const BrxHeader& header)
{
    constexpr size_t kPointsForOneOfNoise = 200; ///< on each side
    GroundBox box;
    for (size_t axis = 0; axis < 2; ++axis) {
        std::vector<int32_t>& steps = _steps[axis];
        const auto place = [&](size_t count) {
            return valueAfter(count, steps) * header.scale[axis] + header.offset[axis];
        };
        const size_t noise = steps.size() / kPointsForOneOfNoise;
        box.min[axis] = steps.empty() ? header.min[axis] : place(noise);
        box.max[axis] = steps.empty() ? header.max[axis] : place(steps.size() - 1 - noise);
    }
    return box;
}

} // namespace VelBrx
