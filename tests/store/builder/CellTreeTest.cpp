#include "store/builder/CellTree.h"

#include "store/StoreIndex.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <numeric>
#include <random>

using namespace VelBrx;

namespace {

constexpr uint64_t kSide = uint64_t(1) << kMortonLevels;

using Place = std::array<uint64_t, 3>; ///< on the finest grid

Place at(uint64_t x, uint64_t y, uint64_t z)
{
    return {x, y, z};
}

struct Divided
{
    std::vector<TreePoint> wanted; ///< points with the level that wants them
    std::vector<TreePoint> points; ///< the same with the level of the cell that takes them
    std::vector<TreeCell> cells;
    std::vector<uint32_t> order;
};

/// Divides a cloud of which `place` gives the places of its points.
Divided divideCloud(size_t count, const std::function<Place(size_t)>& place)
{
    Divided divided;
    std::vector<TreePoint>& points = divided.points;
    for (size_t i = 0; i < count; ++i) {
        const auto [x, y, z] = place(i);
        points.push_back({columnCode(x, y, z), static_cast<uint32_t>(i), 0});
    }
    std::vector<TreePoint> scratch(count);
    std::vector<uint64_t> ordinals(count);
    std::iota(ordinals.begin(), ordinals.end(), 0);
    sortByCode(points.data(), count, scratch.data(), ordinals.data());
    assignLevels(points.data(), count, ordinals.data());
    for (TreePoint& point : points)
        point.code = mortonCodeOf(point.code);
    sortByCode(points.data(), count, scratch.data(), ordinals.data());
    divided.wanted = points;
    divided.order.resize(count);
    divided.cells = divideIntoCells(points.data(), nodesOf(points.data(), count, 0).front(), 0,
                                    AncestorTake::ofOwnLevels(0), divided.order.data());
    return divided;
}

/// Checks what holds for the cells of any cloud.
void expectSound(const Divided& divided)
{
    std::map<CellKey, uint64_t> counts;
    std::map<CellKey, uint64_t> below; // points of a cell and of its descendants
    std::vector<CellKey> taker(divided.points.size());
    for (const TreePoint& point : divided.points) {
        taker[point.index] = {point.level, prefixOf(point.code, point.level)};
        ++counts[taker[point.index]];
        for (unsigned level = 0; level <= point.level; ++level)
            ++below[{level, prefixOf(point.code, level)}];
    }
    ASSERT_EQ(divided.cells.size(), counts.size()) << "a cell is empty or missing";
    CellKey last{0, 0};
    auto next = divided.order.begin();
    for (const TreeCell& cell : divided.cells) {
        const CellKey key{cell.level, cell.code};
        ASSERT_EQ(cell.pointCount, counts[key]);
        for (uint64_t i = 0; i < cell.pointCount; ++i)
            ASSERT_EQ(taker[*next++], key) << "the order is that of the cells";
        EXPECT_TRUE(last < key || cell.level == 0) << "cells stand by level, then code";
        last = key;
        if (cell.level == 0) continue;
        EXPECT_TRUE(counts.count({cell.level - 1, cell.code >> 3})) << "a cell has no parent";
        if (below[key] <= kSmallNode) {
            EXPECT_GE(cell.pointCount, kMinTaken);
        }
    }
}

} // namespace

TEST(CellTree, IsSoundForCloudsOfAnyShape)
{
    std::mt19937_64 random(5);
    const auto any = [&] { return random() % kSide; };
    const std::map<std::string, std::function<Place(size_t)>> clouds = {
        {"volume", [&](size_t) { return at(any(), any(), any()); }},
        {"plane", [&](size_t) { return at(any(), any(), 77); }},
        {"line", [&](size_t) { return at(any(), 0, 0); }},
        {"diagonal", [&](size_t i) { return at(i, i, i); }},
        {"one place", [](size_t) { return at(1, 2, 3); }},
        {"two places", [](size_t i) { return at(i % 2 * (kSide - 1), 0, 0); }},
        {"dense spot in the wide", [&](size_t i) {
             return i == 0 ? at(kSide - 1, kSide - 1, kSide - 1) : at(any() % 8, any() % 8, 0);
         }}};
    for (const auto& [name, place] : clouds)
        for (size_t count : {1u, 100u, 200000u}) {
            SCOPED_TRACE(name + " " + std::to_string(count));
            expectSound(divideCloud(count, place));
        }
}

TEST(CellTree, KeepsEachPointNoFinerThanItsLevelAndCoarseCellsEven)
{
    std::mt19937_64 random(6);
    const size_t count = 300000;
    Divided divided =
        divideCloud(count, [&](size_t) { return at(random() % kSide, random() % kSide, uint64_t(5)); });
    size_t taken = 0;
    size_t inRoot = 0;
    for (size_t i = 0; i < count; ++i) {
        EXPECT_LE(divided.points[i].level, divided.wanted[i].level)
            << "a point that a level wants is at hand there";
        taken += divided.wanted[i].level == 0;
        inRoot += divided.points[i].level == 0;
    }
    EXPECT_EQ(inRoot, taken) << "the root of a wide cloud is its even sample";
    std::map<CellKey, std::pair<uint64_t, uint64_t>> octants; // points that the cell has there, and wanted
    for (size_t i = 0; i < count; ++i) {
        auto& [has, wanted] =
            octants[{divided.points[i].level, prefixOf(divided.points[i].code, divided.points[i].level + 1)}];
        ++has;
        wanted += divided.wanted[i].level <= divided.points[i].level;
    }
    for (const auto& [octant, points] : octants)
        EXPECT_LE(points.first, points.second + std::max(points.second / kTakenPerRest, kCrumb));
}

TEST(CellTree, HasNoLargeCellsBecauseOfPointsFarOff)
{
    std::mt19937_64 random(7);
    const Divided divided = divideCloud(300000, [&](size_t i) {
        return i < 3 ? at(kSide - 1 - i, random() % kSide, random() % kSide)
                     : at(random() % (kSide >> 8), random() % (kSide >> 8), 9);
    });
    expectSound(divided);
    for (const TreeCell& cell : divided.cells)
        EXPECT_LE(cell.pointCount, 100000u) << "level " << unsigned(cell.level);
}

TEST(CellTree, PutsAFewPointsIntoOneCell)
{
    std::mt19937_64 random(8);
    const Divided divided =
        divideCloud(kCrumb, [&](size_t) { return at(random() % kSide, random() % kSide, random() % kSide); });
    EXPECT_EQ(divided.cells.size(), 1u);
}
