#include "store/builder/Morton.h"

#include "simd/VectorClones.h"

#include <algorithm>

namespace VelBrx {

namespace {

constexpr size_t kBlock = PlaceBlock::kSize;
using Steps = std::array<uint64_t, kBlock>;

VELBRX_VECTOR_CLONES
void findSteps(const std::array<int32_t, kBlock>& values, double min, double factor, Steps& steps)
{
    constexpr double kLast = (1 << kMortonLevels) - 1;
    for (size_t i = 0; i < kBlock; ++i)
        steps[i] = static_cast<uint64_t>(
            static_cast<int32_t>(std::clamp((static_cast<double>(values[i]) - min) * factor, 0.0, kLast)));
}

VELBRX_VECTOR_CLONES
void joinSteps(const Steps& x, const Steps& y, const Steps& z, Steps& codes)
{
    for (size_t i = 0; i < kBlock; ++i)
        codes[i] = columnCode(x[i], y[i], z[i]);
}

} // namespace

GridPlaces::GridPlaces(const StoreGrid& grid)
{
    for (size_t axis = 0; axis < 3; ++axis) {
        _min[axis] = grid.min[axis];
        _factor[axis] = (1 << kMortonLevels) * (grid.scale[axis] / grid.cubeSize);
    }
}

void GridPlaces::findColumnCodes(PlaceBlock& block) const
{
    std::array<Steps, 3> steps;
    for (size_t axis = 0; axis < 3; ++axis)
        findSteps(block.axes[axis], _min[axis], _factor[axis], steps[axis]);
    joinSteps(steps[0], steps[1], steps[2], block.codes);
}

VELBRX_VECTOR_CLONES
void makeMortonCodes(std::array<uint64_t, PlaceBlock::kSize>& codes)
{
    for (uint64_t& code : codes)
        code = mortonCodeOf(code);
}

} // namespace VelBrx
