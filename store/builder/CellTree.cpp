#include "store/builder/CellTree.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace VelBrx {

namespace {

/// Points of the levels `first` to `last`.
uint64_t sum(const LevelCounts& counts, unsigned first, unsigned last)
{
    return std::accumulate(counts.begin() + first, counts.begin() + last + 1, uint64_t{0});
}

/// Points of [first, last) by level. Neighbours mostly have the same level, and a count waits for the one
/// before: two tables take turns.
LevelCounts countLevels(const TreePoint* first, const TreePoint* last)
{
    std::array<LevelCounts, 2> counts{};
    for (; last - first >= 2; first += 2) {
        ++counts[0][first[0].level];
        ++counts[1][first[1].level];
    }
    if (first < last) ++counts[0][first->level];
    std::transform(counts[0].begin(), counts[0].end(), counts[1].begin(), counts[0].begin(), std::plus<>());
    return counts[0];
}

/// The finest level whose points a cell of `level` takes wherever they are, of a node of which the points of
/// `firstLeft` and finer levels are left.
unsigned finestTaken(unsigned level, unsigned firstLeft, const LevelCounts& counts)
{
    unsigned finest = std::max(level, firstLeft);
    const uint64_t needed = sum(counts, firstLeft, kMaxLevel) > kSmallNode ? 1 : kMinTaken;
    uint64_t taken = sum(counts, firstLeft, finest);
    while (taken < needed && finest < kMaxLevel)
        taken += counts[++finest];
    return finest;
}

/// Whether an octant's points that are finer than `finest` get cells of their own.
bool isDivided(const LevelCounts& octant, unsigned firstLeft, unsigned finest)
{
    const uint64_t rest = sum(octant, finest + 1, kMaxLevel);
    return rest > kCrumb && kTakenPerRest * rest > sum(octant, firstLeft, finest);
}

/// The code of the node of level `above` that a node of `level` lies in.
uint64_t codeAbove(uint64_t code, unsigned level, unsigned above)
{
    return code >> 3 * (level - above);
}

/// Divides a node's points; that a cell took one shows in the point's level, which becomes the cell's.
class Divider
{
public:
    explicit Divider(TreePoint* points) : _points(points) {}

    std::vector<TreeCell> cells;

    /// Makes the cell of the points [begin, end), which share `level` digits, of those that want `firstLeft`
    /// or a finer level; the others lie in its ancestors. `counts` are the numbers of points by level.
    void divide(unsigned level, unsigned firstLeft, const LevelCounts& counts, size_t begin, size_t end)
    {
        const unsigned finest = finestTaken(level, firstLeft, counts);
        const size_t place = cells.size();
        cells.push_back({static_cast<uint8_t>(level), prefixOf(_points[begin].code, level), 0});
        cells[place].pointCount = level == kMaxLevel ? take(begin, end, firstLeft, kMaxLevel, level)
                                                     : divideOctants(level, firstLeft, finest, begin, end);
    }

private:
    TreePoint* _points;

    /// Gives the cell of `level` its points of each octant, and makes children for what remains; returns how
    /// many the cell has.
    uint64_t divideOctants(unsigned level, unsigned firstLeft, unsigned finest, size_t begin, size_t end)
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
            // Points that cells above took count for a level coarser than any that is left.
            const LevelCounts counts = countLevels(_points + begin, _points + octantEnd);
            const bool goesOn = isDivided(counts, firstLeft, finest);
            pointCount += take(begin, octantEnd, firstLeft, goesOn ? finest : kMaxLevel, level);
            if (goesOn) divide(level + 1, finest + 1, counts, begin, octantEnd);
            begin = octantEnd;
        }
        return pointCount;
    }

    /// Gives the points of levels `firstLeft` to `finest` to the cell of `level`; returns how many.
    uint64_t take(size_t begin, size_t end, unsigned firstLeft, unsigned finest, unsigned level)
    {
        uint64_t taken = 0;
        for (size_t i = begin; i < end; ++i) {
            const bool isTaken = _points[i].level >= firstLeft && _points[i].level <= finest;
            taken += isTaken;
            _points[i].level = isTaken ? level : _points[i].level;
        }
        return taken;
    }
};

/// Writes the indices of a node's points to `order` by level; returns how many each level has.
LevelCounts orderByLevel(const TreePoint* points, const TreeNode& node, uint32_t* order)
{
    const LevelCounts counts = countLevels(points + node.begin, points + node.end);
    LevelCounts places{};
    std::partial_sum(counts.begin(), counts.end() - 1, places.begin() + 1);
    for (size_t i = node.begin; i < node.end; ++i)
        order[places[points[i].level]++] = points[i].index;
    return counts;
}

} // namespace

AncestorTake AncestorTake::ofOwnLevels(unsigned level)
{
    AncestorTake take;
    take.firstLeft = level;
    std::iota(take.takenBy.begin(), take.takenBy.begin() + level, uint8_t{0});
    return take;
}

void SharedNodes::add(unsigned level, uint64_t code, const LevelCounts& counts)
{
    for (unsigned above = 0; above < level; ++above) {
        LevelCounts& sum = _nodes[{above, codeAbove(code, level, above)}];
        std::transform(sum.begin(), sum.end(), counts.begin(), sum.begin(), std::plus<>());
    }
}

AncestorTake SharedNodes::takeOf(unsigned level, uint64_t code, const LevelCounts& counts) const
{
    AncestorTake take;
    for (unsigned above = 0; above < level && take.firstLeft <= kMaxLevel; ++above) {
        const LevelCounts& node = _nodes.at({above, codeAbove(code, level, above)});
        const LevelCounts& octant =
            above + 1 == level ? counts : _nodes.at({above + 1, codeAbove(code, level, above + 1)});
        const unsigned finest = finestTaken(above, take.firstLeft, node);
        const unsigned last = isDivided(octant, take.firstLeft, finest) ? finest : kMaxLevel;
        std::fill(take.takenBy.begin() + take.firstLeft, take.takenBy.begin() + last + 1,
                  static_cast<uint8_t>(above));
        take.firstLeft = last + 1;
    }
    return take;
}

std::vector<TreeNode> nodesOf(const TreePoint* points, size_t count, unsigned level)
{
    std::vector<TreeNode> nodes;
    for (size_t begin = 0; begin < count;) {
        const uint64_t code = prefixOf(points[begin].code, level);
        const auto end = static_cast<size_t>(
            std::partition_point(points + begin, points + count,
                                 [&](const TreePoint& p) { return prefixOf(p.code, level) == code; }) -
            points);
        nodes.push_back({code, begin, end, countLevels(points + begin, points + end)});
        begin = end;
    }
    return nodes;
}

std::vector<TreeCell> divideIntoCells(TreePoint* points, const TreeNode& node, unsigned level,
                                      const AncestorTake& take, uint32_t* order)
{
    for (size_t i = node.begin; i < node.end; ++i)
        if (points[i].level < take.firstLeft) points[i].level = take.takenBy[points[i].level];
    Divider divider(points);
    if (take.firstLeft <= kMaxLevel) divider.divide(level, take.firstLeft, node.counts, node.begin, node.end);
    std::sort(divider.cells.begin(), divider.cells.end(), [](const TreeCell& a, const TreeCell& b) {
        return CellKey(a.level, a.code) < CellKey(b.level, b.code);
    });
    const LevelCounts counts = orderByLevel(points, node, order);
    std::vector<TreeCell> cells;
    for (unsigned above = 0; above < level; ++above)
        if (counts[above] > 0)
            cells.push_back({static_cast<uint8_t>(above), codeAbove(node.code, level, above), counts[above]});
    cells.insert(cells.end(), divider.cells.begin(), divider.cells.end());
    return cells;
}

} // namespace VelBrx
