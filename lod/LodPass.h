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

    /// \name A pass with several views, in place of `traver` and `admitLevels`
    /// @{
    /// What follows is wanted by a further view.
    void beginView();

    /// Notes the cells of an octree that the view wants.
    template <class Visibility>
    void want(OctreeInfo& octree, const Visibility& visibility);

    /// Divides the maximum among the views and admits levels to each as `admitLevels` does, within its share.
    /// Points that several views want are paid by all of these in equal parts. A view that wants less than an
    /// equal share leaves the rest to the others. The sum stays strictly below the maximum, level 0 apart.
    void admitViews(uint64_t maximumPoints);

    /// Marks every loaded cell that was not admitted to a view for removal.
    void removeOthers(OctreeInfo& octree);
    /// @}

    /// Points of the cells that are wanted, admitted or not; each once.
    uint64_t wantedPoints() const;

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

    /// What one view wants of a level.
    struct ViewLevel
    {
        std::vector<CellTable::Cell*> cells;
        double points = 0; ///< the view's part of them
    };
    struct View
    {
        std::array<ViewLevel, 256> levels;
        double points = 0; ///< of all levels
        double share = 0;  ///< of the maximum
        double spent = 0;
    };

    template <class Visibility, class Want, class Refuse>
    static void walk(std::vector<CellTable::Cell>& cells, const Visibility& visibility, const Want& want,
                     const Refuse& refuse);
    static CellTable& cellTable(OctreeInfo& octree);
    void countPoints(View& view) const;
    void divide(uint64_t maximumPoints);
    void admit(View& view, size_t level, uint64_t maximumPoints, uint64_t& accumulated);
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
    std::vector<View> _views;
    size_t _viewCount = 0;       ///< views in use
    uint64_t _wantedByViews = 0; ///< points
    std::vector<CellTable::Cell*> _removals;
    std::vector<CellTable::Cell*> _loads;
};

/// Calls `want` for every cell that passes the test and whose parents all do, `refuse` for the first on each
/// way down that does not. In depth-first order the cells of one level come in the same order whether parents
/// stand before or after their children.
template <class Visibility, class Want, class Refuse>
void LodPass::walk(std::vector<CellTable::Cell>& cells, const Visibility& visibility, const Want& want,
                   const Refuse& refuse)
{
    for (size_t i = 0; i < cells.size();) {
        CellTable::Cell& cell = cells[i];
        if (visibility.checkCellIsVisiable(cell) != 2) {
            refuse(cell);
            i += cell.subtreeSize;
            continue;
        }
        want(cell);
        ++i;
    }
}

template <class Visibility>
void LodPass::traver(OctreeInfo& octree, const Visibility& visibility)
{
    const auto want = [this](CellTable::Cell& cell) {
        Level& level = _levels[cell.level];
        (cell.loaded ? level.loaded : level.missing).push_back(&cell);
        level.points += static_cast<uint64_t>(cell.points);
        if (cell.level >= _levelCount) _levelCount = cell.level + size_t{1};
    };
    walk(cellTable(octree).cells, visibility, want, [this](CellTable::Cell& cell) { remove(cell); });
}

template <class Visibility>
void LodPass::want(OctreeInfo& octree, const Visibility& visibility)
{
    View& view = _views[_viewCount - 1];
    const auto want = [&](CellTable::Cell& cell) {
        view.levels[cell.level].cells.push_back(&cell);
        if (cell.views == 0) _wantedByViews += static_cast<uint64_t>(cell.points);
        if (cell.views < 255) ++cell.views;
        if (cell.level >= _levelCount) _levelCount = cell.level + size_t{1};
    };
    walk(cellTable(octree).cells, visibility, want, [](CellTable::Cell&) {});
}
