#include "store/build/CellTree.h"

#include <algorithm>
#include <functional>
#include <numeric>

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

    /// Makes the cell of the points [begin, end), which share `level` digits, of those that want `floor` or
    /// a finer level; the others lie in its ancestors.
    void divide(unsigned level, unsigned floor, size_t begin, size_t end)
    {
        const uint64_t code = prefixOf(_points[begin].code, level);
        const LevelCounts counts = isShared(level) ? _shared.counts(level, code) : count(begin, end);
        const uint64_t total = reaching(counts, floor);

        unsigned finest = std::max(level, floor);
        uint64_t taken = 0;
        for (unsigned l = floor; l <= finest; ++l)
            taken += counts[l];
        while (taken < kMinTaken && finest < kMaxLevel)
            taken += counts[++finest];
        const bool isLeaf = level == kMaxLevel || (total - taken <= 2 * taken && total <= kMaxLeaf);
        if (isLeaf) finest = kMaxLevel;

        const size_t place = cells.size();
        cells.push_back({static_cast<uint8_t>(level), code, 0});
        uint64_t pointCount = take(begin, end, floor, finest, level);
        if (!isLeaf) pointCount += divideOctants(level, finest + 1, begin, end);
        cells[place].pointCount = pointCount;
    }

private:
    const TreePoint* _points;
    uint8_t* _levels;

    const SharedNodes& _shared;
    const unsigned _digits;

    bool isShared(unsigned level) const { return level < _digits; }

    LevelCounts count(size_t begin, size_t end) const
    {
        LevelCounts counts{};
        for (size_t i = begin; i < end; ++i)
            ++counts[_levels[i]];
        return counts;
    }

    /// Of the points counted those that want `floor` or a finer level.
    static uint64_t reaching(const LevelCounts& counts, unsigned floor)
    {
        return std::accumulate(counts.begin() + floor, counts.end(), uint64_t{0});
    }

    uint64_t reaching(unsigned level, uint64_t code, unsigned floor, size_t begin, size_t end) const
    {
        if (isShared(level)) return reaching(_shared.counts(level, code), floor);
        return static_cast<uint64_t>(std::count_if(_levels + begin, _levels + end,
                                                   [floor](uint8_t wanted) { return wanted >= floor; }));
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

    /// Makes the children for the points of `floor` and finer; tells how many stay with the parent.
    uint64_t divideOctants(unsigned level, unsigned floor, size_t begin, size_t end)
    {
        uint64_t kept = 0;
        while (begin < end) {
            const uint64_t code = prefixOf(_points[begin].code, level + 1);
            const size_t octantEnd =
                static_cast<size_t>(std::partition_point(_points + begin, _points + end,
                                                         [&](const TreePoint& p) {
                                                             return prefixOf(p.code, level + 1) == code;
                                                         }) -
                                    _points);
            if (reaching(level + 1, code, floor, begin, octantEnd) > kCrumb)
                divide(level + 1, floor, begin, octantEnd);
            else
                kept += take(begin, octantEnd, floor, kMaxLevel, level);
            begin = octantEnd;
        }
        return kept;
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
    divider.divide(0, 0, 0, count);
    std::sort(divider.cells.begin(), divider.cells.end(), [](const TreeCell& a, const TreeCell& b) {
        return CellKey(a.level, a.code) < CellKey(b.level, b.code);
    });
    return std::move(divider.cells);
}

} // namespace VelBrx
