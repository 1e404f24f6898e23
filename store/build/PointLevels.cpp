#include "store/build/PointLevels.h"

#include "store/StoreIndex.h"

#include <algorithm>
#include <array>
#include <utility>

namespace VelBrx {

namespace {

constexpr size_t kRadix = 256;
constexpr size_t kFewPoints = 256;
constexpr unsigned kFinestGridLevel = kMortonLevels - kGridDigits;

/// A point whose nearest neighbour of lower rank to the left, if any, is the entry below it.
struct Candidate
{
    uint64_t rank;
    size_t index;
    int shared; ///< digits shared with the entry below, -1 at the bottom
};

/// Level of a point that shares `shared` digits with the nearest point of lower rank, -1 for none at all.
uint8_t levelOf(int shared)
{
    return static_cast<uint8_t>(std::max(0, shared + 1 - static_cast<int>(kGridDigits)));
}

/// Spreads points of one and the same code over the levels below the finest grid.
void assignEqual(const MortonPoint* points, size_t count, uint8_t* levels)
{
    std::vector<std::pair<uint64_t, size_t>> order(count);
    for (size_t i = 0; i < count; ++i)
        order[i] = {pointRank(points[i].ordinal), i};
    std::sort(order.begin(), order.end());
    unsigned level = kFinestGridLevel + 1;
    for (size_t place = 1, end = 4; place < count; ++place) {
        if (place == end && level < kMaxLevel) {
            ++level;
            end *= 4;
        }
        levels[order[place].second] = static_cast<uint8_t>(level);
    }
}

} // namespace

void sortByCode(MortonPoint* points, size_t count, MortonPoint* scratch)
{
    if (count <= kFewPoints) {
        std::sort(points, points + count);
        return;
    }
    uint64_t different = 0;
    bool ordered = true;
    for (size_t i = 1; i < count; ++i) {
        different |= points[i].code ^ points[0].code;
        ordered &= points[i - 1].ordinal < points[i].ordinal;
    }
    if (!ordered) {
        std::sort(points, points + count);
        return;
    }
    MortonPoint* from = points;
    MortonPoint* to = scratch;
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
}

void assignLevels(const MortonPoint* points, size_t count, uint8_t* levels)
{
    std::vector<Candidate> stack;
    for (size_t i = 0; i < count; ++i) {
        const uint64_t rank = pointRank(points[i].ordinal);
        int shared = i == 0 ? -1 : static_cast<int>(sharedDigits(points[i - 1].code, points[i].code));
        while (!stack.empty() && stack.back().rank > rank) {
            const Candidate& top = stack.back();
            levels[top.index] = levelOf(std::max(top.shared, shared));
            shared = std::min(top.shared, shared);
            stack.pop_back();
        }
        stack.push_back({rank, i, shared});
    }
    for (const Candidate& left : stack)
        levels[left.index] = levelOf(left.shared);

    for (size_t first = 0, end; first < count; first = end) {
        for (end = first + 1; end < count && points[end].code == points[first].code;)
            ++end;
        if (end - first > 1) assignEqual(points + first, end - first, levels + first);
    }
}

} // namespace VelBrx
