#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "tests/support/TestStore.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <string>

#include <sys/sysmacros.h>

using namespace VelBrx;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

Status decode(const std::vector<uint8_t>& bytes, uint64_t pointCount, StoreIndex& index)
{
    return decodeIndex(bytes.data(), bytes.size(), pointCount, index);
}

/// A fault that an index with a valid checksum may hold, and a part of the message that names it.
struct Fault
{
    const char* message;
    std::function<void(StoreIndex&)> plant;
};

void setSegment(StoreIndex& index, size_t cell, int64_t first, int64_t count)
{
    index.cells[cell].segments[0] = {first, count};
}

const Fault kFaults[] = {
    {"has no cells", [](StoreIndex& index) { index.cells.clear(); }},
    {"where the root must be", [](StoreIndex& index) { index.cells.erase(index.cells.begin()); }},
    {"listed twice", [](StoreIndex& index) { index.cells[2].code = 0; }},
    {"not in order", [](StoreIndex& index) { std::swap(index.cells[1], index.cells[2]); }},
    {"its level does not have", [](StoreIndex& index) { index.cells[2].code = 8; }},
    {"its level does not have", [](StoreIndex& index) { index.cells[0].code = 1; }},
    {"deeper than", [](StoreIndex& index) { index.cells[4].level = 22; }},
    {"deeper than", [](StoreIndex& index) { index.cells[4].level = 255; }},
    {"02-0000000000000038 has no parent",
     [](StoreIndex& index) {
         index.cells[2].code = 6;
         index.cells[4].code = 0x38;
     }},
    {"03-0000000000000039 has no parent", [](StoreIndex& index) { index.cells[4].level = 3; }},
    {"has no segments", [](StoreIndex& index) { index.cells[1].segments.clear(); }},
    {"outside the 14 points", [](StoreIndex& index) { index.cells[0].segments[1].count = 2; }},
    {"outside the 14 points", [](StoreIndex& index) { index.cells[0].segments[1].first = -1; }},
    {"outside the 14 points", [](StoreIndex& index) { index.cells[1].segments[0].count = 0; }},
    {"outside the 14 points", [](StoreIndex& index) { index.cells[1].segments[0].count = -2; }},
    {"outside the 14 points", [](StoreIndex& index) { setSegment(index, 1, kInt64Max, kInt64Max); }},
    {"outside the 14 points", [](StoreIndex& index) { setSegment(index, 1, kInt64Max, 1); }},
    {"both have point 4", [](StoreIndex& index) { setSegment(index, 2, 4, 4); }},
    {"points 3 to 3 belong to no cell", [](StoreIndex& index) { setSegment(index, 1, 4, 1); }},
    {"points 13 to 13 belong to no cell", [](StoreIndex& index) { index.cells[0].segments.pop_back(); }},
    {"not a finite box", [](StoreIndex& index) { index.cubeSize = 0; }},
    {"not a finite box", [](StoreIndex& index) { index.cubeSize = kNan; }},
    {"not a finite box", [](StoreIndex& index) { index.cubeMin[1] = -INFINITY; }},
    {"not a finite box", [](StoreIndex& index) { index.cubeMin[2] = index.cubeSize = 1.7e308; }},
    {"grid size 0", [](StoreIndex& index) { index.gridSize = 0; }},
    {"range of elevation", [](StoreIndex& index) { index.statistics.elevation.low = kNan; }},
    {"range of GPS time",
     [](StoreIndex& index) { std::swap(index.statistics.gpsTime.low, index.statistics.gpsTime.high); }},
    {"counts by class", [](StoreIndex& index) { ++index.statistics.pointsByClass[200]; }},
    {"counts by return",
     [](StoreIndex& index) {
         index.statistics.pointsByReturn[3] = ~uint64_t(0); // with the next, the sum wraps to the same
         index.statistics.pointsByReturn[4] = 1;
     }},
    {"source ids", [](StoreIndex& index) {
         index.statistics.pointSources = {3, 3};
     }}};

} // namespace

TEST(StoreIndex, IsRefusedWithAMessageThatNamesTheFault)
{
    for (size_t i = 0; i < std::size(kFaults); ++i) {
        StoreIndex index = smallStore().index;
        kFaults[i].plant(index);
        StoreIndex decoded;
        const Status status = decode(encodeIndex(index), 14, decoded);
        EXPECT_FALSE(status) << "fault " << i << ", " << kFaults[i].message;
        EXPECT_NE(status.message().find(kFaults[i].message), std::string::npos) << i << status.message();
    }
}

TEST(StoreIndex, IsRefusedWhenItHoldsMorePointsThanOneDrawCallTakes)
{
    StoreIndex index;
    index.cubeSize = 1;
    const int64_t count = kMaxCellPoints + 1;
    index.cells = {{0, 0, {{0, count}}}};
    const auto points = static_cast<uint64_t>(count);
    StoreStatistics& statistics = index.statistics;
    statistics.pointsByClass[0] = statistics.pointsByReturn[0] = statistics.pointsByNumberOfReturns[0] =
        points;
    StoreIndex decoded;
    const Status status = decode(encodeIndex(index), points, decoded);
    EXPECT_NE(status.message().find("more points than can be drawn"), std::string::npos) << status.message();
}

TEST(StoreIndex, IsRefusedOrStaysWithinBoundsWhateverBitAForgerFlips)
{
    const std::vector<uint8_t> good = encodeIndex(smallStore().index);
    const size_t checked = good.size() - 4;
    size_t accepted = 0;
    for (size_t bit = 0; bit < 8 * checked; ++bit) {
        std::vector<uint8_t> bytes = good;
        bytes[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        storeLe(bytes.data() + checked, crc32c(bytes.data(), checked));
        StoreIndex index;
        if (!decode(bytes, 14, index)) continue;
        ++accepted;
        uint64_t points = 0;
        for (const CellWithSegment& cell : deriveCells(index))
            points += cell.pointCount;
        ASSERT_EQ(points, 14u) << "bit " << bit;
    }
    EXPECT_GT(accepted, 0u); // the store id, for one, may be any
}

TEST(StoreIndex, NamesAnotherFormatVersion)
{
    std::vector<uint8_t> bytes = encodeIndex(smallStore().index);
    bytes[8] = 2;
    StoreIndex decoded;
    EXPECT_NE(decode(bytes, 14, decoded).message().find("format version 2"), std::string::npos);
}

TEST(DerivedCells, OfTheDeepestLevelLieInTheCubesLastCorner)
{
    StoreIndex index;
    index.cubeSize = 1 << 21;
    std::vector<Segment> one{{0, 1}};
    for (uint8_t level = 0; level <= kMaxLevel; ++level)
        index.cells.push_back({level, (uint64_t(1) << (3 * level)) - 1, {{level, 1}}});
    StoreStatistics& statistics = index.statistics;
    statistics.pointsByClass[0] = statistics.pointsByReturn[0] = statistics.pointsByNumberOfReturns[0] = 22;

    StoreIndex decoded;
    const Status status = decode(encodeIndex(index), 22, decoded);
    ASSERT_TRUE(status) << status.message();
    const CellWithSegment deepest = deriveCells(decoded).back();
    EXPECT_EQ(float(deepest.size[2]), 1.0f);
    for (size_t axis = 0; axis < 3; ++axis)
        EXPECT_EQ(double(deepest.center[axis]), (1 << 21) - 0.5);
}

TEST(DerivedCells, HaveIdentifiersThatNoOtherCellOfAnyFileHas)
{
    StoreIndex index;
    for (uint8_t level = 0; level <= kMaxLevel; ++level) {
        index.cells.push_back({level, 0, {{0, 1}}});
        if (level > 0) index.cells.push_back({level, (uint64_t(1) << (3 * level)) - 1, {{0, 1}}});
    }
    constexpr uint64_t kAllBits = ~uint64_t(0);
    const FileIdentity files[] = {{0, 0, 0},
                                  {1, 0, 0},
                                  {makedev(0xFFF, 0xFFFFF), kAllBits, 0},
                                  {0, kAllBits - 1, 0},
                                  {makedev(8, 1), 77, 1'764'000'000'123'456'789},
                                  {makedev(8, 1), 77, 1'764'000'000'123'456'790}};
    std::set<std::string> identifiers;
    for (const FileIdentity& file : files)
        for (const uint64_t storeId : {0x0123456789abcdefu, 0xfedcba9876543210u}) {
            index.storeId = storeId;
            for (const CellWithSegment& cell : deriveCells(index, file))
                EXPECT_TRUE(identifiers.insert(cell.identifier).second) << cell.identifier;
        }
}

TEST(DerivedCells, AreWantedAsLongAsTheirSpacingCoversAPixel)
{
    const double spacing = 0.25, height = 1080;
    const double pixelAngle = 2 * std::tan(15 * 3.14159265358979 / 180) / height;
    const double farthest = spacing / pixelAngle; // where the spacing covers one pixel
    const auto isWanted = [&](double depth) {
        const double scale = height / std::abs(std::tan(30 / 3.1415926) * depth);
        return 2 * scale * resolutionLength(spacing) >= 1;
    };
    EXPECT_TRUE(isWanted(farthest * 0.9999));
    EXPECT_FALSE(isWanted(farthest * 1.0001));

    StoreIndex index = smallStore().index;
    EXPECT_DOUBLE_EQ(deriveCells(index)[3].resolutionLength, resolutionLength(4.0 / 128));
    index.gridSize = 32;
    EXPECT_DOUBLE_EQ(deriveCells(index)[3].resolutionLength, resolutionLength(4.0 / 32));
}

TEST(DerivedCells, KeepTheRootWantedAsLongAsItIsAPixelWide)
{
    EXPECT_DOUBLE_EQ(deriveCells(smallStore().index)[0].resolutionLength, resolutionLength(16.0));
}
