#pragma once

#include "store/StoreIndex.h"
#include "store/builder/PointLevels.h"

#include <array>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace VelBrx {

/// Points of a cell of the octree.
struct TreeCell
{
    uint8_t level;
    uint64_t code;
    uint64_t pointCount;
    uint64_t first = 0; ///< points of the cell that go before these
};

/// Points by the level that wants them.
using LevelCounts = std::array<uint64_t, kMaxLevel + 1>;

/// The points of an octree node that the cells above it take.
struct AncestorTake
{
    /// The coarsest level whose points are left to the node's own cells; `kMaxLevel + 1` where none are.
    unsigned firstLeft = 0;
    /// For each level below `firstLeft`: the level of the cell that takes the points of this level.
    std::array<uint8_t, kMaxLevel + 1> takenBy{};

    /// Each of the `level` cells above takes the points of its own level, which is nearly always so.
    static AncestorTake ofOwnLevels(unsigned level);
};

/// The octree above the nodes of single chunks: nodes whose points may be in several chunks. What the cells
/// here take is known when the points of all chunks were added.
class SharedNodes
{
public:
    /// Adds the points of a node of `level`, which is wholly in one chunk.
    void add(unsigned level, uint64_t code, const LevelCounts& counts);

    /// What the cells above take of a node that was added.
    AncestorTake takeOf(unsigned level, uint64_t code, const LevelCounts& counts) const;

private:
    std::map<CellKey, LevelCounts> _nodes;
};

/// A node of the octree that lies wholly in one chunk.
struct TreeNode
{
    uint64_t code;
    size_t begin; ///< its points [begin, end) in the chunk
    size_t end;
    LevelCounts counts;
};

/// The nodes of `level` that hold `points`, which have Morton codes and are sorted.
std::vector<TreeNode> nodesOf(const TreePoint* points, size_t count, unsigned level);

/// Divides the points of a node of `level`, which have Morton codes, are sorted and have the levels that
/// `assignLevels` gave, into the cells of the octree. Returns the cells by level, then code, with the number
/// of points that they have of this node. `order` gets the points' indices, cell by cell.
///
/// A cell takes the points that its level wants, and
/// - the points of the next levels until it has at least `kMinTaken`, so that few points make no chain of
///   almost empty cells; where more than `kSmallNode` are left, until it has one, or a point far off would
///   make the cells of all others large;
/// - all that remain in an octant, when they are at most the `kTakenPerRest`th part of what it took there, or
///   at most `kCrumb`.
/// So no cell is denser than its neighbours of the same level by more than this part, except where an octant
/// has few points.
///
/// The cells depend on the set of all points alone, whatever chunks there are.
std::vector<TreeCell> divideIntoCells(TreePoint* points, const TreeNode& node, unsigned level,
                                      const AncestorTake& take, uint32_t* order);

constexpr uint64_t kMinTaken = 64;
constexpr uint64_t kSmallNode = 1 << 14;
constexpr uint64_t kTakenPerRest = 6;
constexpr uint64_t kCrumb = 128;

} // namespace VelBrx
