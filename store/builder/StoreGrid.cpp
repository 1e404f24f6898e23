#include "store/builder/StoreGrid.h"

#include "store/OriginRecord.h"
#include "store/io/ByteIo.h"
#include "store/las/RecordFormat.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace VelBrx {

namespace {

/// Part of a grid step that counts as none: header numbers are decimal fractions rounded to binary.
constexpr double kTolerance = 1e-3;
constexpr double kLargestIndex = 4e15; ///< grid indices up to here are exact in double
constexpr int64_t kLargestRange = std::numeric_limits<uint32_t>::max();

/// index x scale, correctly rounded for scales like 0.001.
double multipleOf(double scale, int64_t index)
{
    const double inverse = std::round(1 / scale);
    if (inverse >= 1 && 1 / inverse == scale) return static_cast<double>(index) / inverse;
    return static_cast<double>(index) * scale;
}

bool isNearInteger(double value, double tolerance)
{
    return std::abs(value) < kLargestIndex && std::abs(value - std::round(value)) <= tolerance;
}

double coordinateOf(const SourceExtent& extent, size_t axis, int32_t value)
{
    return value * extent.scale[axis] + extent.offset[axis];
}

/// The finest scale at which double precision distinguishes steps and faces of cells: no coordinate nor the
/// cube's edge is many more than 2^50 steps.
double finestScale(const std::vector<const SourceExtent*>& extents)
{
    double reach = 0;
    for (size_t axis = 0; axis < 3; ++axis) {
        double min = std::numeric_limits<double>::max();
        double max = std::numeric_limits<double>::lowest();
        for (const SourceExtent* extent : extents) {
            min = std::min(min, coordinateOf(*extent, axis, extent->min[axis]));
            max = std::max(max, coordinateOf(*extent, axis, extent->max[axis]));
        }
        reach = std::max({reach, std::abs(min), std::abs(max), max - min});
    }
    return std::ldexp(reach, -50);
}

/// One axis of the grid that is being made. Grid indices count steps of `scale` from `origin`.
class AxisGrid
{
public:
    AxisGrid(const std::vector<const SourceExtent*>& extents, size_t axis, double finest)
        : _extents(extents), _axis(axis), _finest(finest)
    {
        scale = std::numeric_limits<double>::max();
        for (const SourceExtent* extent : extents)
            scale = std::min(scale, extent->scale[axis]);
    }

    double scale;
    double offset = 0;
    std::vector<AxisMapping> mappings;

    /// False where a coordinate is too large to be a number of steps.
    bool make()
    {
        while (!fits())
            if (!std::isfinite(scale *= 10)) return false;
        placeOffset();
        return std::isfinite(offset);
    }

private:
    const std::vector<const SourceExtent*>& _extents;
    size_t _axis;
    double _finest; ///< least scale
    double _origin = 0;
    int64_t _min = 0;
    int64_t _max = 0;

    /// Maps the sources to grid indices of the present scale. False when they span more than 32 bits or the
    /// scale is too fine.
    bool fits()
    {
        if (scale < _finest) return false;
        const double firstOffset = _extents.front()->offset[_axis];
        _origin = isNearInteger(firstOffset / scale, kTolerance / 10) ? 0 : firstOffset;
        mappings.clear();
        _min = std::numeric_limits<int64_t>::max();
        _max = std::numeric_limits<int64_t>::min();
        for (const SourceExtent* extent : _extents) {
            const AxisMapping mapping = mappingOf(*extent);
            for (int32_t value : {extent->min[_axis], extent->max[_axis]}) {
                const double index = value * mapping.scaledFactor + mapping.scaledShift;
                if (!(std::abs(index) < kLargestIndex) && !mapping.exact) return false;
                const int64_t whole =
                    mapping.exact ? value * mapping.factor + mapping.shift : std::llround(index);
                _min = std::min(_min, whole);
                _max = std::max(_max, whole);
            }
            mappings.push_back(mapping);
        }
        const bool allExact =
            std::all_of(mappings.begin(), mappings.end(), [](const AxisMapping& m) { return m.exact; });
        return _max - _min <= kLargestRange - (allExact ? 0 : 4);
    }

    AxisMapping mappingOf(const SourceExtent& extent) const
    {
        AxisMapping mapping;
        mapping.scaledFactor = extent.scale[_axis] / scale;
        mapping.scaledShift = (extent.offset[_axis] - _origin) / scale;
        const double largest =
            std::max(std::abs(double{1} * extent.min[_axis]), std::abs(double{1} * extent.max[_axis]));
        mapping.exact = isNearInteger(mapping.scaledShift, kTolerance) &&
                        isNearInteger(mapping.scaledFactor, kTolerance / std::max(1.0, largest)) &&
                        mapping.scaledFactor * largest < kLargestIndex && mapping.scaledFactor > 0.5 &&
                        mapping.scaledFactor <= kLargestFactor;
        if (mapping.exact) {
            mapping.factor = std::llround(mapping.scaledFactor);
            mapping.shift = std::llround(mapping.scaledShift);
        }
        return mapping;
    }

    /// Moves the zero of the indices near the middle, to a round number where that keeps them in 32 bits.
    void placeOffset()
    {
        const int64_t range = _max - _min;
        int64_t step = 1;
        while (step * 160 <= range)
            step *= 10;
        const int64_t middle = _min + (range + 1) / 2;
        int64_t zero = static_cast<int64_t>(std::floor(static_cast<double>(middle) / step + 0.5)) * step;
        if (_max - zero > std::numeric_limits<int32_t>::max() ||
            _min - zero < std::numeric_limits<int32_t>::min())
            zero = middle;
        offset = _origin + multipleOf(scale, zero);
        for (AxisMapping& mapping : mappings) {
            mapping.shift -= zero;
            mapping.scaledShift -= static_cast<double>(zero);
        }
    }
};

/// Notes the sources whose coordinates had to be rounded.
void noteRounded(const SourceExtent& extent, size_t source, StoreGrid& grid)
{
    if (grid.isExact(source)) return;
    char text[200];
    double largest = 0;
    for (size_t axis = 0; axis < 3; ++axis)
        if (!grid.mappings[source][axis].exact) largest = std::max(largest, grid.scale[axis] / 2);
    std::snprintf(
        text, sizeof text,
        ": its scale or offset has no place on the grid of the store; its points are shown up to %g off, "
        "their exact coordinates are kept",
        largest);
    grid.notes.push_back(extent.path + text);
}

/// Edge of the cube and whether it and the coordinates of all integers are usable numbers.
bool makeCube(StoreGrid& grid)
{
    grid.cubeSize = *std::max_element(grid.scale, grid.scale + 3);
    double extent = 0;
    for (size_t axis = 0; axis < 3; ++axis) {
        extent = std::max(extent, (double{1} * grid.max[axis] - grid.min[axis]) * grid.scale[axis]);
        if (!std::isfinite(grid.coordinate(axis, std::numeric_limits<int32_t>::min())) ||
            !std::isfinite(grid.coordinate(axis, std::numeric_limits<int32_t>::max())))
            return false;
    }
    while (grid.cubeSize <= extent)
        grid.cubeSize *= 2;
    return std::isfinite(grid.cubeSize);
}

} // namespace

bool StoreGrid::isExact(size_t source) const
{
    const auto& axes = mappings[source];
    return axes[0].exact && axes[1].exact && axes[2].exact;
}

void StoreGrid::mapRecords(size_t source, uint8_t* records, size_t count) const
{
    const std::array<AxisMapping, 3>& axes = mappings[source];
    for (size_t i = 0; i < count; ++i, records += LasLayout::kPointSize)
        for (size_t axis = 0; axis < 3; ++axis) {
            uint8_t* value = records + LasLayout::kX + 4 * axis;
            storeLe(value, axes[axis].apply(loadLe<int32_t>(value)));
        }
}

Status makeStoreGrid(const std::vector<SourceExtent>& extents, StoreGrid& grid)
{
    grid = StoreGrid();
    grid.mappings.resize(extents.size());
    std::vector<const SourceExtent*> used;
    for (const SourceExtent& extent : extents)
        if (!extent.empty) used.push_back(&extent);

    const std::string tooLarge = used.front()->path +
                                 ": has coordinates too large for a store; check its scale "
                                 "factors and offsets";
    const double finest = finestScale(used);
    for (size_t axis = 0; axis < 3; ++axis) {
        AxisGrid axisGrid(used, axis, finest);
        if (!axisGrid.make()) return Status::failure(tooLarge);
        grid.scale[axis] = axisGrid.scale;
        grid.offset[axis] = axisGrid.offset;
        grid.min[axis] = std::numeric_limits<int32_t>::max();
        grid.max[axis] = std::numeric_limits<int32_t>::min();
        for (size_t i = 0, u = 0; i < extents.size(); ++i) {
            if (extents[i].empty) continue;
            const AxisMapping& mapping = grid.mappings[i][axis] = axisGrid.mappings[u++];
            grid.min[axis] = std::min(grid.min[axis], mapping.apply(extents[i].min[axis]));
            grid.max[axis] = std::max(grid.max[axis], mapping.apply(extents[i].max[axis]));
        }
    }
    if (!makeCube(grid)) return Status::failure(tooLarge);
    for (size_t i = 0; i < extents.size(); ++i)
        if (!extents[i].empty) noteRounded(extents[i], i, grid);
    return {};
}

} // namespace VelBrx
