#include "store/build/PointLevels.h"

#include "store/StoreIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

using namespace VelBrx;

namespace {

/// Points in clusters of all sizes, some at the same place, sorted.
std::vector<MortonPoint> clusteredPoints(size_t count)
{
    std::mt19937_64 random(3);
    std::vector<MortonPoint> points;
    uint64_t center = 0;
    for (uint64_t ordinal = 0; ordinal < count; ++ordinal) {
        if (ordinal % 50 == 0) center = random() >> 1;
        const uint64_t spread = (uint64_t(1) << random() % 63) - 1;
        points.push_back({(center ^ (random() & spread)) >> 1 << 1 & ~(uint64_t(1) << 63), ordinal});
    }
    std::sort(points.begin(), points.end());
    return points;
}

std::vector<uint8_t> levelsOf(const std::vector<MortonPoint>& points)
{
    std::vector<uint8_t> levels(points.size(), 0xEE);
    assignLevels(points.data(), points.size(), levels.data());
    return levels;
}

} // namespace

TEST(PointLevels, HoldThePointOfLowestRankOfEveryGridCellUpToEachLevel)
{
    const std::vector<MortonPoint> points = clusteredPoints(4000);
    const std::vector<uint8_t> levels = levelsOf(points);
    for (unsigned level = 0; level + kGridDigits <= kMortonLevels; ++level) {
        std::map<uint64_t, uint64_t> lowest; // by grid cell
        std::map<uint64_t, std::vector<uint64_t>> taken;
        for (size_t i = 0; i < points.size(); ++i) {
            const uint64_t cell = prefixOf(points[i].code, level + kGridDigits);
            const uint64_t rank = pointRank(points[i].ordinal);
            const auto [entry, isNew] = lowest.emplace(cell, rank);
            entry->second = std::min(entry->second, rank);
            if (levels[i] <= level) taken[cell].push_back(rank);
        }
        ASSERT_EQ(taken.size(), lowest.size()) << "level " << level;
        for (const auto& [cell, ranks] : taken)
            ASSERT_EQ(ranks, std::vector<uint64_t>{lowest[cell]}) << "level " << level;
    }
}

TEST(PointLevels, SpreadPointsOfOnePlaceByPowersOfFour)
{
    std::vector<MortonPoint> points;
    for (uint64_t ordinal = 0; ordinal < 5000; ++ordinal)
        points.push_back({42, ordinal});
    std::array<size_t, kMaxLevel + 1> counts{};
    for (uint8_t level : levelsOf(points))
        ++counts.at(level);
    EXPECT_EQ(counts[0], 1u);
    EXPECT_EQ(counts[14], 0u);
    EXPECT_EQ(counts[15], 3u);
    EXPECT_EQ(counts[16], 12u);
    EXPECT_EQ(counts[20], 3072u);
    EXPECT_EQ(counts[21], 904u);
}

TEST(PointLevels, AreThoseOfTheWholeForAPartThatEndsAtGridBorders)
{
    const std::vector<MortonPoint> points = clusteredPoints(3000);
    const std::vector<uint8_t> whole = levelsOf(points);
    for (size_t first = 0, end; first < points.size(); first = end) {
        const uint64_t part = prefixOf(points[first].code, kGridDigits);
        for (end = first; end < points.size() && prefixOf(points[end].code, kGridDigits) == part;)
            ++end;
        const std::vector<uint8_t> levels =
            levelsOf({points.begin() + std::ptrdiff_t(first), points.begin() + std::ptrdiff_t(end)});
        ASSERT_TRUE(std::equal(levels.begin(), levels.end(), whole.begin() + std::ptrdiff_t(first)));
    }
}

TEST(PointLevels, SortsByCodeThenOrdinal)
{
    for (size_t count : {1u, 2u, 255u, 5000u}) {
        std::vector<MortonPoint> sorted = clusteredPoints(count);
        std::vector<MortonPoint> points = sorted;
        std::sort(points.begin(), points.end(), [](auto& a, auto& b) { return a.ordinal < b.ordinal; });
        std::vector<MortonPoint> scratch(count);
        sortByCode(points.data(), count, scratch.data());
        for (size_t i = 0; i < count; ++i)
            ASSERT_EQ(points[i].ordinal, sorted[i].ordinal);
    }
}
