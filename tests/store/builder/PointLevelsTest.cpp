#include "store/builder/PointLevels.h"

#include "store/StoreIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <numeric>
#include <random>
#include <set>

using namespace VelBrx;

namespace {

/// Points whose index is their ordinal.
bool isBefore(const TreePoint& a, const TreePoint& b)
{
    return a.code != b.code ? a.code < b.code : a.index < b.index;
}

std::vector<uint64_t> ordinalsOf(const std::vector<TreePoint>& points)
{
    std::vector<uint64_t> ordinals(points.size());
    std::iota(ordinals.begin(), ordinals.end(), 0);
    return ordinals;
}

/// Points in clusters of all sizes, some at the same place, sorted by column code.
std::vector<TreePoint> clusteredPoints(size_t count)
{
    std::mt19937_64 random(3);
    std::vector<TreePoint> points;
    std::array<uint64_t, 3> center{};
    for (uint32_t ordinal = 0; ordinal < count; ++ordinal) {
        if (ordinal % 50 == 0)
            for (uint64_t& place : center)
                place = random() % (1 << kMortonLevels);
        const uint64_t spread = (uint64_t(1) << random() % kMortonLevels) - 1;
        std::array<uint64_t, 3> place = center;
        for (uint64_t& coordinate : place)
            coordinate ^= random() & spread;
        points.push_back({columnCode(place[0], place[1], place[2]), ordinal, 0xEE});
    }
    std::sort(points.begin(), points.end(), isBefore);
    return points;
}

using CodesByOrdinal = std::map<uint64_t, uint64_t>;

/// The points that the grid of `digits` digits wants of those that the next finer one wants, as the header
/// states it.
std::set<uint64_t> wantedBy(unsigned digits, const CodesByOrdinal& finer)
{
    std::map<uint64_t, uint64_t> byRank;
    for (const auto& [ordinal, code] : finer)
        byRank[pointRank(ordinal)] = ordinal;
    std::map<uint64_t, std::vector<int64_t>> heights; // of the wanted points by column
    std::set<uint64_t> wanted;
    for (const auto& [rank, ordinal] : byRank) {
        const uint64_t code = finer.at(ordinal);
        const int64_t height = heightOf(code);
        std::vector<int64_t>& taken = heights[columnOf(code, digits)];
        const bool isFar = std::all_of(taken.begin(), taken.end(), [&](int64_t other) {
            return std::abs(height - other) > int64_t(1) << (kMortonLevels - digits);
        });
        if (!isFar) continue;
        taken.push_back(height);
        wanted.insert(ordinal);
    }
    return wanted;
}

} // namespace

TEST(PointLevels, AreThoseOfTheDefinition)
{
    std::vector<TreePoint> points = clusteredPoints(4000);
    assignLevels(points.data(), points.size(), ordinalsOf(points).data());
    std::map<uint64_t, uint64_t> lowestOfPlace;
    std::map<uint64_t, unsigned> levels;
    for (const TreePoint& point : points) {
        levels[point.index] = point.level;
        const auto [entry, isNew] = lowestOfPlace.emplace(point.code, point.index);
        if (pointRank(point.index) < pointRank(entry->second)) entry->second = point.index;
    }
    CodesByOrdinal wanted;
    for (const auto& [code, ordinal] : lowestOfPlace)
        wanted[ordinal] = code;
    for (const auto& [ordinal, level] : levels)
        EXPECT_EQ(level > 14, wanted.count(ordinal) == 0);
    for (unsigned level = 14; level-- > 0;) {
        const std::set<uint64_t> stay = wantedBy(level + kGridDigits, wanted);
        for (auto entry = wanted.begin(); entry != wanted.end();) {
            const bool stays = stay.count(entry->first) != 0;
            ASSERT_EQ(levels[entry->first] <= level, stays) << "level " << level;
            entry = stays ? std::next(entry) : wanted.erase(entry);
        }
    }
}

TEST(PointLevels, ComeOutSoonOfALineMadeForRanksToRise)
{
    constexpr uint32_t kCount = 100000;
    std::vector<uint64_t> ordinals(kCount);
    std::iota(ordinals.begin(), ordinals.end(), 0);
    std::sort(ordinals.begin(), ordinals.end(),
              [](uint64_t a, uint64_t b) { return pointRank(a) < pointRank(b); });
    for (const bool isFalling : {false, true}) {
        std::vector<TreePoint> points;
        for (uint32_t i = 0; i < kCount; ++i)
            points.push_back({columnCode(0, 0, 20 * i), isFalling ? kCount - 1 - i : i, 0});
        assignLevels(points.data(), points.size(), ordinals.data());
        for (unsigned level = 0; level < 11; ++level) {
            const auto taken = std::count_if(points.begin(), points.end(),
                                             [&](const TreePoint& point) { return point.level <= level; });
            const double cells = 1 << (kGridDigits + level);
            EXPECT_NEAR(static_cast<double>(taken), 0.75 * cells, 0.25 * cells) << "level " << level;
        }
    }
}

TEST(PointLevels, SpreadPointsOfOnePlaceByPowersOfFour)
{
    std::vector<TreePoint> points;
    for (uint32_t ordinal = 0; ordinal < 5000; ++ordinal)
        points.push_back({42, ordinal, 0});
    assignLevels(points.data(), points.size(), ordinalsOf(points).data());
    std::array<size_t, kMaxLevel + 1> counts{};
    for (const TreePoint& point : points)
        ++counts.at(point.level);
    EXPECT_EQ(counts[0], 1u);
    EXPECT_EQ(counts[14], 0u);
    EXPECT_EQ(counts[15], 3u);
    EXPECT_EQ(counts[16], 12u);
    EXPECT_EQ(counts[20], 3072u);
    EXPECT_EQ(counts[21], 904u);
}
