#pragma once

#include "loading/CellTable.h"

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <osg/ref_ptr>
#include <osgUtil/IncrementalCompileOperation>

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

class OctreeInfo;

/// The work that both level-of-detail operations share: collect the wanted cells by level, admit levels, take
/// cells out, read cells. One object serves one pass after another and keeps its vectors.
///
/// A cell is not loaded (no node), pending (node set, its compile set waits) or drawn (merged). The scene is
/// never touched here: additions go through the incremental compile operation, removals through the
/// decremental one, and both apply them in the update traversal.
class LodPass
{
public:
    /// Either operation may be null: cells are then loaded and dropped without reaching a scene.
    LodPass(osgUtil::IncrementalCompileOperation* incremental,
            VelOsgUtils::DecrementalCompileOperation* decremental);
    LodPass(const LodPass& other);
    LodPass& operator=(const LodPass& other);

    /// Empties the lists; the octrees of the pass may go afterwards.
    void clear();

    /// Sorts the cells of an octree into wanted ones, by level, and ones to remove. `Visibility` has
    /// `int checkCellIsVisiable(const CellTable::Cell&) const`.
    template <class Visibility>
    void traver(OctreeInfo& octree, const Visibility& visibility);

    /// Marks every loaded cell of the octree for removal.
    void removeAll(OctreeInfo& octree);

    /// Gives every loaded cell up and leaves its leaf to the octree's node as an orphan.
    static void abandon(OctreeInfo& octree, osgUtil::IncrementalCompileOperation* incremental);

    /// Level 0 always, then each level that keeps the sum of points strictly below the maximum.
    void admitLevels(uint64_t maximumPoints);
    void admitAllLevels();

    /// Takes the marked cells out.
    void unload();

    /// Reads the admitted cells that are not loaded, on at most half the processors. False when the abort
    /// flag cut it short.
    bool load(const std::atomic<bool>& abort);

private:
    struct Level
    {
        std::vector<CellTable::Cell*> loaded;
        std::vector<CellTable::Cell*> missing;
        uint64_t points = 0;
    };

    static CellTable& cellTable(OctreeInfo& octree);
    void remove(CellTable::Cell& cell);
    void admit(Level& level);
    static void withdrawCompileSet(CellData& data, osgUtil::IncrementalCompileOperation* incremental);
    void unload(CellTable::Cell& cell);
    void load(CellTable::Cell& cell);
    void compile(CellData& data, osg::Node& node);

    osg::ref_ptr<osgUtil::IncrementalCompileOperation> _incremental;
    VelOsgDBBrx::VelIncrementalCompileOperation* _ownIncremental; ///< the same where it is of the library
    osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> _decremental;

    std::array<Level, 256> _levels;
    size_t _levelCount = 0; ///< levels in use are below this
    std::vector<CellTable::Cell*> _removals;
    std::vector<CellTable::Cell*> _loads;
};

template <class Visibility>
void LodPass::traver(OctreeInfo& octree, const Visibility& visibility)
{
    // In depth-first order the cells of one level come in the same order whether parents stand before or
    // after their children.
    std::vector<CellTable::Cell>& cells = cellTable(octree).cells;
    for (size_t i = 0; i < cells.size();) {
        CellTable::Cell& cell = cells[i];
        if (visibility.checkCellIsVisiable(cell) != 2) {
            remove(cell);
            i += cell.subtreeSize;
            continue;
        }
        Level& level = _levels[cell.level];
        (cell.loaded ? level.loaded : level.missing).push_back(&cell);
        level.points += static_cast<uint64_t>(cell.points);
        if (cell.level >= _levelCount) _levelCount = cell.level + size_t{1};
        ++i;
    }
}
