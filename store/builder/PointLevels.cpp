#include "store/builder/PointLevels.h"

#include "store/StoreIndex.h"

#include <algorithm>
#include <array>
#include <utility>

namespace VelBrx {

namespace {

constexpr unsigned kDigitBits =
    10; ///< that a pass of the sort goes by, at most; more make places that caches do not hold
constexpr unsigned kMoreBits = 6;   ///< than number the points: the sort's passes leave few points together
constexpr size_t kFewTogether = 24; ///< are sorted by insertion
constexpr size_t kFewPoints = 256;  ///< need no passes
constexpr std::ptrdiff_t kAhead =
    12; ///< points whose ordinals are fetched into the cache before they are ranked
constexpr unsigned kLargestDepth = 128; // a million random ranks need half of it

/// For few points that are nearly in order.
template <typename Item, typename IsBefore>
void insertionSort(Item* first, Item* last, const IsBefore& isBefore)
{
    for (Item* next = first + 1; next < last; ++next) {
        const Item moved = *next;
        Item* place = next;
        for (; place > first && isBefore(moved, place[-1]); --place)
            *place = place[-1];
        *place = moved;
    }
}

/// Sorts by the bits of the codes from about `lowest` to `top`, and returns which is the lowest.
unsigned sortByBits(TreePoint* points, size_t count, TreePoint* scratch, unsigned lowest, unsigned top)
{
    constexpr size_t kDigits = 1 << kDigitBits;
    const unsigned passes = (top - lowest + kDigitBits - 1) / kDigitBits;
    const unsigned bits = (top - lowest + passes - 1) / passes;
    const unsigned first = top > passes * bits ? top - passes * bits : 0;
    const uint64_t mask = (uint64_t{1} << bits) - 1;
    TreePoint* from = points;
    TreePoint* to = scratch;
    for (unsigned shift = first; shift < top; shift += bits) {
        std::array<size_t, kDigits> starts{};
        for (size_t i = 0; i < count; ++i)
            ++starts[from[i].code >> shift & mask];
        size_t start = 0;
        for (size_t& entry : starts)
            start += std::exchange(entry, start);
        for (size_t i = 0; i < count; ++i)
            to[starts[from[i].code >> shift & mask]++] = from[i];
        std::swap(from, to);
    }
    if (from != points) std::copy(from, from + count, points);
    return first;
}

/// Digits of a column code's Morton part that two codes share from the top, 21 when they are in one column of
/// the finest grid.
unsigned sharedColumnDigits(uint64_t a, uint64_t b)
{
    const uint64_t different = (a ^ b) >> kMortonLevels;
    constexpr unsigned kUnusedBits = 64 - 2 * kMortonLevels;
    return different == 0 ? kMortonLevels
                          : (static_cast<unsigned>(__builtin_clzll(different)) - kUnusedBits) / 2;
}

/// A cell's height on the grid of `grid` digits.
uint32_t reachOf(unsigned grid)
{
    return 1U << (kMortonLevels - grid);
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

/// Works from fine grids to coarse ones. Points come in the order of columns, so that the columns that hold
/// the last point are a stack of which each next point closes those that it does not share.
class LevelAssigner
{
public:
    /// `digits` as in `assignLevels`.
    LevelAssigner(TreePoint* points, size_t count, const uint64_t* ordinals, unsigned digits)
        : _points(points), _last(points + count), _ordinals(ordinals), _digits(digits)
    {
    }

    void run()
    {
        for (TreePoint *first = _points, *end; first < _last; first = end) {
            if (_last - first > kAhead) __builtin_prefetch(&_ordinals[first[kAhead].index]);
            for (end = first + 1; end < _last && end->code == first->code;)
                ++end;
            TreePoint* const lowest =
                end - first == 1 ? first : spreadEqual(first, static_cast<size_t>(end - first), _ordinals);
            _candidates.push_back({pointRank(_ordinals[lowest->index]), heightOf(first->code),
                                   static_cast<uint32_t>(lowest - _points)});
            endPlace(end < _last ? sharedColumnDigits(first->code, end->code) : 0);
        }
    }

private:
    struct Candidate
    {
        uint64_t rank;
        uint32_t height;
        uint32_t point;
    };

    /// The smallest column that holds several places, of those in it one behind the other.
    struct OpenColumn
    {
        size_t start; ///< of its candidates
        unsigned digits;
    };

    TreePoint* const _points;
    TreePoint* const _last;
    const uint64_t* const _ordinals;
    const unsigned _digits;
    std::vector<Candidate> _candidates;
    std::vector<OpenColumn> _open; ///< each in the one before

    /// Closes the columns of the last place that the next, which shares `shared` digits with it, is not in.
    void endPlace(unsigned shared)
    {
        size_t start = _candidates.size() - 1;
        while (!_open.empty() && _open.back().digits > shared) {
            const OpenColumn column = _open.back();
            _open.pop_back();
            const unsigned outer = std::max(shared + 1, _open.empty() ? _digits : _open.back().digits + 1);
            start = column.start;
            close(start, column.digits, std::max(outer, _digits));
        }
        if (shared < _digits)
            finish(_digits - kGridDigits);
        else if (_open.empty() || _open.back().digits < shared)
            _open.push_back({start, shared});
    }

    /// Leaves the candidates behind `start`, of one column of `digits` digits, that the grids from there to
    /// the one of `last` digits want, lowest first; the others get their levels.
    void close(size_t start, unsigned digits, unsigned last)
    {
        if (closeNear(start, std::min(digits, kMortonLevels - 1))) return;
        if (digits < kMortonLevels) sortByHeight(start);
        for (unsigned grid = std::min(finestToDrop(start), digits); grid >= last; --grid) {
            _candidates.resize(keepWanted(start, _candidates.size(), start, grid));
            if (_candidates.size() - start == 1) break;
        }
    }

    /// The same where all candidates are in reach of each other on the grid of `grid` digits, as on most
    /// surfaces; false where they are not. Without a branch by candidates.
    bool closeNear(size_t start, unsigned grid)
    {
        Candidate* const first = _candidates.data() + start;
        const size_t count = _candidates.size() - start;
        uint32_t low = first->height;
        uint32_t high = low;
        size_t lowest = 0;
        for (size_t i = 1; i < count; ++i) {
            low = std::min(low, first[i].height);
            high = std::max(high, first[i].height);
            lowest = first[i].rank < first[lowest].rank ? i : lowest;
        }
        if (high - low > reachOf(grid)) return false;
        std::swap(first[0], first[lowest]);
        for (size_t i = 1; i < count; ++i)
            drop(start + i, grid);
        _candidates.resize(start + 1);
        return true;
    }

    /// Most columns have the candidates of two to four smaller ones, each of which has one.
    void sortByHeight(size_t start)
    {
        constexpr size_t kFewCandidates = 12;
        const auto isBefore = [](const Candidate& a, const Candidate& b) {
            return a.height != b.height ? a.height < b.height : a.rank < b.rank;
        };
        Candidate* const first = _candidates.data() + start;
        const size_t count = _candidates.size() - start;
        if (count > kFewCandidates) {
            std::sort(first, first + count, isBefore);
            return;
        }
        insertionSort(first, first + count, isBefore);
    }

    /// The finest grid on which two of the candidates behind `start` are in reach.
    unsigned finestToDrop(size_t start) const
    {
        uint32_t least = _candidates[start + 1].height - _candidates[start].height;
        for (size_t i = start + 2; i < _candidates.size(); ++i)
            least = std::min(least, _candidates[i].height - _candidates[i - 1].height);
        if (least <= 2) return kMortonLevels - 1;
        return kMortonLevels - 32 + static_cast<unsigned>(__builtin_clz(least - 1));
    }

    /// Gives the candidates that are left `level`.
    void finish(unsigned level)
    {
        for (const Candidate& candidate : _candidates)
            _points[candidate.point].level = level;
        _candidates.clear();
    }

    /// Keeps of the candidates [first, last), of one column of the grid of `grid` digits, what that grid
    /// wants: moves it down to `kept` and returns where it ends. The lowest in rank is wanted and those near
    /// it are not; then what is below and what is above are out of each other's reach.
    size_t keepWanted(size_t first, size_t last, size_t kept, unsigned grid, unsigned depth = 0)
    {
        const uint32_t reach = reachOf(grid);
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

    void drop(size_t candidate, unsigned grid)
    {
        _points[_candidates[candidate].point].level = grid + 1 - kGridDigits;
    }
};

} // namespace

void makeMortonCodes(TreePoint* points, size_t count)
{
    std::array<uint64_t, PlaceBlock::kSize> codes{};
    for (size_t first = 0; first < count; first += codes.size()) {
        const size_t size = std::min(codes.size(), count - first);
        for (size_t i = 0; i < size; ++i)
            codes[i] = points[first + i].code;
        makeMortonCodes(codes);
        for (size_t i = 0; i < size; ++i)
            points[first + i].code = codes[i];
    }
}

void sortByCode(TreePoint* points, size_t count, TreePoint* scratch, const uint64_t* ordinals)
{
    const auto isBefore = [ordinals](const TreePoint& a, const TreePoint& b) {
        return a.code != b.code ? a.code < b.code : ordinals[a.index] < ordinals[b.index];
    };
    uint64_t different = 0;
    for (size_t i = 1; i < count; ++i)
        different |= points[i].code ^ points[0].code;
    if (count <= kFewPoints || different == 0) {
        std::sort(points, points + count, isBefore);
        return;
    }
    // Passes go by the upper bits alone.
    const unsigned top = 64 - static_cast<unsigned>(__builtin_clzll(different));
    const unsigned wanted = 64 - static_cast<unsigned>(__builtin_clzll(count)) + kMoreBits;
    const unsigned lowest = wanted < top ? top - wanted : 0;
    const unsigned sorted = sortByBits(points, count, scratch, lowest, top);
    for (size_t first = 0, end; first < count; first = end) {
        const uint64_t upper = points[first].code >> sorted;
        for (end = first + 1; end < count && points[end].code >> sorted == upper;)
            ++end;
        if (end - first > kFewTogether)
            sortByCode(points + first, end - first, scratch, ordinals);
        else
            insertionSort(points + first, points + end, isBefore);
    }
}

void assignLevels(TreePoint* points, size_t count, const uint64_t* ordinals, unsigned digits)
{
    LevelAssigner(points, count, ordinals, digits).run();
}

} // namespace VelBrx
