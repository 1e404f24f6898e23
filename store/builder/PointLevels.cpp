#include "store/builder/PointLevels.h"

#include "store/StoreIndex.h"

#include <algorithm>
#include <array>
#include <utility>

namespace VelBrx {

namespace {

constexpr unsigned kDigitBits =
    10; ///< that a pass of the sort goes by; more make places that caches do not hold
constexpr std::ptrdiff_t kAhead =
    12; ///< points whose ordinals are fetched into the cache before they are ranked
constexpr size_t kFewPoints = 256;
constexpr unsigned kLargestDepth = 128; // a million random ranks need half of it

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
    /// `last`: behind all points that will come.
    LevelAssigner(const uint64_t* ordinals, const TreePoint* last) : _ordinals(ordinals), _last(last) {}

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
            if (_candidates.size() - start > 1)
                _candidates.resize(keepWanted(start, _candidates.size(), start, grid));
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
    const TreePoint* _last;
    std::vector<Candidate> _candidates;

    /// The points of one column of the finest grid.
    void pushPlaces(TreePoint* first, TreePoint* last)
    {
        for (TreePoint* end; first < last; first = end) {
            if (_last - first > kAhead) __builtin_prefetch(&_ordinals[first[kAhead].index]);
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

    /// Keeps of the candidates [first, last), of one column of the grid of `grid` digits, what that grid
    /// wants: moves it down to `kept` and returns where it ends. The lowest in rank is wanted and those near
    /// it are not; then what is below and what is above are out of each other's reach.
    size_t keepWanted(size_t first, size_t last, size_t kept, unsigned grid, unsigned depth = 0)
    {
        const uint32_t reach = 1U << (kMortonLevels - grid); // a cell's height
        for (; first < last; ++depth) {
            // Ranks are random, but a file can be made for them to rise all the way: halve it instead.
            const size_t lowest = depth < kLargestDepth ? lowestOf(first, last) : first + (last - first) / 2;
            const Candidate wanted = _candidates[lowest];
            size_t below = lowest;
            while (below > first && wanted.height - _candidates[below - 1].height <= reach)
                drop(--below, grid);
            size_t above = lowest + 1;
            while (above < last && _candidates[above].height - wanted.height <= reach)
                drop(above++, grid);
            kept = keepWanted(first, below, kept, grid, depth + 1);
            _candidates[kept++] = wanted;
            first = above;
        }
        return kept;
    }

    size_t lowestOf(size_t first, size_t last) const
    {
        size_t lowest = first;
        for (size_t i = first + 1; i < last; ++i)
            if (_candidates[i].rank < _candidates[lowest].rank) lowest = i;
        return lowest;
    }

    void drop(size_t candidate, unsigned grid) const
    {
        _candidates[candidate].point->level = grid + 1 - kGridDigits;
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
    constexpr size_t kDigits = 1 << kDigitBits;
    for (uint64_t left = different; left != 0;) { // bits that are the same in all codes need no pass
        const auto shift = static_cast<unsigned>(__builtin_ctzll(left));
        left &= ~(uint64_t{kDigits - 1} << shift);
        std::array<size_t, kDigits> starts{};
        for (size_t i = 0; i < count; ++i)
            ++starts[from[i].code >> shift & (kDigits - 1)];
        size_t start = 0;
        for (size_t& entry : starts)
            start += std::exchange(entry, start);
        for (size_t i = 0; i < count; ++i)
            to[starts[from[i].code >> shift & (kDigits - 1)]++] = from[i];
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
    TreePoint* const last = points + count;
    LevelAssigner assigner(ordinals, last);
    for (TreePoint *first = points, *end; first < last; first = end) {
        const uint64_t column = columnOf(first->code, digits);
        end = std::partition_point(
            first, last, [&](const TreePoint& point) { return columnOf(point.code, digits) == column; });
        assigner.thin(first, end, digits);
        assigner.finish(digits - kGridDigits);
    }
}

} // namespace VelBrx
