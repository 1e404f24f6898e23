#include "store/build/PointLevels.h"

#include "store/StoreIndex.h"

#include <algorithm>
#include <array>
#include <utility>

namespace VelBrx {

namespace {

constexpr size_t kRadix = 256;
constexpr size_t kFewPoints = 256;

/// Digits of a column code's Morton part that two codes share from the top, 21 when they are in one column of
/// the finest grid.
unsigned sharedColumnDigits(uint64_t a, uint64_t b)
{
    const uint64_t different = (a ^ b) >> kMortonLevels;
    constexpr unsigned kUnusedBits = 64 - 2 * kMortonLevels;
    return different == 0 ? kMortonLevels
                          : (static_cast<unsigned>(__builtin_clzll(different)) - kUnusedBits) / 2;
}

/// Spreads points of one and the same code over the levels below the finest grid and returns the one of
/// lowest rank, which has none yet.
TreePoint* spreadEqual(TreePoint* points, size_t count, const uint64_t* ordinals)
{
    std::vector<std::pair<uint64_t, TreePoint*>> order(count);
    for (size_t i = 0; i < count; ++i)
        order[i] = {pointRank(ordinals[points[i].index]), points + i};
    std::sort(order.begin(), order.end());
    unsigned level = kMortonLevels - kGridDigits + 1;
    for (size_t place = 1, end = 4; place < count; ++place) {
        if (place == end && level < kMaxLevel) {
            ++level;
            end *= 4;
        }
        order[place].second->level = level;
    }
    return order[0].second;
}

/// Works from fine grids to coarse ones, column by column.
class LevelAssigner
{
public:
    explicit LevelAssigner(const uint64_t* ordinals) : _ordinals(ordinals) {}

    /// Leaves the points of [first, last), which share `digits` digits, that the grid of `digits` digits
    /// wants as candidates, lowest first; the others get their levels.
    void thin(TreePoint* first, TreePoint* last, unsigned digits)
    {
        const size_t start = _candidates.size();
        const unsigned shared = sharedColumnDigits(first->code, (last - 1)->code);
        if (shared == kMortonLevels)
            pushPlaces(first, last);
        else
            thinColumns(first, last, shared + 1);
        for (unsigned grid = std::min(shared, kMortonLevels - 1); grid >= digits; --grid)
            if (_candidates.size() - start > 1) thinLayers(start, grid);
    }

    /// Gives the candidates that are left `level`.
    void finish(unsigned level)
    {
        for (const Candidate& candidate : _candidates)
            candidate.point->level = level;
        _candidates.clear();
    }

private:
    struct Candidate
    {
        uint32_t height;
        uint64_t rank;
        TreePoint* point;
    };
    const uint64_t* _ordinals;
    std::vector<Candidate> _candidates;

    /// The points of one column of the finest grid.
    void pushPlaces(TreePoint* first, TreePoint* last)
    {
        for (TreePoint* end; first < last; first = end) {
            for (end = first + 1; end < last && end->code == first->code;)
                ++end;
            TreePoint* const lowest =
                end - first == 1 ? first : spreadEqual(first, static_cast<size_t>(end - first), _ordinals);
            _candidates.push_back({heightOf(first->code), pointRank(_ordinals[lowest->index]), lowest});
        }
    }

    /// Thins the columns of `digits` digits and merges their candidates.
    void thinColumns(TreePoint* first, TreePoint* last, unsigned digits)
    {
        const auto start = static_cast<std::ptrdiff_t>(_candidates.size());
        while (first < last) {
            const uint64_t column = columnOf(first->code, digits);
            TreePoint* const end = std::partition_point(
                first, last, [&](const TreePoint& point) { return columnOf(point.code, digits) == column; });
            thin(first, end, digits);
            first = end;
        }
        std::sort(_candidates.begin() + start, _candidates.end(), [](const Candidate& a, const Candidate& b) {
            return a.height != b.height ? a.height < b.height : a.rank < b.rank;
        });
    }

    /// Keeps of the candidates from `start` on, one column of the grid of `grid` digits, what that grid
    /// wants.
    void thinLayers(size_t start, unsigned grid)
    {
        const unsigned shift = kMortonLevels - 1 - grid; // from heights to layers of half a cell
        const unsigned finerLevel = grid + 1 - kGridDigits;
        const size_t end = _candidates.size();
        size_t kept = start;
        Layer below{};
        Layer layer = layerAt(start, end, shift);
        while (layer.first < end) {
            const Layer above = layerAt(layer.end, end, shift);
            const uint64_t lowest = _candidates[layer.lowest].rank;
            const bool isWanted =
                !(below.end > below.first && below.number + 1 == layer.number && below.rank < lowest) &&
                !(above.end > above.first && layer.number + 1 == above.number && above.rank < lowest);
            for (size_t i = layer.first; i < layer.end; ++i)
                if (!isWanted || i != layer.lowest) _candidates[i].point->level = finerLevel;
            if (isWanted) _candidates[kept++] = _candidates[layer.lowest];
            below = layer;
            layer = above;
        }
        _candidates.resize(kept);
    }

    /// Candidates [first, end) of one layer; none where they are equal.
    struct Layer
    {
        size_t first;
        size_t end;
        size_t lowest;
        uint64_t rank; ///< of the lowest
        uint32_t number;
    };

    Layer layerAt(size_t first, size_t last, unsigned shift) const
    {
        if (first == last) return {first, first, first, 0, 0};
        Layer layer{first, first + 1, first, _candidates[first].rank, _candidates[first].height >> shift};
        for (; layer.end < last && _candidates[layer.end].height >> shift == layer.number; ++layer.end)
            if (_candidates[layer.end].rank < layer.rank) {
                layer.rank = _candidates[layer.end].rank;
                layer.lowest = layer.end;
            }
        return layer;
    }
};

} // namespace

void sortByCode(TreePoint* points, size_t count, TreePoint* scratch, const uint64_t* ordinals)
{
    const auto isBefore = [ordinals](const TreePoint& a, const TreePoint& b) {
        return a.code != b.code ? a.code < b.code : ordinals[a.index] < ordinals[b.index];
    };
    if (count <= kFewPoints) {
        std::sort(points, points + count, isBefore);
        return;
    }
    uint64_t different = 0;
    for (size_t i = 1; i < count; ++i)
        different |= points[i].code ^ points[0].code;
    TreePoint* from = points;
    TreePoint* to = scratch;
    for (unsigned shift = 0; shift < 64; shift += 8) {
        if ((different >> shift & (kRadix - 1)) == 0) continue;
        std::array<size_t, kRadix> starts{};
        for (size_t i = 0; i < count; ++i)
            ++starts[from[i].code >> shift & (kRadix - 1)];
        size_t start = 0;
        for (size_t& entry : starts)
            start += std::exchange(entry, start);
        for (size_t i = 0; i < count; ++i)
            to[starts[from[i].code >> shift & (kRadix - 1)]++] = from[i];
        std::swap(from, to);
    }
    if (from != points) std::copy(from, from + count, points);
    for (size_t first = 0, end; first < count; first = end) {
        for (end = first + 1; end < count && points[end].code == points[first].code;)
            ++end;
        if (end - first > 1) std::sort(points + first, points + end, isBefore);
    }
}

void assignLevels(TreePoint* points, size_t count, const uint64_t* ordinals, unsigned digits)
{
    LevelAssigner assigner(ordinals);
    TreePoint* const last = points + count;
    for (TreePoint *first = points, *end; first < last; first = end) {
        const uint64_t column = columnOf(first->code, digits);
        end = std::partition_point(
            first, last, [&](const TreePoint& point) { return columnOf(point.code, digits) == column; });
        assigner.thin(first, end, digits);
        assigner.finish(digits - kGridDigits);
    }
}

} // namespace VelBrx
