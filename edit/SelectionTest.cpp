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
double number(const uint8_t* record)
{
    T value;
    std::memcpy(&value, record + kAt, sizeof value);
    return static_cast<double>(value);
}

double returnNumber(const uint8_t* record)
{
    return record[PointRecord::kReturns] & 0x0F;
}

double numberOfReturns(const uint8_t* record)
{
    return record[PointRecord::kReturns] >> 4;
}

template <double (*read)(const uint8_t*), class Range>
void keepInRange(const Range& range, const uint8_t* records, int count, uint8_t* accepted)
{
    const double low = range.low;
    const double high = range.high;
    for (int i = 0; i < count; ++i) {
        const double value = read(records + i * kRecordSize);
        accepted[i] &= (value >= low) & (value <= high);
    }
}

/// Degrees as steps; what is a step but for rounding is in.
ValueRange angleSteps(const ValueRange& degrees)
{
    constexpr double kRounding = 1e-6;
    return {std::ceil(degrees.low / kAngleStep - kRounding),
            std::floor(degrees.high / kAngleStep + kRounding)};
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
    add(keepInRange<returnNumber, Range>, attributes.returnNumber);
    add(keepInRange<numberOfReturns, Range>, attributes.numberOfReturns);
    add(keepInRange<number<uint16_t, PointRecord::kIntensity>, Range>, attributes.intensity);
    add(keepInRange<number<uint16_t, PointRecord::kPointSource>, Range>, attributes.source);
    add(keepInRange<number<double, PointRecord::kGpsTime>, Range>, attributes.gpsTime);
    add(keepInRange<number<int16_t, PointRecord::kScanAngle>, Range>, angleSteps(attributes.scanAngle));
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
    if (!_visible || !_hidden)
        for (int i = 0; i < count; ++i) {
            const bool isHidden = records[i * kRecordSize + kFlagByte] & kHiddenBits;
            accepted[i] &= isHidden ? _hidden : _visible;
        }
    if (!_allClasses)
        for (int i = 0; i < count; ++i)
            accepted[i] &= _classes[classes[i]];
    for (const Range& range : _ranges)
        range.keep(range, records, count, accepted);
}
