#include "store/build/CellTree.h"

#include <algorithm>
#include <functional>

namespace VelBrx {

namespace {

class Divider
{
public:
    Divider(const TreePoint* points, uint8_t* levels, const SharedNodes& shared, unsigned digits)
        : _points(points), _levels(levels), _shared(shared), _digits(digits)
    {
    }

    std::vector<TreeCell> cells;

    /// Makes the root for all points.
    void divide(size_t count) { divide(0, 0, countsOf(0, 0, 0, count), 0, count); }

private:
    const TreePoint* _points;
    uint8_t* _levels;

    const SharedNodes& _shared;
    const unsigned _digits;

    /// Makes the cell of the points [begin, end), which share `level` digits, of those that want `floor` or
    /// a finer level; the others lie in its ancestors. `counts` are those of the points by level.
    void divide(unsigned level, unsigned floor, const LevelCounts& counts, size_t begin, size_t end)
    {
        unsigned finest = std::max(level, floor);
        uint64_t taken = sum(counts, floor, finest);
        while (taken < kMinTaken && finest < kMaxLevel)
            taken += counts[++finest];
        const size_t place = cells.size();
        cells.push_back({static_cast<uint8_t>(level), prefixOf(_points[begin].code, level), 0});
        cells[place].pointCount = level == kMaxLevel ? take(begin, end, floor, kMaxLevel, level)
                                                     : divideOctants(level, floor, finest, begin, end);
    }

    /// Gives the cell of `level` its points of each octant, and makes children for what remains; tells how
    /// many the cell has.
    uint64_t divideOctants(unsigned level, unsigned floor, unsigned finest, size_t begin, size_t end)
    {
        uint64_t pointCount = 0;
        while (begin < end) {
            const uint64_t code = prefixOf(_points[begin].code, level + 1);
            const size_t octantEnd =
                static_cast<size_t>(std::partition_point(_points + begin, _points + end,
                                                         [&](const TreePoint& p) {
                                                             return prefixOf(p.code, level + 1) == code;
                                                         }) -
                                    _points);
            const LevelCounts counts = countsOf(level + 1, code, begin, octantEnd);
            const uint64_t rest = sum(counts, finest + 1, kMaxLevel);
            const bool isDivided = rest > kCrumb && rest > sum(counts, floor, finest) / 2;
            pointCount += take(begin, octantEnd, floor, isDivided ? finest : kMaxLevel, level);
            if (isDivided) divide(level + 1, finest + 1, counts, begin, octantEnd);
            begin = octantEnd;
        }
        return pointCount;
    }

    /// The points of a node by the level that they want. Those that ancestors took count for the ancestor's
    /// level where the node lies in this chunk alone, else for the one they wanted: a coarser one than the
    /// node's in any case.
    LevelCounts countsOf(unsigned level, uint64_t code, size_t begin, size_t end) const
    {
        if (level < _digits) return _shared.counts(level, code);
        LevelCounts counts{};
        for (size_t i = begin; i < end; ++i)
            ++counts[_levels[i]];
        return counts;
    }

    static uint64_t sum(const LevelCounts& counts, unsigned first, unsigned last)
    {
        uint64_t points = 0;
        for (unsigned level = first; level <= last; ++level)
            points += counts[level];
        return points;
    }

    /// Gives the points of levels `floor` to `finest` to the cell of `level`; tells how many.
    uint64_t take(size_t begin, size_t end, unsigned floor, unsigned finest, unsigned level)
    {
        uint64_t taken = 0;
        for (size_t i = begin; i < end; ++i) {
            const bool isTaken = _levels[i] >= floor && _levels[i] <= finest;
            taken += isTaken;
            _levels[i] = isTaken ? static_cast<uint8_t>(level) : _levels[i];
        }
        return taken;
    }
};

} // namespace

void SharedNodes::add(const TreePoint* points, size_t count, unsigned digits)
{
    if (digits == 0) return;
    for (size_t first = 0, end; first < count; first = end) {
        const uint64_t code = prefixOf(points[first].code, digits - 1);
        LevelCounts counts{};
        for (end = first; end < count && prefixOf(points[end].code, digits - 1) == code; ++end)
            ++counts[points[end].level];
        for (unsigned level = 0; level < digits; ++level) {
            LevelCounts& sum = _nodes[{level, code >> 3 * (digits - 1 - level)}];
            std::transform(sum.begin(), sum.end(), counts.begin(), sum.begin(), std::plus<>());
        }
    }
}

void SharedNodes::add(const SharedNodes& other)
{
    for (const auto& [key, counts] : other._nodes) {
        LevelCounts& sum = _nodes[key];
        std::transform(sum.begin(), sum.end(), counts.begin(), sum.begin(), std::plus<>());
    }
}

std::vector<TreeCell> divideIntoCells(const TreePoint* points, size_t count, uint8_t* levels,
                                      const SharedNodes& shared, unsigned digits)
{
    if (count == 0) return {};
    Divider divider(points, levels, shared, digits);
    divider.divide(count);
    std::sort(divider.cells.begin(), divider.cells.end(), [](const TreeCell& a, const TreeCell& b) {
        return CellKey(a.level, a.code) < CellKey(b.level, b.code);
    });
    return std::move(divider.cells);
}

} // namespace VelBrx
