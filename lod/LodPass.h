#pragma once

#include "loading/CellTable.h"

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <osg/ref_ptr>
#include <osgUtil/IncrementalCompileOperation>

#include <algorithm>
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
    /// `int checkCellIsVisiable(const CellTable::Cell&) const`, and `bool wantsAll(const CellTable::Subtree&)
    /// const`: true where that would be 2 for every cell of the subtree, false where it takes a look at each.
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
    /// Cells of one level of an octree.
    struct Part
    {
        CellTable* table;
        CellTable::Range cells;
    };

    /// One cell.
    struct Place
    {
        CellTable* table;
        size_t cell;
    };

    struct Level
    {
        std::vector<Part> wanted;
        uint64_t points = 0;
    };

    /// What one view wants of a level.
    struct ViewLevel
    {
        std::vector<Part> wanted;
        double points = 0; ///< the view's part of them
    };
    struct View
    {
        std::array<ViewLevel, 256> levels;
        double points = 0; ///< of all levels
        double share = 0;  ///< of the maximum
        double spent = 0;
    };

    /// Cells of a level whose parents are wanted.
    struct Open
    {
        CellTable::Range cells;
        bool areWanted; ///< with all that is below them
    };

    template <class Visibility, class Want, class Refuse>
    void walk(const CellTable& table, const Visibility& visibility, const Want& want, const Refuse& refuse);
    template <class Visibility, class Want>
    void walkOpen(const CellTable& table, const Visibility& visibility, const Want& want);
    static void append(std::vector<Open>& open, const Open& more);
    static void append(std::vector<Part>& parts, const Part& more);
    static CellTable& cellTable(OctreeInfo& octree);
    void countPoints(View& view) const;
    void divide(uint64_t maximumPoints);
    void admit(View& view, size_t level, uint64_t maximumPoints, uint64_t& accumulated);
    void admitCells(const Part& part);
    void remove(const Part& part);
    void sortRemovals(size_t from);
    void admit(const Level& level);
    static void withdrawCompileSet(CellData& data, osgUtil::IncrementalCompileOperation* incremental);
    void unload(CellData& data);
    void load(CellData& data);
    void compile(CellData& data, osg::Node& node);

    osg::ref_ptr<osgUtil::IncrementalCompileOperation> _incremental;
    VelOsgDBBrx::VelIncrementalCompileOperation* _ownIncremental; ///< the same where it is of the library
    osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> _decremental;

    std::array<Level, 256> _levels;
    size_t _levelCount = 0; ///< levels in use are below this
    std::vector<View> _views;
    size_t _viewCount = 0;       ///< views in use
    uint64_t _wantedByViews = 0; ///< points
    std::vector<Place> _removals;
    std::vector<Place> _loads;
    std::vector<Open> _open;  ///< of the level that a walk is at
    std::vector<Open> _below; ///< of the next one
};

/// Goes down level by level through the cells whose parents are all wanted: `want(level, range)` for those
/// that are wanted, too, in the order of their numbers, and `refuse(range)` for what lies between, with all
/// that is below.
template <class Visibility, class Want, class Refuse>
void LodPass::walk(const CellTable& table, const Visibility& visibility, const Want& want,
                   const Refuse& refuse)
{
    _open.clear();
    if (table.levels() > 0) _open.push_back({table.level(0), false});
    size_t level = 0;
    for (; !_open.empty(); ++level) {
        size_t done = table.level(level).first;
        _below.clear();
        walkOpen(table, visibility, [&](const CellTable::Range& cells) {
            want(level, cells);
            if (done < cells.first) refuse({done, cells.first});
            done = cells.end;
        });
        refuse({done, table.level(level).end});
        _open.swap(_below);
    }
    if (level < table.levels()) refuse({table.level(level).first, table.all().end});
}

template <class Visibility, class Want>
void LodPass::walkOpen(const CellTable& table, const Visibility& visibility, const Want& want)
{
    for (const Open& open : _open) {
        if (open.areWanted) {
            want(open.cells);
            append(_below, {table.children(open.cells), true});
            continue;
        }
        for (size_t cell = open.cells.first; cell < open.cells.end; ++cell) {
            if (visibility.checkCellIsVisiable(table.cells[cell]) != 2) continue;
            want({cell, cell + 1});
            const CellTable::Range children = table.children({cell, cell + 1});
            if (!children.isEmpty()) append(_below, {children, visibility.wantsAll(table.subtrees[cell])});
        }
    }
}

inline void LodPass::append(std::vector<Open>& open, const Open& more)
{
    if (more.cells.isEmpty()) return;
    if (!open.empty() && open.back().cells.end == more.cells.first && open.back().areWanted == more.areWanted)
        open.back().cells.end = more.cells.end;
    else
        open.push_back(more);
}

inline void LodPass::append(std::vector<Part>& parts, const Part& more)
{
    if (!parts.empty() && parts.back().table == more.table && parts.back().cells.end == more.cells.first)
        parts.back().cells.end = more.cells.end;
    else
        parts.push_back(more);
}

template <class Visibility>
void LodPass::traver(OctreeInfo& octree, const Visibility& visibility)
{
    CellTable& table = cellTable(octree);
    const size_t removals = _removals.size();
    walk(
        table, visibility,
        [&](size_t level, const CellTable::Range& cells) {
            append(_levels[level].wanted, {&table, cells});
            _levels[level].points += static_cast<uint64_t>(table.points(cells));
            _levelCount = std::max(_levelCount, level + 1);
        },
        [&](const CellTable::Range& cells) {
            remove({&table, cells});
        });
    sortRemovals(removals);
}

template <class Visibility>
void LodPass::want(OctreeInfo& octree, const Visibility& visibility)
{
    CellTable& table = cellTable(octree);
    table.views.resize(table.cells.size());
    table.admitted.resize(table.cells.size());
    View& view = _views[_viewCount - 1];
    walk(
        table, visibility,
        [&](size_t level, const CellTable::Range& cells) {
            append(view.levels[level].wanted, {&table, cells});
            for (size_t cell = cells.first; cell < cells.end; ++cell) {
                if (table.views[cell] == 0) _wantedByViews += static_cast<uint64_t>(table.points(cell));
                if (table.views[cell] < 255) ++table.views[cell];
            }
            _levelCount = std::max(_levelCount, level + 1);
        },
        [](const CellTable::Range&) {});
}
