#pragma once

#include "store/builder/Morton.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// A point on its way into the octree.
struct TreePoint
{
    uint64_t code;  ///< column code, later Morton code
    uint32_t index; ///< place in the chunk of points that are worked on together
    uint32_t level; ///< coarsest level that wants it
};

/// Turns the column codes of points into Morton codes.
void makeMortonCodes(TreePoint* points, size_t count);

/// Octal digits between a level and its sampling grid: a cell's edge has 2^7 grid cells.
constexpr unsigned kGridDigits = 7;

/// A number that orders points at random: a bijection, so no two points have the same.
inline uint64_t pointRank(uint64_t ordinal)
{
    ordinal += 0x9E3779B97F4A7C15;
    ordinal = (ordinal ^ ordinal >> 30) * 0xBF58476D1CE4E5B9;
    ordinal = (ordinal ^ ordinal >> 27) * 0x94D049BB133111EB;
    return ordinal ^ ordinal >> 31;
}

/// Sorts points by code, then ordinal, which is `ordinals[index]` for a point. `scratch` has room for `count`
/// points.
void sortByCode(TreePoint* points, size_t count, TreePoint* scratch, const uint64_t* ordinals);

/// Gives every point the coarsest level that wants it. The sampling grid of level L divides the root cube's
/// edge into 2^(L + 7). The finest grid, of level 14, wants of each of its cells the point of lowest
/// rank. A coarser grid takes, of the points that the next finer one wants, those of a column of its cells in
/// order of rank, and wants each that is farther than a cell's height above or below those that it wants
/// already.
///
/// So levels are nested and random, and a surface that is not steep, rough ground too, has one point in each
/// column, wherever it crosses from one cell to the next above it: cells, and layers of any kind, would show
/// it with contour lines.
///
/// Of points with one and the same code the second to fourth in rank get level 15, up to the 16th 16, and so
/// on by powers of four up to level 21.
///
/// `points` have column codes and are sorted. They may be a part of the whole that ends at borders of columns
/// of level 0's grid: the result for a point depends on the points in its column alone.
///
/// With more `digits` than `kGridDigits` they may be a part that ends at borders of columns of the grid of so
/// many digits. The points that this grid wants get its level, `digits - kGridDigits`, the others their own.
/// The coarser levels of the former come out when those of all parts are handed in together.
void assignLevels(TreePoint* points, size_t count, const uint64_t* ordinals, unsigned digits = kGridDigits);

} // namespace VelBrx
