#pragma once

#include "store/build/PointLevels.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// A cell of the octree and how many points it takes.
struct TreeCell
{
    uint8_t level;
    uint64_t code;
    uint64_t pointCount;
};

/// Divides points, which have Morton codes and are sorted, into the cells of an octree. `levels` holds what
/// `assignLevels` gave and is overwritten by the level of the cell that takes the point: its code is the
/// point's, cut to that level.
///
/// A cell takes the points that its level wants, and
/// - those of the next levels until it has at least `kMinTaken`, so that no cell is almost empty;
/// - all that remain, when there are at most twice as many as it took, and at most `kMaxLeaf` in all;
/// - all that remain in an octant, when they are at most `kCrumb`.
///
/// The result depends on the set of points alone. Returns the cells by level, then code.
std::vector<TreeCell> divideIntoCells(const TreePoint* points, size_t count, uint8_t* levels);

constexpr uint64_t kMinTaken = 64;
constexpr uint64_t kMaxLeaf = 1 << 16;
constexpr uint64_t kCrumb = 1 << 10;

} // namespace VelBrx
