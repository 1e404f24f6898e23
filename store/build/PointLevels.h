#pragma once

#include "store/build/Morton.h"

#include <cstdint>
#include <vector>

namespace VelBrx {

/// A point on its way into the octree.
struct MortonPoint
{
    uint64_t code;    ///< Morton code in the root cube
    uint64_t ordinal; ///< place among all points of all sources
};

inline bool operator<(const MortonPoint& a, const MortonPoint& b)
{
    return a.code != b.code ? a.code < b.code : a.ordinal < b.ordinal;
}

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

/// Sorts points by code, then ordinal. `scratch` has room for `count` points.
void sortByCode(MortonPoint* points, size_t count, MortonPoint* scratch);

/// Gives every point the coarsest level that wants it. The sampling grid of level L divides the root cube's
/// edge into 2^(L + 7); a level wants of each grid cell the point of lowest rank. The point that a level
/// wants is also wanted by all finer ones, so levels 0 to L together hold exactly one point of each occupied
/// grid cell of L: coarse levels are even and random, at cell borders too.
///
/// Level 14 has the finest grid that Morton codes resolve. Of points with one and the same code the second to
/// fourth in rank get level 15, up to the 16th 16, and so on by powers of four up to level 21.
///
/// `points` are sorted. They may be a part of the whole that ends at borders of level 0's grid: the result
/// for a point depends on the points in its grid cells alone. Linear, but for points of one code.
void assignLevels(const MortonPoint* points, size_t count, uint8_t* levels);

} // namespace VelBrx
