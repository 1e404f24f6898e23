#pragma once

#include "store/StoreIndex.h"
#include "store/build/PointLevels.h"

#include <array>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace VelBrx {

/// A cell of the octree and how many points it takes.
struct TreeCell
{
    uint8_t level;
    uint64_t code;
    uint64_t pointCount;
};

/// Level and key code: the order of cells.
using CellKey = std::pair<unsigned, uint64_t>;

using LevelCounts = std::array<uint64_t, kMaxLevel + 1>;

/// The nodes of the octree whose points may lie in several chunks, with the points that want each level.
class SharedNodes
{
public:
    /// Counts the points of a chunk, which have Morton codes and are sorted, in the nodes above level
    /// `digits`.
    void add(const TreePoint* points, size_t count, unsigned digits);
    void add(const SharedNodes& other);

    /// Those of a node that has points.
    const LevelCounts& counts(unsigned level, uint64_t code) const { return _nodes.at({level, code}); }

private:
    std::map<CellKey, LevelCounts> _nodes;
};

/// Divides the points of a chunk, which have Morton codes and are sorted, into the cells of the octree.
/// `levels` holds what `assignLevels` gave and is overwritten by the level of the cell that takes the point:
/// its code is the point's, cut to that level.
///
/// A cell takes the points that its level wants, and
/// - those of the next levels until it has at least `kMinTaken`, so that no cell is almost empty;
/// - all that remain in an octant, when they are at most half of what it took there, or at most `kCrumb`.
/// So no cell is more than one and a half times as dense as its neighbours of the same level, but where these
/// have few points.
///
/// The result depends on the set of all points alone. `shared` counts the points of all chunks in the nodes
/// above level `digits`, all other nodes of the chunk are wholly in it; a single chunk has 0 digits. Returns
/// the cells by level, then code, with the number of points that they have of this chunk.
std::vector<TreeCell> divideIntoCells(const TreePoint* points, size_t count, uint8_t* levels,
                                      const SharedNodes& shared, unsigned digits);

constexpr uint64_t kMinTaken = 64;
constexpr uint64_t kCrumb = 256;

} // namespace VelBrx
