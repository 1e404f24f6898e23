#include "store/build/CellTree.h"

#include "store/StoreIndex.h"

#include <algorithm>
#include <array>

namespace VelBrx {

namespace {

using LevelCounts = std::array<uint64_t, kMaxLevel + 1>;

class Divider
{
public:
    Divider(const TreePoint* points, uint8_t* levels) : _points(points), _levels(levels) {}

    std::vector<TreeCell> cells;

    /// Makes the cell of the points [begin, end), which share `level` digits, of those that want `floor` or
    /// a finer level; the others lie in its ancestors.
    void divide(unsigned level, unsigned floor, size_t begin, size_t end)
    {
        const LevelCounts counts = count(begin, end, floor);
        uint64_t total = 0;
        for (uint64_t ofLevel : counts)
            total += ofLevel;

        unsigned finest = std::max(level, floor);
        uint64_t taken = 0;
        for (unsigned l = floor; l <= finest; ++l)
            taken += counts[l];
        while (taken < kMinTaken && finest < kMaxLevel)
            taken += counts[++finest];
        const bool isLeaf = level == kMaxLevel || (total - taken <= 2 * taken && total <= kMaxLeaf);
        if (isLeaf) finest = kMaxLevel;

        const size_t place = cells.size();
        cells.push_back({static_cast<uint8_t>(level), prefixOf(_points[begin].code, level), 0});
        uint64_t pointCount = take(begin, end, floor, finest, level);
        if (!isLeaf) pointCount += divideOctants(level, finest + 1, begin, end);
        cells[place].pointCount = pointCount;
    }

private:
    const TreePoint* _points;
    uint8_t* _levels;

    LevelCounts count(size_t begin, size_t end, unsigned floor) const
    {
        LevelCounts counts{};
        for (size_t i = begin; i < end; ++i)
            ++counts[_levels[i]];
        std::fill(counts.begin(), counts.begin() + floor, 0);
        return counts;
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
            const auto reaching = static_cast<uint64_t>(std::count_if(
                _levels + begin, _levels + octantEnd, [floor](uint8_t wanted) { return wanted >= floor; }));
            if (reaching > kCrumb)
                divide(level + 1, floor, begin, octantEnd);
            else
                kept += take(begin, octantEnd, floor, kMaxLevel, level);
            begin = octantEnd;
        }
        return kept;
    }
};

} // namespace

std::vector<TreeCell> divideIntoCells(const TreePoint* points, size_t count, uint8_t* levels)
{
    if (count == 0) return {};
    Divider divider(points, levels);
    divider.divide(0, 0, 0, count);
    std::sort(divider.cells.begin(), divider.cells.end(), [](const TreeCell& a, const TreeCell& b) {
        return a.level != b.level ? a.level < b.level : a.code < b.code;
    });
    return std::move(divider.cells);
}

} // namespace VelBrx
