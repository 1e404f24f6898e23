#include "edit/SelectionTest.h"

#include "loading/PointRecords.h"

#include <cmath>

using VelOsgDBBrx::AttributeRanges;
using VelOsgDBBrx::PointSelection;
using VelOsgDBBrx::ValueRange;

namespace {

namespace PointRecord = VelBrx::PointRecord;

constexpr double kAngleStep = 0.006; ///< degrees a step of a record's scan angle

template <class T, size_t kAt>
auto number(const uint8_t* record)
{
    T value;
    std::memcpy(&value, record + kAt, sizeof value);
    return +value; // small whole numbers as int
}

int returnNumber(const uint8_t* record)
{
    return record[PointRecord::kReturns] & 0x0F;
}

int numberOfReturns(const uint8_t* record)
{
    return record[PointRecord::kReturns] >> 4;
}

/// `read` gives a field of a record; the range is compared as numbers of its type.
template <auto read, class Range>
void keepInRange(const Range& range, const uint8_t* records, int count, uint8_t* accepted)
{
    using Number = decltype(read(records));
    const auto low = static_cast<Number>(range.low);
    const auto high = static_cast<Number>(range.high);
    for (int i = 0; i < count; ++i) {
        const Number value = read(records + i * kRecordSize);
        accepted[i] &= (value >= low) & (value <= high);
    }
}

/// The whole numbers of a range, in what an `int` holds.
ValueRange wholeNumbers(const ValueRange& range)
{
    constexpr double kMost = 1e6; // more than any field of a record
    return {std::clamp(std::ceil(range.low), -kMost, kMost),
            std::clamp(std::floor(range.high), -kMost, kMost)};
}

/// Degrees as steps; what is a step but for rounding is in.
ValueRange angleSteps(const ValueRange& degrees)
{
    constexpr double kRounding = 1e-6;
    return {degrees.low / kAngleStep - kRounding, degrees.high / kAngleStep + kRounding};
}

void keepByHiddenBits(const uint8_t* records, int count, uint8_t visible, uint8_t hidden, uint8_t* accepted)
{
    for (int i = 0; i < count; ++i)
        accepted[i] &= records[i * kRecordSize + kFlagByte] & kHiddenBits ? hidden : visible;
}

bool anyOf(const uint8_t* accepted, int count)
{
    uint8_t any = 0;
    for (int i = 0; i < count; ++i)
        any |= accepted[i];
    return any != 0;
}

} // namespace

SelectionTest::SelectionTest(const SelectionAreas& areas, const OctreeInfo& octree,
                             const osg::Matrixd& localToWorld, Hidden hidden)
    : _octree(octree), _localToWorld(localToWorld), _places(placeFilters(areas, octree, localToWorld)),
      _visible(hidden != Hidden::HIDDEN && !areas.selection.attributes.hidden.value_or(false)),
      _hidden(hidden != Hidden::VISIBLE && areas.selection.attributes.hidden.value_or(true))
{
    setClasses(areas.selection);
    addRanges(areas.selection.attributes);
}

void SelectionTest::setClasses(const PointSelection& selection)
{
    std::bitset<256> classes = selection.attributes.classes;
    if (!selection.undrawnToo) classes &= selection.drawn.shownClasses;
    _allClasses = classes.all();
    for (size_t c = 0; c < _classes.size(); ++c)
        _classes[c] = classes[c];
}

void SelectionTest::addRanges(const AttributeRanges& attributes)
{
    const auto add = [this](auto keep, const ValueRange& range) {
        if (!range.isWhole()) _ranges.push_back({keep, range.low, range.high});
    };
    const auto addWhole = [&](auto keep, const ValueRange& range) {
        if (!range.isWhole()) add(keep, wholeNumbers(range));
    };
    addWhole(keepInRange<returnNumber, Range>, attributes.returnNumber);
    addWhole(keepInRange<numberOfReturns, Range>, attributes.numberOfReturns);
    addWhole(keepInRange<number<uint16_t, PointRecord::kIntensity>, Range>, attributes.intensity);
    addWhole(keepInRange<number<uint16_t, PointRecord::kPointSource>, Range>, attributes.source);
    add(keepInRange<number<double, PointRecord::kGpsTime>, Range>, attributes.gpsTime);
    addWhole(keepInRange<number<int16_t, PointRecord::kScanAngle>, Range>, angleSteps(attributes.scanAngle));
}

std::vector<CellData*> SelectionTest::cells() const
{
    if (!_visible && !_hidden) return {};
    return cellsWhere(_octree, [this](const CellData& cell) {
        const CellRegion region(CellBox(_octree, cell), _localToWorld);
        return std::all_of(_places.begin(), _places.end(),
                           [&](const auto& place) { return place->mayPass(region); });
    });
}

void SelectionTest::test(const uint8_t* records, int count, const uint8_t* classes, uint8_t* accepted) const
{
    std::fill_n(accepted, kBlock, uint8_t{1});
    if (!_places.empty()) {
        const RecordBlock block(records, count);
        for (const auto& place : _places) {
            place->keep(block, accepted);
            if (!anyOf(accepted, count)) return;
        }
    }
    if (!_visible || !_hidden) keepByHiddenBits(records, count, _visible, _hidden, accepted);
    if (!_allClasses)
        for (int i = 0; i < count; ++i)
            accepted[i] &= _classes[classes[i]];
    for (const Range& range : _ranges)
        range.keep(range, records, count, accepted);
}
