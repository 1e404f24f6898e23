#include "lod/LodPass.h"

#include "loading/CellLeaf.h"
#include "lod/PointCloudLOD.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <OpenThreads/ScopedLock>

#include <algorithm>
#include <limits>
#include <new>

using CompileSet = osgUtil::IncrementalCompileOperation::CompileSet;

LodPass::LodPass(osgUtil::IncrementalCompileOperation* incremental,
                 VelOsgUtils::DecrementalCompileOperation* decremental)
    : _incremental(incremental),
      _ownIncremental(dynamic_cast<VelOsgDBBrx::VelIncrementalCompileOperation*>(incremental)),
      _decremental(decremental)
{
}

LodPass::LodPass(const LodPass& other) : LodPass(other._incremental, other._decremental) {}

LodPass& LodPass::operator=(const LodPass& other)
{
    clear();
    _incremental = other._incremental;
    _ownIncremental = other._ownIncremental;
    _decremental = other._decremental;
    return *this;
}

void LodPass::clear()
{
    for (size_t i = 0; i < _levelCount; ++i) {
        _levels[i].loaded.clear();
        _levels[i].missing.clear();
        _levels[i].points = 0;
    }
    for (size_t i = 0; i < _viewCount; ++i) {
        for (size_t level = 0; level < _levelCount; ++level) {
            _views[i].levels[level].cells.clear();
            _views[i].levels[level].points = 0;
        }
        _views[i].points = _views[i].spent = 0;
    }
    _levelCount = 0;
    _viewCount = 0;
    _wantedByViews = 0;
    _removals.clear();
    _loads.clear();
}

CellTable& LodPass::cellTable(OctreeInfo& octree)
{
    if (!octree.cellTable) octree.cellTable = new CellTable(octree);
    return *octree.cellTable;
}

void LodPass::removeAll(OctreeInfo& octree)
{
    std::vector<CellTable::Cell>& cells = cellTable(octree).cells;
    if (!cells.empty()) remove(cells.front());
}

void LodPass::abandon(OctreeInfo& octree, osgUtil::IncrementalCompileOperation* incremental)
{
    for (CellTable::Cell& cell : cellTable(octree).cells) {
        if (!cell.loaded) continue;
        cell.loaded = false;
        CellData& data = *cell.data;
        withdrawCompileSet(data, incremental);
        osg::ref_ptr<osg::Group> group;
        data.group.lock(group);
        if (auto* cloud = dynamic_cast<PointCloudLOD*>(group.get())) cloud->addOrphan(data.node);
        data.node = nullptr;
    }
}

void LodPass::remove(CellTable::Cell& cell)
{
    CellTable::Cell* const first = &cell;
    for (uint32_t i = 0; i < first->subtreeSize; ++i)
        if (first[i].loaded) _removals.push_back(first + i);
}

void LodPass::admitLevels(uint64_t maximumPoints)
{
    uint64_t accumulated = 0;
    for (size_t i = 0; i < _levelCount; ++i) {
        Level& level = _levels[i];
        if (i > 0 && accumulated + level.points >= maximumPoints) {
            _removals.insert(_removals.end(), level.loaded.begin(), level.loaded.end());
            continue;
        }
        accumulated += level.points;
        admit(level);
    }
}

void LodPass::admitAllLevels()
{
    for (size_t i = 0; i < _levelCount; ++i)
        admit(_levels[i]);
}

void LodPass::admit(Level& level)
{
    _loads.insert(_loads.end(), level.missing.begin(), level.missing.end());
}

void LodPass::beginView()
{
    if (_viewCount == _views.size()) _views.emplace_back();
    ++_viewCount;
}

void LodPass::admitViews(uint64_t maximumPoints)
{
    for (size_t i = 0; i < _viewCount; ++i)
        countPoints(_views[i]);
    std::sort(_views.begin(), _views.begin() + static_cast<std::ptrdiff_t>(_viewCount),
              [](const View& a, const View& b) { return a.points < b.points; });
    divide(maximumPoints);
    uint64_t accumulated = 0;
    for (size_t level = 0; level < _levelCount; ++level)
        for (size_t i = 0; i < _viewCount; ++i)
            admit(_views[i], level, maximumPoints, accumulated);
}

void LodPass::countPoints(View& view) const
{
    for (size_t level = 0; level < _levelCount; ++level) {
        for (const CellTable::Cell* cell : view.levels[level].cells)
            view.levels[level].points += static_cast<double>(cell->points) / cell->views;
        view.points += view.levels[level].points;
    }
}

/// The views stand in the order of what they want, the most modest first.
void LodPass::divide(uint64_t maximumPoints)
{
    auto left = static_cast<double>(maximumPoints);
    for (size_t i = 0; i < _viewCount; ++i) {
        const double equal = left / static_cast<double>(_viewCount - i);
        const bool modest = _views[i].points <= equal;
        _views[i].share = modest ? std::numeric_limits<double>::infinity() : equal;
        left -= modest ? _views[i].points : equal;
    }
}

void LodPass::admit(View& view, size_t level, uint64_t maximumPoints, uint64_t& accumulated)
{
    const ViewLevel& wanted = view.levels[level];
    uint64_t points = 0; // that no other view has brought in
    for (const CellTable::Cell* cell : wanted.cells)
        if (!cell->admitted) points += static_cast<uint64_t>(cell->points);
    if (level > 0 && (view.spent + wanted.points >= view.share || accumulated + points >= maximumPoints))
        return;
    view.spent += wanted.points;
    accumulated += points;
    for (CellTable::Cell* cell : wanted.cells) {
        if (!cell->admitted && !cell->loaded) _loads.push_back(cell);
        cell->admitted = true;
    }
}

void LodPass::removeOthers(OctreeInfo& octree)
{
    for (CellTable::Cell& cell : cellTable(octree).cells) {
        if (cell.loaded && !cell.admitted) _removals.push_back(&cell);
        cell.views = 0;
        cell.admitted = false;
    }
}

uint64_t LodPass::wantedPoints() const
{
    uint64_t points = _wantedByViews;
    for (size_t i = 0; i < _levelCount; ++i)
        points += _levels[i].points;
    return points;
}

void LodPass::unload()
{
    for (CellTable::Cell* cell : _removals)
        unload(*cell);
}

void LodPass::unload(CellTable::Cell& cell)
{
    CellData& data = *cell.data;
    cell.loaded = false;
    if (!data.node) return;
    withdrawCompileSet(data, _incremental);
    osg::ref_ptr<osg::Group> group;
    data.group.lock(group);
    if (_decremental) _decremental->add(group, data.node);
    data.node = nullptr;
}

/// A set that the graphics thread is compiling at this moment is out of reach of the base's `remove` and
/// would be merged all the same. Without an attachment point the merge passes it by; the merge reads that
/// under the mutex taken here, so afterwards the leaf either is in the scene already or never gets there.
void LodPass::withdrawCompileSet(CellData& data, osgUtil::IncrementalCompileOperation* incremental)
{
    osg::ref_ptr<CompileSet> compileSet;
    data.compileSet.lock(compileSet);
    data.compileSet = nullptr;
    if (!compileSet || !incremental) return;
    {
        OpenThreads::ScopedLock<OpenThreads::Mutex> lock(*incremental->getCompiledMutex());
        compileSet->_attachmentPoint = nullptr;
    }
    incremental->remove(compileSet);
    if (auto* leaf = dynamic_cast<CellLeaf*>(data.node.get())) {
        const VelThreads::Lock lock(leaf->lock);
        if (leaf->compileSet == compileSet.get()) leaf->compileSet = nullptr;
    }
}

bool LodPass::load(const std::atomic<bool>& abort)
{
    const auto count = static_cast<int64_t>(_loads.size());
    if (count == 0) return true;
    [[maybe_unused]] const int threads =
        VelOsgUtils::ThreadCount::halfOfProcessors(static_cast<int>(std::min<int64_t>(count, 4096)));
    std::atomic<bool> complete{true};
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 0; i < count; ++i) {
        if (abort)
            complete = false;
        else
            load(*_loads[static_cast<size_t>(i)]);
    }
    return complete;
}

/// A cell that cannot be read now stays as it is; later passes try again.
void LodPass::load(CellTable::Cell& cell)
{
    CellData& data = *cell.data;
    osg::ref_ptr<osg::Node> node;
    try {
        node = VelOsgDBBrx::PCDataManager::getInstance()->acquireNodeOrCreate(&data);
    } catch (const std::bad_alloc&) {
        return;
    }
    if (!node || node == data.node) return;
    if (data.node) unload(cell);
    compile(data, *node);
    cell.loaded = true;
}

void LodPass::compile(CellData& data, osg::Node& node)
{
    osg::ref_ptr<osg::Group> group;
    data.group.lock(group);
    // The leaf may be wanted again before its removal was done: it then stays, and the merge finds it there.
    if (_decremental) _decremental->withdraw(group, &node);

    osg::ref_ptr<CompileSet> compileSet = new CompileSet(group, &node);
    data.node = &node;
    data.compileSet = compileSet;
    if (auto* leaf = dynamic_cast<CellLeaf*>(&node)) {
        const VelThreads::Lock lock(leaf->lock);
        leaf->compileSet = compileSet;
        leaf->cell = &data;
    }
    if (_ownIncremental)
        _ownIncremental->pushBack(compileSet);
    else if (_incremental)
        _incremental->add(compileSet, true);
}
